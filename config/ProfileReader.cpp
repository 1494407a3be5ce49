#include "config/ProfileReader.h"

#include <QFile>
#include <QStringDecoder>
#include <optional>

namespace ProfileReader {
namespace {

// The largest file looked at: configuration files are a few kilobytes, and a forged one
// must not make us read gigabytes.
constexpr qint64 MaxFileBytes = 16 * 1024 * 1024;
constexpr char32_t LastLatin1 = 0xFF;
const QByteArray Utf16LittleEndianMark("\xFF\xFE");

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\v';
}

QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && isBlank(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && isBlank(text.back()))
        text.chop(1);
    return text;
}

// The caller's names and default lose spaces only, not tabs.
QString withoutTrailingSpaces(QString text)
{
    while (text.endsWith(u' '))
        text.chop(1);
    return text;
}

QString withoutSurroundingSpaces(const QString &text)
{
    qsizetype first = 0;
    while (first < text.size() && text[first] == u' ')
        ++first;
    return withoutTrailingSpaces(text.mid(first));
}

QString cut(const QString &value, int bufferSize)
{
    return bufferSize <= 0 ? QString() : value.left(bufferSize - 1);
}

QString unquoted(QStringView value)
{
    if (value.size() >= 2) {
        const QChar first = value.front();
        if ((first == u'"' || first == u'\'') && value.back() == first)
            return value.sliced(1, value.size() - 2).toString();
    }
    return value.toString();
}

// The file as the ANSI call sees it: one character per byte, or, behind the UTF-16 mark,
// the UTF-16 text with what the ANSI code page cannot hold turned into "?".
QString fileText(const QByteArray &bytes)
{
    if (!bytes.startsWith(Utf16LittleEndianMark))
        return QString::fromLatin1(bytes);
    QStringDecoder utf16(QStringConverter::Utf16LE, QStringConverter::Flag::Stateless);
    const QString wide = utf16(QByteArrayView(bytes).first(bytes.size() & ~qsizetype(1)));
    QString ansi;
    ansi.reserve(wide.size());
    for (const char32_t c : QStringView(wide).toUcs4())
        ansi += c <= LastLatin1 ? QChar(c) : QChar(u'?');
    return ansi;
}

// The line that starts at pos, up to its first NUL; pos moves past the line's end (CR LF,
// CR or LF).
QStringView takeLine(QStringView text, qsizetype &pos)
{
    const qsizetype start = pos;
    while (pos < text.size() && text[pos] != u'\r' && text[pos] != u'\n')
        ++pos;
    const QStringView line = text.sliced(start, pos - start);
    if (pos + 1 < text.size() && text[pos] == u'\r' && text[pos + 1] == u'\n')
        ++pos;
    ++pos;
    const qsizetype nul = line.indexOf(QChar(u'\0'));
    return nul < 0 ? line : line.first(nul);
}

bool sameName(QStringView inFile, const QString &wanted)
{
    return trimBlanks(inFile).compare(wanted, Qt::CaseInsensitive) == 0;
}

// The value of key in the first section named section; nothing when absent.
std::optional<QString> findValue(QStringView text, const QString &section, const QString &key)
{
    bool inside = false;
    for (qsizetype pos = 0; pos < text.size();) {
        const QStringView line = trimBlanks(takeLine(text, pos));
        if (line.isEmpty() || line.front() == u';')
            continue;
        if (line.front() == u'[') {
            if (inside)
                return std::nullopt; // only the first section of that name counts
            const qsizetype close = line.indexOf(u']');
            inside = sameName(line.sliced(1, (close < 0 ? line.size() : close) - 1), section);
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (inside && equals >= 0 && sameName(line.first(equals), key))
            return unquoted(trimBlanks(line.sliced(equals + 1)));
    }
    return std::nullopt;
}

} // namespace

QString readString(const QString &filePath, const QString &section, const QString &key,
                   const QString &defaultValue, int bufferSize)
{
    const QString fallback = cut(withoutTrailingSpaces(defaultValue), bufferSize);
    const QString sectionName = withoutSurroundingSpaces(section);
    const QString keyName = withoutSurroundingSpaces(key);
    if (sectionName.isEmpty() || keyName.isEmpty())
        return fallback;

    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly))
        return fallback;
    const std::optional<QString> value = findValue(fileText(file.read(MaxFileBytes)), sectionName, keyName);
    return value ? cut(*value, bufferSize) : fallback;
}

} // namespace ProfileReader
