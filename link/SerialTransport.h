#pragma once
// The instrument on a serial line: 8 data bits, even parity, 1 stop bit, no flow control, at
// the given rate (SerialDevice). The transport owns the tty's descriptor: it writes what the
// driver takes at once and the rest as the driver makes room, and watches the line with
// notifiers of its own, so that it can stop watching while the link needs nothing from it
// (pauseReading). Its rate can be changed on the open port (setLineRate). A hang-up or an
// I/O error means the port went away.
#include "link/Transport.h"

#include <QSocketNotifier>
#include <QTimer>

class SerialTransport : public Transport {
    Q_OBJECT
public:
    SerialTransport(const QString &device, int baud, QObject *parent = nullptr);
    ~SerialTransport() override;

    void open() override;
    void write(const QByteArray &bytes) override;
    void close() override;
    double wireTimeMs(int count) const override;
    void pauseReading(double ms) override;
    int lineRate() const override { return m_baud; }
    bool takesRate(int baud) override;
    bool setLineRate(int baud) override;

    // A start bit, 8 data bits, the parity bit and a stop bit.
    static constexpr int BitsPerByte = 11;

private:
    void onReadable();
    void onWritable();
    // Hands bytes to the driver; the count it took, or -1 when the port is gone.
    qsizetype writeNow(const char *bytes, qsizetype count);
    void resumeReading();
    void lost();

    QString m_device;
    int m_baud;
    int m_descriptor = -1;
    QSocketNotifier m_reader{QSocketNotifier::Read};
    QSocketNotifier m_writer{QSocketNotifier::Write};
    QByteArray m_unwritten; // written by the link, not taken by the driver yet
    QTimer m_pauseTimer;
};
