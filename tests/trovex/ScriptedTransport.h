#pragma once
// A transport that records what is written and delivers what the test says.
#include "trovex/Transport.h"

#include <QList>

class ScriptedTransport : public Transport {
    Q_OBJECT
public:
    QList<QByteArray> written;
    bool open(QString *) override { return true; }
    void write(const QByteArray &bytes) override { written << bytes; }
    void close() override {}
    double wireTimeMs(int) const override { return 0; }
    void deliver(const QByteArray &bytes) { emit received(bytes); }
    void breakDown() { emit failed(QStringLiteral("the serial port went away")); }
};
