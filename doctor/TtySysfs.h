#pragma once
// Serial devices as the kernel's device tree describes them (class/tty/NAME): which ones are
// USB adapters, what each is, and its device number, by which udev keeps its properties.
#include "doctor/UsbIdentity.h"

#include <QStringList>
#include <optional>

class TtySysfs {
public:
    explicit TtySysfs(const QString &sysRoot);

    // The identity of the USB device behind the tty (e.g. "ttyUSB0"); nullopt when it is
    // none (a built-in port, a pseudo-terminal).
    std::optional<UsbIdentity> usbIdentity(const QString &ttyName) const;
    // "188:0"; "" when the tree does not know the tty.
    QString deviceNumber(const QString &ttyName) const;
    // The USB serial adapters present (ttyUSB and ttyACM), by name in order.
    QStringList usbTtys() const;

private:
    QString m_root;
};
