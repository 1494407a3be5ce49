#pragma once
// The time as the headless tool's log file and JSON carry it: ISO 8601 with milliseconds
// and the offset from UTC, so that lines from machines in other time zones, or from both
// sides of a change to summer time, still read and sort right.
#include <QDateTime>
#include <QString>

inline QString timestampNow()
{
    const QDateTime now = QDateTime::currentDateTime();
    return now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
}
