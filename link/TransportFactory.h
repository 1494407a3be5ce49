#pragma once
// The transport for a port name of a package, as the port map says: a serial device for COMn
// (or a path), a "++" controller or a linux-gpib board for GPIBn.
#include "link/PortMap.h"
#include "link/Transport.h"

#include <memory>

namespace TransportFactory {
// An unopened transport, or nullptr with a reason. baud applies to serial ports.
std::unique_ptr<Transport> forPort(const PortMap &ports, const QString &name, int baud, QString *error);
bool isGpibName(const QString &name);
}
