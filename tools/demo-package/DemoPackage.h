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
}
