#include "cli/PortsCommand.h"

#include "cli/ExitStatus.h"
#include "link/PortDescription.h"
#include "link/PortMap.h"
#include "link/SerialAdapter.h"
#include "link/TransportFactory.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSerialPort>
#include <QTextStream>
#include <vector>

namespace PortsCommand {
namespace {
constexpr int DefaultComPorts = 8; // COM1 to COM8, the names packages use

// A GPIB port opens when its controller answers (or linux-gpib gives the board). Every port
// is tried at once; the event loop runs until each has said whether it opens.
QMap<QString, QString> gpibStates(const PortMap &map, const QStringList &names)
{
    QMap<QString, QString> states;
    std::vector<std::unique_ptr<Transport>> opening;
    int pending = 0;
    for (const QString &name : names) {
        QString reason;
        std::unique_ptr<Transport> transport = TransportFactory::forPort(map, name, 0, &reason);
        if (!transport) {
            states[name] = reason;
            continue;
        }
        Transport *tried = transport.get();
        const auto settle = [&states, &pending, name, tried](const QString &state) {
            tried->close(); // nothing more from it
            states[name] = state;
            if (--pending == 0)
                QCoreApplication::quit();
        };
        QObject::connect(tried, &Transport::opened, tried, [settle] { settle(QStringLiteral("opens")); });
        QObject::connect(tried, &Transport::failed, tried, settle);
        ++pending;
        tried->open();
        opening.push_back(std::move(transport));
    }
    if (pending > 0)
        QCoreApplication::exec();
    return states;
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

// Each adapter present, with the port names that open it and its by-id names: what to put
// in the port map to reach it under the same name whichever USB socket it is plugged into.
void printAdapters(QTextStream &out, const QList<SerialAdapter> &adapters, const PortMap &map, const QStringList &names)
{
    out << "USB serial adapters:\n";
    if (adapters.isEmpty())
        out << "  (none found)\n";
    for (const SerialAdapter &adapter : adapters) {
        QStringList usedBy;
        for (const QString &name : names)
            if (adapter.isOpenedBy(PortDescription::deviceFile(name, map)))
                usedBy << name;
        out << "  " << adapter.device.leftJustified(15) << ' ' << adapter.description()
            << (usedBy.isEmpty() ? QString() : QStringLiteral(" (") + usedBy.join(QStringLiteral(", ")) + QLatin1Char(')'))
            << '\n';
        for (const QString &byId : adapter.byIdNames)
            out << "      " << byId << '\n';
    }
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
    const QList<SerialAdapter> adapters = SerialAdapter::present();
    for (const QString &name : serial) {
        const QString device = map.deviceFor(name);
        const SerialAdapter *adapter = PortDescription::adapterOpenedBy(device, adapters);
        row(name, device, state(device) + (adapter ? QStringLiteral(", ") + adapter->description() : QString()));
    }
    const QMap<QString, QString> gpibState = gpibStates(map, gpib);
    for (const QString &name : gpib) {
        const QString where = map.deviceFor(name);
        row(name, where.isEmpty() ? QStringLiteral("(not mapped)") : where, gpibState.value(name));
    }
    printAdapters(out, adapters, map, serial + gpib);
    return ExitStatus::Success;
}

} // namespace PortsCommand
