#include "link/GpibTarget.h"

#include <QStringList>

QString GpibTarget::describe() const
{
    switch (controller) {
    case Controller::PlusPlusSerial: return QStringLiteral("the GPIB controller on %1").arg(device);
    case Controller::PlusPlusTcp: return QStringLiteral("the GPIB controller at %1:%2").arg(device).arg(tcpPort);
    case Controller::LinuxGpib: return QStringLiteral("GPIB board %1 of linux-gpib").arg(board);
    }
    return QString();
}

std::optional<GpibTarget> GpibTarget::parse(const QString &text, QString *error)
{
    const auto refuse = [&](const QString &why) -> std::optional<GpibTarget> {
        *error = QStringLiteral("\"%1\" is no GPIB controller and address (%2); write e.g. /dev/ttyUSB0,6 or "
                                "192.168.1.40:1234,6 or linux-gpib:0,6")
                     .arg(text, why);
        return std::nullopt;
    };
    const qsizetype comma = text.lastIndexOf(QLatin1Char(','));
    if (comma < 0)
        return refuse(QStringLiteral("no address after a comma"));
    GpibTarget target;
    bool ok = false;
    target.address = text.mid(comma + 1).trimmed().toInt(&ok);
    if (!ok || target.address < 0 || target.address > HighestAddress)
        return refuse(QStringLiteral("the address must be 0 to %1").arg(HighestAddress));
    const QString where = text.left(comma).trimmed();
    if (where.startsWith(QLatin1String("linux-gpib"), Qt::CaseInsensitive)) {
        target.controller = Controller::LinuxGpib;
        const QString board = where.mid(int(qstrlen("linux-gpib")));
        if (!board.isEmpty()) {
            target.board = board.startsWith(QLatin1Char(':')) ? board.mid(1).toInt(&ok) : (ok = false, 0);
            if (!ok || target.board < 0)
                return refuse(QStringLiteral("the board must be a number"));
        }
        return target;
    }
    if (where.contains(QLatin1Char('/'))) {
        target.controller = Controller::PlusPlusSerial;
        target.device = where;
        return target;
    }
    target.controller = Controller::PlusPlusTcp;
    const QStringList hostPort = where.split(QLatin1Char(':'));
    if (hostPort.size() > 2 || hostPort.first().isEmpty())
        return refuse(QStringLiteral("a host, a host:port or a device path is needed"));
    target.device = hostPort.first();
    if (hostPort.size() == 2) {
        const uint port = hostPort[1].toUInt(&ok);
        if (!ok || port == 0 || port > 65535)
            return refuse(QStringLiteral("the TCP port must be 1 to 65535"));
        target.tcpPort = quint16(port);
    }
    return target;
}
