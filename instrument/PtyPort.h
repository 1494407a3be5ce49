#pragma once
// The instrument's end of a pseudo-terminal: the host opens the other end (devicePath()) as
// a serial port. Bytes out are paced at the line rate when asked. The instrument keeps the
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
    void onReadable();
    void drain();

    int m_baud;
    int m_master = -1;
    int m_device = -1;
    QString m_devicePath;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QByteArray m_pending;
    QTimer m_pacer;
    QElapsedTimer m_clock;
    double m_credit = 0; // bytes the line could have carried since the last drain
};
