#pragma once
// The instrument on a GPIB bus behind a controller that speaks the "++" command protocol,
// reached over a USB serial device or TCP. The controller is made bus controller and pointed
// at the instrument's address once; frames go to the instrument as escaped data lines (CR,
// LF, ESC and "+" each get an ESC before them) ended with EOI. An instrument on GPIB talks
// only when addressed, so while the link waits for answers the transport asks it to talk
// ("++read eoi"), over and over: each time the instrument sends what it has, or an empty
// frame (two END bytes) when it has nothing, always ending with EOI on an END byte.
//
// Opening connects (over TCP, bounded by LinkTimeouts::Gpib::Connect), sets the controller up and
// waits for its answer to ++ver (bounded by LinkTimeouts::Gpib::ControllerAnswer), all on the event
// loop.
#include "link/GpibTarget.h"
#include "link/Transport.h"

#include <QIODevice>
#include <QTimer>
#include <memory>

class GpibControllerTransport : public Transport {
    Q_OBJECT
public:
    explicit GpibControllerTransport(const GpibTarget &target, QObject *parent = nullptr);
    ~GpibControllerTransport() override;

    void open() override;
    void write(const QByteArray &bytes) override;
    void close() override;
    double wireTimeMs(int count) const override;
    void setAwaitingAnswers(bool awaiting) override;
    QString silenceReason(int attempts) const override;

    static QByteArray escaped(const QByteArray &data);

private:
    enum class State { Closed, Connecting, SettingUp, Open };

    void openSerial();
    void connectTcp();
    // Sends the set-up commands; the controller's version line ends the opening.
    void setUpController();
    void onOpeningTimeout();
    void failOpening(const QString &reason);
    void onReadable();
    void takeMessageBytes(const QByteArray &bytes);
    void askToTalk();
    void onReadTimeout();
    void lost(const QString &reason);

    GpibTarget m_target;
    State m_state = State::Closed;
    std::unique_ptr<QIODevice> m_device; // closed, not deleted, until the next open: it may be
                                         // closed inside one of its own signals
    QTimer m_openingTimeout;
    QTimer m_readTimeout; // no talker answered a read: the controller gives up silently
    QTimer m_nextPoll;
    QByteArray m_setUpAnswer;
    bool m_awaiting = false;
    bool m_reading = false;
    bool m_insideFrame = false;
    int m_messageBytes = 0;
    bool m_everAnswered = false;
};
