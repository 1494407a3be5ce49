#include "cli/RunLog.h"

#include "cli/ConsoleText.h"
#include "cli/Timestamp.h"

#include <QTextStream>

bool RunLog::open(const QString &path, QString *error)
{
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        *error = QStringLiteral("cannot write the log file %1: %2").arg(path, m_file.errorString());
        return false;
    }
    return true;
}

void RunLog::write(const QString &text)
{
    if (!isOpen())
        return;
    // Every line carries the stamp, so the file can be sorted and searched by time.
    const QString stamp = timestampNow();
    QTextStream log(&m_file);
    for (const QString &line : forConsole(text).split(QLatin1Char('\n')))
        log << stamp << ' ' << line << '\n';
    log.flush();
    m_file.flush();
}
