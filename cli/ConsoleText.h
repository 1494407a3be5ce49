#pragma once
// The engine's texts break lines Windows-style (CR LF); a terminal and a log file want LF.
#include <QString>

inline QString forConsole(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
