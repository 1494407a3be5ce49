#pragma once
// The flash chips the instrument's transfer program can drive, by name and number. Names are
// compared exactly, as written in the package.
#include <QString>
#include <cstdint>

namespace FlashTable {
// The chip's number, or 0 for a name the table does not know.
int32_t indexOf(const QString &flashname);
}
