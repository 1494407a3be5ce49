#pragma once
// Reads one value from an INI file the way the Windows profile API (GetPrivateProfileString)
// does, quirks included: section and key names match without regard to case, blanks around
// names and values are removed, lines starting with ";" are comments, a value enclosed in a
// matching pair of quotes loses them, the first of duplicate sections and keys wins, and the
// value is cut to the buffer (bufferSize - 1 characters). A missing file, section or key gives
// the default, itself cut and without trailing blanks. A ";" inside a value is kept: comments
// after values are the caller's business. Files are read as Latin-1 (ANSI) text.
#include <QString>

namespace ProfileReader {

// An empty section or key gives the default (the real API would enumerate names instead).
QString readString(const QString &filePath, const QString &section, const QString &key,
                   const QString &defaultValue, int bufferSize = 150);

}
