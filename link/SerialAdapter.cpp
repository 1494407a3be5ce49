#include "link/SerialAdapter.h"

#include <QDir>
#include <QFileInfo>
#include <QSerialPortInfo>
#include <algorithm>

namespace {
// The kernel's names for USB serial adapters: FTDI, Prolific, CH340 and the like as ttyUSB,
// CDC-ACM devices (many instruments' own USB ports among them) as ttyACM.
bool isUsbSerial(const QString &portName)
{
    return portName.startsWith(QLatin1String("ttyUSB")) || portName.startsWith(QLatin1String("ttyACM"));
}

QString canonical(const QString &path)
{
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? path : resolved;
}
} // namespace

QString SerialAdapter::description() const
{
    QStringList parts;
    const QString name = QStringList{vendor, product}.join(QLatin1Char(' ')).trimmed();
    if (!name.isEmpty())
        parts << name;
    if (!serialNumber.isEmpty())
        parts << QStringLiteral("serial ") + serialNumber;
    return parts.isEmpty() ? QStringLiteral("USB serial adapter") : parts.join(QStringLiteral(", "));
}

bool SerialAdapter::isOpenedBy(const QString &path) const
{
    return !path.isEmpty() && canonical(path) == canonical(device);
}

QList<SerialAdapter> SerialAdapter::present(const QString &byIdFolder)
{
    QList<SerialAdapter> adapters;
    for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts()) {
        if (!isUsbSerial(info.portName()))
            continue;
        adapters.append({info.systemLocation(), linksTo(info.systemLocation(), byIdFolder), info.manufacturer(),
                         info.description(), info.serialNumber()});
    }
    std::sort(adapters.begin(), adapters.end(),
              [](const SerialAdapter &a, const SerialAdapter &b) { return a.device < b.device; });
    return adapters;
}

QStringList SerialAdapter::linksTo(const QString &device, const QString &folder)
{
    QStringList names;
    const QString target = canonical(device);
    const QDir dir(folder);
    for (const QFileInfo &link : dir.entryInfoList(QDir::System | QDir::Files | QDir::NoDotAndDotDot, QDir::Name))
        if (link.isSymLink() && canonical(link.absoluteFilePath()) == target)
            names << link.absoluteFilePath();
    return names;
}
