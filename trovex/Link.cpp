#include "trovex/Link.h"

#include "trovex/LinkTimeouts.h"
#include "trovex/Protocol.h"
#include "trovex/Transport.h"

#include <cmath>

Link::Link(Transport &transport, QObject *parent) : QObject(parent), m_transport(transport)
{
    m_timer.setSingleShot(true);
    connect(&m_transport, &Transport::received, this, &Link::onBytes);
    connect(&m_transport, &Transport::failed, this, [this](const QString &reason) {
        if (!m_pending)
            return;
        finish();
        emit failed(Failure::TransportLost, reason);
    });
    connect(&m_timer, &QTimer::timeout, this, &Link::onTimeout);
}

void Link::request(uint8_t type, const QByteArray &payload, int expectedReplyBytes)
{
    m_frame = Frame{m_nextSequence, type, payload};
    m_pending = true;
    m_attempts = 0;
    const double wire = m_transport.wireTimeMs(Frame::worstCaseWireBytes(int(payload.size())))
                        + m_transport.wireTimeMs(Frame::worstCaseWireBytes(expectedReplyBytes));
    m_replyWaitMs = int(std::ceil(wire)) + int(LinkTimeouts::ReplyMargin.count());
    send();
}

void Link::send()
{
    ++m_attempts;
    if (m_attempts > 1)
        ++m_retransmissions;
    m_transport.write(m_frame.encode());
    m_timer.start(m_replyWaitMs);
}

void Link::finish()
{
    m_timer.stop();
    m_pending = false;
}

void Link::onBytes(const QByteArray &bytes)
{
    for (const Frame &frame : m_decoder.feed(bytes)) {
        if (!m_pending)
            continue; // a late duplicate of an answer already taken
        if (frame.type == Protocol::Nak) {
            onTimeout(); // it saw our request damaged: send again now
        } else if (frame.sequence != m_frame.sequence) {
            continue; // the answer to an earlier send of an earlier request
        } else if (frame.type == Protocol::Busy) {
            m_timer.start(int(LinkTimeouts::BusySilence.count()));
        } else if (frame.type == Protocol::Reply) {
            finish();
            m_payloadBytes += m_frame.payload.size() + frame.payload.size();
            m_nextSequence = uint8_t(m_nextSequence + 1);
            if (m_nextSequence == 0)
                m_nextSequence = 1; // 0 is never used, so a fresh instrument cache never matches
            emit replied(frame.payload);
            return; // one answer per request; bytes after it belong to nobody
        }
    }
}

void Link::onTimeout()
{
    if (!m_pending)
        return;
    if (m_attempts < LinkTimeouts::MaxAttempts) {
        send();
        return;
    }
    finish();
    emit failed(Failure::NoAnswer,
                QStringLiteral("the instrument did not answer after %1 attempts; check the cable, that the instrument "
                               "is switched on and waiting for the update, and the port")
                    .arg(LinkTimeouts::MaxAttempts));
}
