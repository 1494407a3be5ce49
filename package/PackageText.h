#pragma once
// How the texts of a package (its archive comment, notes, read-me and closing text) become
// characters: as UTF-8 when the bytes are valid UTF-8 (a byte order mark is dropped), and
// otherwise as Windows-1252, the code page such texts were written in before UTF-8.
#include <QByteArray>
#include <QString>

namespace PackageText {

QString decode(const QByteArray &bytes);
// At most the first maxBytes of bytes, cut back to the start of a character, decoded as the
// whole of bytes would be.
QString decodePrefix(const QByteArray &bytes, qsizetype maxBytes);

}
