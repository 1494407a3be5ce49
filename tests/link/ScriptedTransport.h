#pragma once
// A transport that records what is written and delivers what the test says.
#include "link/Transport.h"

#include <QList>

class ScriptedTransport : public Transport {
    Q_OBJECT
public:
    QList<QByteArray> written;
    QList<double> pauses; // the link's pauses in reading, in order
    double msPerByte = 0;  // wire time: none unless a test needs it
    bool open(QString *) override { return true; }
    void write(const QByteArray &bytes) override { written << bytes; }
    void close() override {}
    double wireTimeMs(int count) const override { return count * msPerByte; }
    void pauseReading(double ms) override { pauses << ms; }
    void deliver(const QByteArray &bytes) { emit received(bytes); }
    void breakDown() { emit failed(QStringLiteral("the serial port went away")); }
};
