#pragma once
// The instrument's end of a pseudo-terminal: the host opens the other end (devicePath()) as
// a serial port. When paced, bytes move at the line rate in both directions, as on a real
// serial line: the host's bytes reach the instrument no faster than the line carries them. The instrument keeps the
// device end open itself, so a host that closes and opens the port again finds it working.
#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <memory>

class PtyPort : public QObject {
    Q_OBJECT
public:
    // baud 0: no pacing.
    explicit PtyPort(int baud, QObject *parent = nullptr);
    ~PtyPort() override;

    // False with a reason.
    bool open(QString *error);
    QString devicePath() const { return m_devicePath; }
    void write(const QByteArray &bytes);
    // Closes both ends: the host sees its port vanish.
    void vanish();

signals:
    void received(const QByteArray &bytes);

private:
    // Bytes waiting for the line in one direction, released at the line rate.
    struct Direction {
        QByteArray pending;
        QElapsedTimer clock;
        double credit = 0; // bytes the line could have carried since the last release
        // How many of the pending bytes the line has carried by now (all when unpaced).
        qsizetype due(int baud);
    };

    void onReadable();
    void pump();
    // The host's bytes that the line has carried by now, to the instrument.
    void deliver();
    // The instrument's bytes that the line has carried by now, to the host.
    void send();
    void keepPacing();

    int m_baud;
    int m_master = -1;
    int m_device = -1;
    QString m_devicePath;
    std::unique_ptr<QSocketNotifier> m_notifier;
    Direction m_out, m_in;
    QTimer m_pacer;
};
