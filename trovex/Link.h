#pragma once
// Stop-and-wait requests over a transport: one request at a time, numbered; a lost or
// damaged answer makes the request go out again with the same number (the instrument then
// answers from its cache instead of acting twice). Busy frames stretch the wait of a long
// operation. After MaxAttempts sends without an answer, or when the transport breaks, the
// request fails with a reason that says what to check.
#include "trovex/Frame.h"
#include "trovex/FrameDecoder.h"

#include <QObject>
#include <QTimer>

class Transport;

class Link : public QObject {
    Q_OBJECT
public:
    enum class Failure { NoAnswer, TransportLost };

    explicit Link(Transport &transport, QObject *parent = nullptr);

    // Sends a request; exactly one of replied or failed follows, from the event loop.
    // expectedReplyBytes sizes the wait for the answer.
    void request(uint8_t type, const QByteArray &payload, int expectedReplyBytes);
    bool busy() const { return m_pending; }
    int retransmissions() const { return m_retransmissions; }
    // Payload bytes of requests answered and of their answers, for rates.
    int64_t payloadBytes() const { return m_payloadBytes; }

signals:
    void replied(const QByteArray &payload);
    void failed(Link::Failure failure, const QString &reason);

private:
    void onBytes(const QByteArray &bytes);
    void onTimeout();
    void send();
    void finish();

    Transport &m_transport;
    FrameDecoder m_decoder;
    QTimer m_timer;
    Frame m_frame;
    uint8_t m_nextSequence = 1;
    bool m_pending = false;
    int m_attempts = 0;
    int m_replyWaitMs = 0;
    int m_retransmissions = 0;
    int64_t m_payloadBytes = 0;
};
