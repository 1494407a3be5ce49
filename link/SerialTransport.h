#pragma once
// The instrument on a serial line: 8 data bits, even parity, 1 stop bit at the given rate.
#include "link/Transport.h"

#include <QPointer>
#include <QSerialPort>
#include <QSocketNotifier>
#include <QTimer>

class SerialTransport : public Transport {
    Q_OBJECT
public:
    SerialTransport(const QString &device, int baud, QObject *parent = nullptr);
    bool open(QString *error) override;
    void write(const QByteArray &bytes) override;
    void close() override;
    double wireTimeMs(int count) const override;
    void pauseReading(double ms) override;

    // A start bit, 8 data bits, the parity bit and a stop bit.
    static constexpr int BitsPerByte = 11;

private:
    QSocketNotifier *readNotifier() const;
    void resumeReading();
    void onError(QSerialPort::SerialPortError error);

    QSerialPort m_port;
    QPointer<QSocketNotifier> m_readNotifier; // the port's own; it goes when the port closes
    QTimer m_pauseTimer;
    QString m_device;
    int m_baud;
};
