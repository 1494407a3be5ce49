#include "cli/PortsCommand.h"

#include "cli/ExitStatus.h"
#include "link/PortMap.h"
#include "link/TransportFactory.h"

#include <QFileInfo>
#include <QSerialPort>
#include <QTextStream>

namespace PortsCommand {
namespace {
constexpr int DefaultComPorts = 8; // COM1 to COM8, the names packages use

// A GPIB port opens when its controller answers (or linux-gpib gives the board).
QString gpibState(const PortMap &map, const QString &name)
{
    QString reason;
    const std::unique_ptr<Transport> transport = TransportFactory::forPort(map, name, 0, &reason);
    if (transport && transport->open(&reason)) {
        transport->close();
        return QStringLiteral("opens");
    }
    return reason;
}

QString state(const QString &device)
{
    if (!QFileInfo::exists(device))
        return QStringLiteral("missing");
    QSerialPort port(device);
    if (port.open(QIODevice::ReadWrite)) {
        port.close();
        return QStringLiteral("opens");
    }
    return port.error() == QSerialPort::PermissionError ? QStringLiteral("no permission (join the dialout group) or in use")
                                                        : QStringLiteral("cannot be opened: ") + port.errorString();
}
} // namespace

int run()
{
    const PortMap map = PortMap::fromEnvironment();
    QStringList serial;
    QStringList gpib;
    for (const QString &name : map.overrides().keys())
        (TransportFactory::isGpibName(name) ? gpib : serial) << name;
    for (int n = 1; n <= DefaultComPorts; ++n)
        if (!serial.contains(QStringLiteral("COM%1").arg(n)))
            serial << QStringLiteral("COM%1").arg(n);
    if (!gpib.contains(QStringLiteral("GPIB0")))
        gpib << QStringLiteral("GPIB0");
    QTextStream out(stdout);
    out << "Ports (" << PortMap::EnvironmentVariable << (map.overrides().isEmpty() ? " not set" : " set") << "):\n";
    const auto row = [&](const QString &name, const QString &where, const QString &state) {
        out << "  " << name.leftJustified(7) << ' ' << where.leftJustified(19) << ' ' << state << '\n';
    };
    for (const QString &name : serial)
        row(name, map.deviceFor(name), state(map.deviceFor(name)));
    for (const QString &name : gpib) {
        const QString where = map.deviceFor(name);
        row(name, where.isEmpty() ? QStringLiteral("(not mapped)") : where, gpibState(map, name));
    }
    return ExitStatus::Success;
}

} // namespace PortsCommand
