#include "doctor/TtySysfs.h"

#include <QDir>
#include <QFile>

namespace {
QString readValue(const QDir &dir, const QString &name)
{
    QFile file(dir.filePath(name));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
}
} // namespace

TtySysfs::TtySysfs(const QString &sysRoot) : m_root(sysRoot)
{
}

std::optional<UsbIdentity> TtySysfs::usbIdentity(const QString &ttyName) const
{
    // The tty's device is a USB interface (ttyACM) or a port below one (ttyUSB); the USB
    // device that carries the numbers and names is an ancestor.
    const QString top = QDir(m_root).canonicalPath();
    QString path = QDir(m_root + QStringLiteral("/class/tty/") + ttyName + QStringLiteral("/device")).canonicalPath();
    while (!path.isEmpty() && path.startsWith(top) && path != top) {
        const QDir dir(path);
        if (dir.exists(QStringLiteral("idVendor")))
            return UsbIdentity{readValue(dir, QStringLiteral("idVendor")), readValue(dir, QStringLiteral("idProduct")),
                               readValue(dir, QStringLiteral("manufacturer")), readValue(dir, QStringLiteral("product")),
                               readValue(dir, QStringLiteral("serial"))};
        path = path.left(path.lastIndexOf(QLatin1Char('/')));
    }
    return std::nullopt;
}

QString TtySysfs::deviceNumber(const QString &ttyName) const
{
    return readValue(QDir(m_root + QStringLiteral("/class/tty/") + ttyName), QStringLiteral("dev"));
}

QStringList TtySysfs::usbTtys() const
{
    return QDir(m_root + QStringLiteral("/class/tty"))
        .entryList({QStringLiteral("ttyUSB*"), QStringLiteral("ttyACM*")}, QDir::Dirs | QDir::System | QDir::NoDotAndDotDot,
                   QDir::Name);
}
