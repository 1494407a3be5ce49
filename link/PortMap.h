#pragma once
// Which device a package's port name means. COMn is /dev/ttyS(n-1) unless the environment
// variable TROVEX_PORTS maps it elsewhere, e.g. TROVEX_PORTS="COM1=/dev/ttyUSB0;COM2=/dev/pts/7".
// A name that is already a path (it holds "/") is used as it is. GPIBn has no default: its
// entry names the controller and the instrument's address (see GpibTarget).
#include <QMap>
#include <QString>

class PortMap {
public:
    // The map of the environment.
    static PortMap fromEnvironment();
    // A map from a TROVEX_PORTS text.
    explicit PortMap(const QString &overrides = QString());

    // The device for name, or "" when it names nothing this map knows.
    QString deviceFor(const QString &name) const;
    // Every name the overrides give, with its device.
    QMap<QString, QString> overrides() const { return m_overrides; }

    static constexpr const char *EnvironmentVariable = "TROVEX_PORTS";

private:
    QMap<QString, QString> m_overrides; // upper-case name -> device
};
