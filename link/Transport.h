#pragma once
// A byte pipe to the instrument: a serial port today, a GPIB controller later. The link
// layer above frames, checks and retransmits; a transport only moves bytes and says when
// it breaks.
#include <QByteArray>
#include <QObject>
#include <QString>

class Transport : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    // False with a reason that says what to check.
    virtual bool open(QString *error) = 0;
    virtual void write(const QByteArray &bytes) = 0;
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
    // What to check when the instrument stopped answering, after attempts sends.
    virtual QString silenceReason(int attempts) const
    {
        return QStringLiteral("the instrument did not answer after %1 attempts; check the cable, that the instrument is "
                              "switched on and waiting for the update, and the port")
            .arg(attempts);
    }

signals:
    void received(const QByteArray &bytes);
    // The transport broke while open (adapter unplugged, controller gone).
    void failed(const QString &reason);
};
