#include "cli/ConsolePrompt.h"

#include <QTextStream>
#include <cstdio>
#include <unistd.h>

namespace {
QString forConsole(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
} // namespace

bool ConsolePrompt::askYesNo(const QString &title, const QString &text)
{
    if (!isatty(STDIN_FILENO))
        return false;
    QTextStream out(stderr);
    out << title << ": " << forConsole(text) << " [y/N] " << Qt::flush;
    QTextStream in(stdin);
    const QString answer = in.readLine().trimmed();
    return answer.startsWith(QLatin1Char('y'), Qt::CaseInsensitive);
}

void ConsolePrompt::showMessage(const QString &title, const QString &text)
{
    QTextStream(stderr) << title << ": " << forConsole(text) << Qt::endl;
}
