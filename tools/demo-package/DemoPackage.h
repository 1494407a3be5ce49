#pragma once
// A realistic firmware package for demonstrations and screenshots: two flash memories, erase
// ranges, a calibration range read back to a file and, since its sector is erased, written
// back from it, programs for two languages, notes, a read-me, a closing text and an archive
// comment.
#include <QString>

namespace DemoPackage {
// The read-back file, in the working folder of the update.
inline const QString CalibrationFile = QStringLiteral("CAL-M7.BIN");
// Writes "Model7-Firmware-2.07.KDPKG" into folder. Returns the package's path, or "" with a
// reason in *error.
QString write(const QString &folder, QString *error);

// The demo instrument's chips: an AM29F040 at 0 and an AM29LV800 at H100000.
struct Flash {
    QByteArray main;
    QByteArray language;
};
// As an instrument may hold them before the update: its calibration data at 0 with an older
// boot loader right behind it (so that the update erases that sector and writes the data
// back), an older firmware from H10000 and an older text in the language chip.
Flash olderFlash(const QByteArray &calibration);
// As the update to the English firmware leaves them.
Flash updatedFlash(const QByteArray &calibration);
// Deterministic bytes with no pattern, for calibration data and older contents.
QByteArray noise(int size, uint32_t seed);
}
