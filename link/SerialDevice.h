#pragma once
// Opening and setting up a serial device with the system's own calls, for a transport that
// then owns the descriptor: opened non-blocking for this program alone, raw, 8 data bits, even
// parity, 1 stop bit, no flow control, at one of the rates the system names.
#include <QList>
#include <QString>

namespace SerialDevice {
// The open descriptor, or -1 with a reason that says what to check.
int open(const QString &device, int baud, QString *error);
// Whether the open device takes baud: set, read back and put back as it was.
bool takesRate(int descriptor, int baud);
// Every rate the system names, from the lowest to the highest.
QList<int> rates();
// Gives the device back to other programs and closes the descriptor.
void close(int descriptor);
}
