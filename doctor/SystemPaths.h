#pragma once
// Where the port doctor reads the system: the process table, the kernel's device tree, the
// group file, udev's database and the stable names of USB serial adapters. Tests point them
// at trees of their own.
#include <QString>

struct SystemPaths {
    QString proc = QStringLiteral("/proc");
    QString sys = QStringLiteral("/sys");
    QString groupFile = QStringLiteral("/etc/group");
    QString udevData = QStringLiteral("/run/udev/data");
    QString byIdFolder = QStringLiteral("/dev/serial/by-id");
};
