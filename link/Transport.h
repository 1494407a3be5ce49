#pragma once
// A byte pipe to the instrument: a serial port, or a GPIB controller or board. The link
// above frames, checks and retransmits; a transport only opens, moves bytes and says when it
// breaks.
//
// A transport never reports anything from inside a call made to it: opened, received and
// failed always come from the event loop. Whoever calls open() or write() may hold what it
// likes across the call, and cannot miss a report by starting to wait for it too late.
#include <QByteArray>
#include <QObject>
#include <QString>
#include <functional>

class Transport : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    // Starts opening: exactly one of opened or failed (with a reason that says what to
    // check) follows.
    virtual void open() = 0;
    virtual void write(const QByteArray &bytes) = 0;
    // Closes at once; nothing is reported after it, not even what was already posted.
    virtual void close() = 0;
    // Milliseconds that count bytes take on the wire.
    virtual double wireTimeMs(int count) const = 0;
    // Whether answers are expected now: a bus where the instrument talks only when asked
    // (GPIB) asks while they are; a serial line always listens.
    virtual void setAwaitingAnswers(bool) {}
    // Nothing is needed from the line for this many milliseconds: a transport may stop
    // watching it that long and then hand over all that came in one piece, instead of waking
    // the program for every piece the line delivers. 0 watches again at once.
    virtual void pauseReading(double) {}
    // The line's rate in baud; 0 where the rate is not this program's to set (a GPIB controller
    // keeps its own).
    virtual int lineRate() const { return 0; }
    // Whether the port takes baud: tried on the open port and put back at once. Only while
    // nothing is on the way.
    virtual bool takesRate(int) { return false; }
    // Moves the line to baud once what was written has left; false, with the rate as it was,
    // when the port refuses it. Only while nothing is on the way.
    virtual bool setLineRate(int) { return false; }
    // What to check when the instrument stopped answering, after attempts sends.
    virtual QString silenceReason(int attempts) const;

signals:
    void opened();
    void received(const QByteArray &bytes);
    // Opening failed, or the transport broke while open (adapter unplugged, controller gone).
    void failed(const QString &reason);

protected:
    // Emit opened or failed from the event loop, unless close() comes first.
    void reportOpened();
    void reportFailed(const QString &reason);
    // Forgets the reports posted so far; every close() calls it.
    void dropReports() { ++m_reports; }

private:
    void post(const std::function<void()> &report);

    quint64 m_reports = 0; // counts closes, so a report knows whether it is still wanted
};
