#pragma once
// Opening and setting up a serial device with the system's own calls, for a transport that
// then owns the descriptor: opened non-blocking for this program alone, raw, 8 data bits, even
// parity, 1 stop bit, no flow control, at one of the rates the system names.
#include <QList>
#include <QString>

namespace SerialDevice {
// The open descriptor, or -1 with a reason that says what to check.
int open(const QString &device, int baud, QString *error);
// Moves the open device to baud once what was written has left; "" or why its driver refuses
// the rate, which it then keeps as it was.
QString setRate(int descriptor, int baud);
// Whether the open device takes baud: set, read back and put back as it was.
bool takesRate(int descriptor, int baud);
// The rate the device is set to; 0 when it is none the system names.
int rateOf(int descriptor);
// Every rate the system names, from the lowest to the highest.
QList<int> rates();
// Gives the device back to other programs and closes the descriptor.
void close(int descriptor);
}
