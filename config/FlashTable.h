#pragma once
// The flash chips the instrument's transfer program can drive, by name and number, with their
// sizes and erase units. Names are compared exactly, as written in the package.
#include <QList>
#include <QString>
#include <cstdint>

namespace FlashTable {
// The chip's number, or 0 for a name the table does not know.
int32_t indexOf(const QString &flashname);
// The chip's size in bytes; 0 for a number the table does not know.
int32_t chipSize(int32_t index);
// The sizes of the chip's erase units from its first byte up (one, the whole chip, for the
// parts that erase only as a whole); none for a number the table does not know.
QList<int32_t> eraseUnits(int32_t index);
}
