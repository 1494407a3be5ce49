#include "config/ProfileReader.h"

#include <QFile>

namespace ProfileReader {
namespace {

// The largest file looked at: configuration files are a few kilobytes, and a forged one
// must not make us read gigabytes.
constexpr qint64 MaxFileBytes = 16 * 1024 * 1024;

bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

QString trimBlanks(QStringView text)
{
    qsizetype first = 0, last = text.size();
    while (first < last && isBlank(text[first]))
        ++first;
    while (last > first && isBlank(text[last - 1]))
        --last;
    return text.mid(first, last - first).toString();
}

QString cut(const QString &value, int bufferSize)
{
    return bufferSize <= 0 ? QString() : value.left(bufferSize - 1);
}

QString unquoted(const QString &value)
{
    if (value.size() >= 2) {
        const QChar first = value.front();
        if ((first == QLatin1Char('"') || first == QLatin1Char('\'')) && value.back() == first)
            return value.mid(1, value.size() - 2);
    }
    return value;
}

// The value of key in the first section named section, or a null string when absent.
QString findValue(const QString &text, const QString &section, const QString &key)
{
    enum class Place { Before, Inside, After } place = Place::Before;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        const QString trimmed = trimBlanks(line);
        if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char(';')))
            continue;
        if (trimmed.startsWith(QLatin1Char('['))) {
            if (place == Place::Inside)
                return QString(); // only the first section of that name counts
            const qsizetype close = trimmed.indexOf(QLatin1Char(']'));
            const QString name = trimBlanks(QStringView(trimmed).mid(1, close < 0 ? -1 : close - 1));
            if (name.compare(section, Qt::CaseInsensitive) == 0)
                place = Place::Inside;
            continue;
        }
        if (place != Place::Inside)
            continue;
        const qsizetype equals = trimmed.indexOf(QLatin1Char('='));
        if (equals < 0)
            continue;
        if (trimBlanks(QStringView(trimmed).left(equals)).compare(key, Qt::CaseInsensitive) == 0) {
            const QString value = unquoted(trimBlanks(QStringView(trimmed).mid(equals + 1)));
            return value.isNull() ? QStringLiteral("") : value;
        }
    }
    return QString();
}

} // namespace

QString readString(const QString &filePath, const QString &section, const QString &key,
                   const QString &defaultValue, int bufferSize)
{
    QString fallback = defaultValue;
    while (!fallback.isEmpty() && isBlank(fallback.back()))
        fallback.chop(1);
    fallback = cut(fallback, bufferSize);
    if (section.isEmpty() || key.isEmpty())
        return fallback;

    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly))
        return fallback;
    QByteArray bytes = file.read(MaxFileBytes);
    if (bytes.startsWith("\xEF\xBB\xBF"))
        bytes.remove(0, 3);
    // A NUL ends the text, as it ends a C string.
    const qsizetype nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);

    const QString value = findValue(QString::fromLatin1(bytes), section, key);
    return value.isNull() ? fallback : cut(value, bufferSize);
}

} // namespace ProfileReader
