#include "cli/PortsCommand.h"

#include "cli/ExitStatus.h"
#include "trovex/PortMap.h"

#include <QFileInfo>
#include <QSerialPort>
#include <QTextStream>

namespace PortsCommand {
namespace {
constexpr int DefaultComPorts = 8; // COM1 to COM8, the names packages use

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
    QStringList names = map.overrides().keys();
    for (int n = 1; n <= DefaultComPorts; ++n)
        if (!names.contains(QStringLiteral("COM%1").arg(n)))
            names << QStringLiteral("COM%1").arg(n);
    QTextStream out(stdout);
    out << "Ports (" << PortMap::EnvironmentVariable << (map.overrides().isEmpty() ? " not set" : " set") << "):\n";
    for (const QString &name : names) {
        const QString device = map.deviceFor(name);
        out << "  " << name.leftJustified(7) << ' ' << device.leftJustified(19) << ' ' << state(device) << '\n';
    }
    out << "  GPIB0   (not supported yet)\n";
    return ExitStatus::Success;
}

} // namespace PortsCommand
