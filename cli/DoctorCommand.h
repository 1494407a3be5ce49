#pragma once
// varnolt-cli doctor [PORT...] [--loopback]: why each port does not work, with the command that
// fixes it; with --loopback (TX bridged to RX) also a byte test at each rate the port takes.
// It changes nothing. Exit status 0 when nothing was found, 1 otherwise, 2 for bad usage.
#include <QStringList>

namespace DoctorCommand {
// arguments: those after "doctor".
int run(const QStringList &arguments);
}
