#include "wizard/QX_CommandLine.h"

#include "config/ErrorCodes.h"

#include <QFileInfo>

namespace {
const QString PortKeyword = QStringLiteral("PORT");
const QString LanguageKeyword = QStringLiteral("FIRMWARE_LANGUAGE");

// Only the blank character is trimmed, not tabs or other white space.
QString trimBlanks(const QString &text)
{
    qsizetype first = 0, last = text.size();
    while (first < last && text.at(first) == QLatin1Char(' '))
        ++first;
    while (last > first && text.at(last - 1) == QLatin1Char(' '))
        --last;
    return text.mid(first, last - first);
}

// The rules before the F switch's take every other keyword that starts with "F".
bool isFileSwitch(const QString &part)
{
    return part.startsWith(QLatin1Char('F')) && !part.startsWith(LanguageKeyword);
}
} // namespace

void QX_CommandLine::setCommandLine(const QStringList &arguments)
{
    m_commandLine = arguments;
    for (const QString &argument : arguments)
        parseArgument(argument);
}

void QX_CommandLine::parseArgument(const QString &argument)
{
    const QChar slash(QLatin1Char('/'));
    for (qsizetype start = argument.indexOf(slash); start >= 0;) {
        const qsizetype next = argument.indexOf(slash, start + 1);
        const QString part = trimBlanks(argument.mid(start + 1, next < 0 ? -1 : next - start - 1));
        if (isFileSwitch(part))
            return parsePart(trimBlanks(argument.mid(start + 1))); // the path keeps its slashes
        parsePart(part);
        start = next;
    }
}

void QX_CommandLine::parsePart(const QString &part)
{
    if (part == QStringLiteral("TRANSFERONLY")) {
        m_transferOnly = true;
    } else if (part == QStringLiteral("AUTOSTART")) {
        m_autoStart = true;
    } else if (part.startsWith(PortKeyword)) {
        m_portSet = true;
        m_port = part.mid(PortKeyword.size());
    } else if (part == QStringLiteral("ADV_DISPLAY")) {
        m_advanced = true;
    } else if (part.startsWith(LanguageKeyword)) {
        m_firmwareLanguageSet = true;
        m_firmwareLanguage = part.mid(LanguageKeyword.size());
    } else if (part.startsWith(QLatin1Char('F'))) {
        m_filePath = part.mid(1);
        const QFileInfo file(m_filePath);
        m_filename = !m_filePath.isEmpty() && file.exists() && file.isFile();
        if (!m_filename)
            fail(ErrorCode::InvalidSwitch, QStringLiteral(" /") + part);
    } else {
        fail(ErrorCode::InvalidSwitch, QStringLiteral(" /") + part);
    }
}
