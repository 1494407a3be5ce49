#pragma once
// A USB serial adapter present on this computer (a ttyUSB or ttyACM device) and what a
// person recognises it by: its stable names in /dev/serial/by-id, the vendor's and the
// product's names and the serial number, as QSerialPortInfo and udev report them.
#include <QList>
#include <QString>
#include <QStringList>

struct SerialAdapter {
    QString device;        // e.g. /dev/ttyUSB0
    QStringList byIdNames; // the links to it in the by-id folder
    QString vendor;
    QString product;
    QString serialNumber;

    // "FTDI FT232R USB UART, serial A9XYZ", from the parts that are known.
    QString description() const;
    // device itself, or a link that leads to it (a by-id name).
    bool isOpenedBy(const QString &path) const;

    static constexpr const char *ByIdFolder = "/dev/serial/by-id";
    // The adapters present, in the order of their device names.
    static QList<SerialAdapter> present(const QString &byIdFolder = QLatin1String(ByIdFolder));
    // The paths of the links in folder that lead to device.
    static QStringList linksTo(const QString &device, const QString &folder);
};
