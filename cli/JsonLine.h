#pragma once
// One JSON object on a line of standard output, stamped with the time, as --json prints them.
#include "cli/Timestamp.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

inline void printJsonLine(QJsonObject object)
{
    object.insert(QStringLiteral("time"), timestampNow());
    QTextStream(stdout) << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
}
