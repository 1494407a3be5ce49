#pragma once
// Reads one value from an INI file the way the Windows profile API (GetPrivateProfileStringA)
// does, for whatever bytes the file holds:
// - A carriage return, a line feed or the pair of them ends a line; a NUL ends the text of its
//   line (the rest of that line is ignored) but not the file.
// - Blanks are space, tab and vertical tab. Lines may be indented; a line starting with ";"
//   is a comment. "[" starts a section header whose name ends at the first "]" or, without
//   one, at the line's end; the rest of the line is ignored.
// - Section and key names match without regard to case, blanks around them removed; the
//   caller's names lose surrounding spaces only. The first of duplicate sections and keys wins;
//   keys before the first section belong to none.
// - A value loses its surrounding blanks and then a matching pair of enclosing quotes; a ";"
//   inside it is kept (comments after values are the caller's business). It is cut to the
//   buffer (bufferSize - 1 characters).
// - A missing file, section or key gives the default without its trailing spaces, cut alike.
// - The file is ANSI text (Latin-1 here), unless it starts with the UTF-16 little-endian byte
//   order mark: then it is UTF-16 and characters outside Latin-1 come out as "?", as the ANSI
//   call converts them. A UTF-8 byte order mark is not recognised: it belongs to the first line.
#include <QString>

namespace ProfileReader {

// An empty section or key gives the default (the real API would enumerate names instead).
QString readString(const QString &filePath, const QString &section, const QString &key,
                   const QString &defaultValue, int bufferSize = 150);

}
