#pragma once
// What a package's port name opens on this computer, in words for the technician: the
// device the port map gives a serial port and, for a USB serial adapter, which one it is;
// the controller and address of a GPIB port. A serial port whose device is not there lists
// the adapters that are, with how to map one.
#include "link/PortMap.h"
#include "link/SerialAdapter.h"

namespace PortDescription {
QString of(const QString &name, const PortMap &map, const QList<SerialAdapter> &adapters);
// The device file the port name opens: a serial port's device, a GPIB port's "++"
// controller on a serial device; "" for none.
QString deviceFile(const QString &name, const PortMap &map);
// The adapter that path opens; nullptr when it is none of them.
const SerialAdapter *adapterOpenedBy(const QString &path, const QList<SerialAdapter> &adapters);
}
