#include "package/PackageText.h"

#include <QStringDecoder>
#include <algorithm>

namespace PackageText {
namespace {

// Qt takes Windows-1252 from ICU; the tests show that this build has it.
constexpr const char *LegacyCodePage = "windows-1252";

bool isUtf8(const QByteArray &bytes)
{
    QStringDecoder utf8(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    const QString ignored = utf8(bytes);
    return !utf8.hasError();
}

bool isContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

QString decodeAs(bool utf8, QByteArrayView bytes)
{
    QStringDecoder decoder = utf8 ? QStringDecoder(QStringConverter::Utf8) : QStringDecoder(LegacyCodePage);
    return decoder(bytes);
}

} // namespace

QString decode(const QByteArray &bytes)
{
    return decodeAs(isUtf8(bytes), bytes);
}

QString decodePrefix(const QByteArray &bytes, qsizetype maxBytes)
{
    const bool utf8 = isUtf8(bytes);
    qsizetype end = std::clamp<qsizetype>(maxBytes, 0, bytes.size());
    // A Windows-1252 character is one byte; a UTF-8 one ends before the next lead byte.
    while (utf8 && end > 0 && end < bytes.size() && isContinuationByte(bytes[end]))
        --end;
    return decodeAs(utf8, QByteArrayView(bytes).first(end));
}

} // namespace PackageText
