#pragma once
// The instrument's end of a pseudo-terminal: the host opens the other end (devicePath()) as
// a serial port. When paced, bytes move at the line rate in both directions, as on a real
// serial line: the host's bytes reach the instrument no faster than the line carries them.
// On a serial line both ends must agree on the rate, as UARTs must: the host's is the rate it
// set on its end, the instrument's the one it was last given (setLineRate), and every byte
// sent at a rate the other end does not listen at arrives as a 00 (what a UART makes of a
// start bit of another length). A line to a GPIB controller moves at the controller's rate.
// The instrument keeps the device end open itself, so a host that closes and opens the port
// again finds it working.
#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <deque>
#include <memory>
#include <optional>

class PtyPort : public QObject {
    Q_OBJECT
public:
    enum class Line { Serial, GpibController };

    // baud: the line's rate to start with, bit times a second (11 per byte).
    PtyPort(Line line, int baud, bool paced, QObject *parent = nullptr);
    ~PtyPort() override;

    // False with a reason.
    bool open(QString *error);
    QString devicePath() const { return m_devicePath; }
    void write(const QByteArray &bytes);
    // The instrument's rate for what it writes from now on, and for what it hears once what it
    // wrote before has left.
    void setLineRate(int baud);
    // Closes both ends: the host sees its port vanish.
    void vanish();

signals:
    void received(const QByteArray &bytes);

private:
    // Bytes and the rate they were sent at.
    struct Piece {
        QByteArray bytes;
        int baud;
    };
    // Bytes waiting for the line in one direction, released at the rate each was sent at.
    struct Direction {
        std::deque<Piece> pending;
        QElapsedTimer clock;
        double creditSeconds = 0; // line time since the last release, not used yet
        // How many of the pending bytes the line has carried by now (all when unpaced).
        qsizetype due(bool paced);
        // The first count bytes, each as a receiver listening at listeningBaud hears it.
        QByteArray front(qsizetype count, int listeningBaud, bool ratesMatter) const;
        void drop(qsizetype count);
        void add(const QByteArray &bytes, int baud);
        bool isEmpty() const { return pending.empty(); }
    };

    void onReadable();
    void pump();
    // The host's bytes that the line has carried by now, to the instrument.
    void deliver();
    // The instrument's bytes that the line has carried by now, to the host.
    void send();
    void keepPacing();
    // The rate the host set on its end.
    int hostRate() const;

    Line m_line;
    int m_baud;                    // the instrument's
    std::optional<int> m_nextBaud; // once what it wrote has left
    bool m_paced;
    int m_master = -1;
    int m_device = -1;
    QString m_devicePath;
    std::unique_ptr<QSocketNotifier> m_notifier;
    Direction m_out, m_in;
    QTimer m_pacer;
};
