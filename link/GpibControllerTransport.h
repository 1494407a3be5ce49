#pragma once
// The instrument on a GPIB bus behind a controller that speaks the "++" command protocol,
// reached over a USB serial device or TCP. The controller is made bus controller and pointed
// at the instrument's address once; frames go to the instrument as escaped data lines (CR,
// LF, ESC and "+" each get an ESC before them) ended with EOI. An instrument on GPIB talks
// only when addressed, so while the link waits for answers the transport asks it to talk
// ("++read eoi"), over and over: each time the instrument sends what it has, or an empty
// frame (two END bytes) when it has nothing, always ending with EOI on an END byte.
//
// The controller carries out what it is sent in order, so a read asked behind a request
// waits until the request has gone. The controller is asked to mark the end of each
// message it reads (++eot_enable); once its first mark shows that it does, a read goes
// behind every request written while answers are awaited (up to
// LinkTimeouts::Gpib::MostReadsAsked), and the marks tell where each read's answer ends.
// A controller that leaves the mark out gets one read at a time, whose answer ends with
// the END byte that closes its last frame.
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
    // Hands the frames on without the controller's marks, and asks for more when the
    // reads asked have ended.
    void takeMessageBytes(const QByteArray &bytes);
    // Whether the message that just ended brought more than an empty frame.
    bool messageEnded();
    void askAgain(bool lastHadSomething);
    bool mayAskToTalk() const;
    void askToTalk();
    void noteReadAsked();
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
    bool m_controllerMarksEnds = false; // learned from its first mark
    int m_readsAsked = 0;               // of the controller, and not ended yet
    bool m_insideFrame = false;
    int m_messageBytes = 0; // of the message being read, without the mark
    bool m_everAnswered = false;
};
