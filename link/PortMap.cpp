#include "link/PortMap.h"

#include <QRegularExpression>

PortMap PortMap::fromEnvironment()
{
    return PortMap(qEnvironmentVariable(EnvironmentVariable));
}

PortMap::PortMap(const QString &overrides)
{
    for (const QString &entry : overrides.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const qsizetype equals = entry.indexOf(QLatin1Char('='));
        if (equals <= 0)
            continue;
        m_overrides.insert(entry.left(equals).trimmed().toUpper(), entry.mid(equals + 1).trimmed());
    }
}

QString PortMap::deviceFor(const QString &name) const
{
    const QString key = name.trimmed().toUpper();
    if (m_overrides.contains(key))
        return m_overrides.value(key);
    if (name.contains(QLatin1Char('/')))
        return name.trimmed();
    static const QRegularExpression com(QStringLiteral("^COM([1-9][0-9]*)$"));
    const QRegularExpressionMatch match = com.match(key);
    if (match.hasMatch())
        return QStringLiteral("/dev/ttyS%1").arg(match.captured(1).toInt() - 1);
    return QString();
}
