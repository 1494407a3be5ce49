#include "cli/ConsolePrompt.h"

#include "cli/ConsoleText.h"
#include "config/QX_Download.h"

#include <QTextStream>
#include <unistd.h>

bool ConsolePrompt::askYesNo(const QString &title, const QString &text)
{
    if (title == QX_Download::InterruptedTitle && m_sameInstrument)
        return *m_sameInstrument;
    if (title != QX_Download::InterruptedTitle && m_policy != CliOptions::Overwrite::Ask)
        return m_policy == CliOptions::Overwrite::Always;
    if (!isatty(STDIN_FILENO))
        return false;
    QTextStream out(stderr);
    out << title << ": " << forConsole(text) << " [y/N] " << Qt::flush;
    QTextStream in(stdin);
    return in.readLine().trimmed().startsWith(QLatin1Char('y'), Qt::CaseInsensitive);
}

void ConsolePrompt::showMessage(const QString &title, const QString &text)
{
    QTextStream(stderr) << title << ": " << forConsole(text) << Qt::endl;
}
