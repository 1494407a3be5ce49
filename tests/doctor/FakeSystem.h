#pragma once
// A system for the port doctor to read, made in a temporary folder: processes with their open
// files, USB serial adapters in the device tree, a group file, udev's database and the by-id
// folder. Pseudo-terminals stand in for serial ports: they open, take every rate, and can be
// given any owner's mode.
#include "doctor/SystemPaths.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

class FakeSystem {
public:
    FakeSystem()
    {
        paths.proc = path(QStringLiteral("proc"));
        paths.sys = path(QStringLiteral("sys"));
        paths.groupFile = path(QStringLiteral("group"));
        paths.udevData = path(QStringLiteral("udev"));
        paths.byIdFolder = path(QStringLiteral("by-id"));
        for (const QString &folder : {paths.proc, paths.sys + QStringLiteral("/class/tty"), paths.udevData, paths.byIdFolder})
            QDir().mkpath(folder);
    }

    QString path(const QString &name) const { return m_dir.filePath(name); }

    void write(const QString &file, const QByteArray &text) const
    {
        QDir().mkpath(QFileInfo(file).path());
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(text);
    }

    // A process with its open files (descriptor 3 on), and the fdinfo of each.
    void addProcess(qint64 pid, const QByteArray &name, const QStringList &open, const QList<QByteArray> &fdinfo = {}) const
    {
        const QString folder = paths.proc + QLatin1Char('/') + QString::number(pid);
        write(folder + QStringLiteral("/comm"), name + '\n');
        QDir().mkpath(folder + QStringLiteral("/fd"));
        for (int i = 0; i < open.size(); ++i) {
            QFile::link(open[i], folder + QStringLiteral("/fd/%1").arg(i + 3));
            write(folder + QStringLiteral("/fdinfo/%1").arg(i + 3), fdinfo.value(i, "pos:\t0\n"));
        }
    }

    // A USB serial adapter behind the tty, as the kernel's device tree shows one.
    void addUsbTty(const QString &tty, const QByteArray &deviceNumber) const
    {
        const QString usb = paths.sys + QStringLiteral("/devices/pci0000:00/usb1/1-2");
        write(usb + QStringLiteral("/idVendor"), "0403\n");
        write(usb + QStringLiteral("/idProduct"), "6001\n");
        write(usb + QStringLiteral("/manufacturer"), "FTDI\n");
        write(usb + QStringLiteral("/product"), "FT232R USB UART\n");
        write(usb + QStringLiteral("/serial"), "A9XYZ\n");
        QDir().mkpath(usb + QStringLiteral("/1-2:1.0/") + tty);
        const QString entry = paths.sys + QStringLiteral("/class/tty/") + tty;
        write(entry + QStringLiteral("/dev"), deviceNumber + '\n');
        QFile::link(usb + QStringLiteral("/1-2:1.0/") + tty, entry + QStringLiteral("/device"));
    }

    SystemPaths paths;

private:
    QTemporaryDir m_dir;
};

// A pseudo-terminal: the master stays with the test, the terminal is the port.
class PseudoTerminal {
public:
    PseudoTerminal()
    {
        master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0)
            device = QString::fromLocal8Bit(::ptsname(master));
    }
    ~PseudoTerminal()
    {
        if (master >= 0)
            ::close(master);
    }
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    // "5" for /dev/pts/5: its name in the device tree.
    QString number() const { return QFileInfo(device).fileName(); }

    int master = -1;
    QString device;
};
