#include "link/PortDescription.h"

#include "link/GpibTarget.h"
#include "link/TransportFactory.h"

#include <QFileInfo>

namespace PortDescription {
namespace {
const QString MapName = QLatin1String(PortMap::EnvironmentVariable);

QString adapterText(const SerialAdapter &adapter)
{
    return adapter.device + QStringLiteral(" (") + adapter.description() + QLatin1Char(')');
}

QString ofGpib(const QString &name, const PortMap &map, const QList<SerialAdapter> &adapters)
{
    const QString entry = map.deviceFor(name);
    if (entry.isEmpty())
        return QStringLiteral("%1 is not in the port map: %2 names its GPIB controller and the instrument's address, "
                              "e.g. %1=/dev/ttyUSB0,6.")
            .arg(name, MapName);
    QString error;
    const std::optional<GpibTarget> target = GpibTarget::parse(entry, &error);
    if (!target)
        return QStringLiteral("%1 in %2: %3.").arg(name, MapName, error);
    QString text = QStringLiteral("%1 reaches the instrument at GPIB address %2 through %3")
                       .arg(name)
                       .arg(target->address)
                       .arg(target->describe());
    if (const SerialAdapter *adapter = adapterOpenedBy(target->device, adapters))
        text += QStringLiteral(": ") + adapter->description();
    return text + QLatin1Char('.');
}

QString ofSerial(const QString &name, const PortMap &map, const QList<SerialAdapter> &adapters)
{
    const QString device = map.deviceFor(name);
    if (device.isEmpty())
        return QStringLiteral("%1 is not in the port map: %2 names its device, e.g. %1=/dev/ttyUSB0.").arg(name, MapName);
    QString text = name + QStringLiteral(" opens ") + device;
    if (const SerialAdapter *adapter = adapterOpenedBy(device, adapters))
        return text + (adapter->device == device ? QString() : QStringLiteral(" (") + adapter->device + QLatin1Char(')'))
               + QStringLiteral(": ") + adapter->description() + QLatin1Char('.');
    if (QFileInfo::exists(device))
        return text + QLatin1Char('.');
    text += QStringLiteral(", which is not there.");
    if (adapters.isEmpty())
        return text;
    QStringList present;
    for (const SerialAdapter &adapter : adapters)
        present << adapterText(adapter);
    return text + QStringLiteral(" USB serial adapters here: ") + present.join(QStringLiteral("; "))
           + QStringLiteral(". %1 maps the port to one, e.g. %2=%3.").arg(MapName, name, adapters.first().device);
}
} // namespace

QString of(const QString &name, const PortMap &map, const QList<SerialAdapter> &adapters)
{
    // Names are upper case in the map; a path is a device's own name.
    const QString port = name.contains(QLatin1Char('/')) ? name.trimmed() : name.trimmed().toUpper();
    return TransportFactory::isGpibName(port) ? ofGpib(port, map, adapters) : ofSerial(port, map, adapters);
}

QString deviceFile(const QString &name, const PortMap &map)
{
    const QString where = map.deviceFor(name);
    if (!TransportFactory::isGpibName(name))
        return where;
    QString error;
    const std::optional<GpibTarget> target = GpibTarget::parse(where, &error);
    return target && target->controller == GpibTarget::Controller::PlusPlusSerial ? target->device : QString();
}

const SerialAdapter *adapterOpenedBy(const QString &path, const QList<SerialAdapter> &adapters)
{
    for (const SerialAdapter &adapter : adapters)
        if (adapter.isOpenedBy(path))
            return &adapter;
    return nullptr;
}

} // namespace PortDescription
