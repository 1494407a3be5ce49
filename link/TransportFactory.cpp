#include "link/TransportFactory.h"

#include "link/GpibControllerTransport.h"
#include "link/GpibTarget.h"
#include "link/LinuxGpibTransport.h"
#include "link/SerialTransport.h"

namespace TransportFactory {

bool isGpibName(const QString &name)
{
    return name.trimmed().startsWith(QLatin1String("GPIB"), Qt::CaseInsensitive);
}

std::unique_ptr<Transport> forPort(const PortMap &ports, const QString &name, int baud, QString *error)
{
    const QString where = ports.deviceFor(name);
    if (where.isEmpty()) {
        *error = isGpibName(name)
                     ? QStringLiteral("the port %1 is not in the port map; set %2 to the GPIB controller and the "
                                      "instrument's address, e.g. %2=\"%1=/dev/ttyUSB0,6\"")
                           .arg(name.trimmed().toUpper(), QLatin1String(PortMap::EnvironmentVariable))
                     : QStringLiteral("the port %1 is not in the port map; set %2, e.g. %2=\"%1=/dev/ttyUSB0\"")
                           .arg(name, QLatin1String(PortMap::EnvironmentVariable));
        return nullptr;
    }
    if (!isGpibName(name))
        return std::make_unique<SerialTransport>(where, baud);
    const std::optional<GpibTarget> target = GpibTarget::parse(where, error);
    if (!target) {
        *error = QStringLiteral("%1 in %2: %3").arg(name.trimmed().toUpper(), QLatin1String(PortMap::EnvironmentVariable), *error);
        return nullptr;
    }
    if (target->controller == GpibTarget::Controller::LinuxGpib)
        return std::make_unique<LinuxGpibTransport>(*target);
    return std::make_unique<GpibControllerTransport>(*target);
}

} // namespace TransportFactory
