#include "trovex/Link.h"

#include "trovex/LinkTimeouts.h"
#include "trovex/Protocol.h"
#include "trovex/Transport.h"

#include <QPointer>
#include <QRandomGenerator>
#include <algorithm>
#include <cmath>

Link::Link(Transport &transport, QObject *parent)
    : QObject(parent), m_transport(transport), m_nextSequence(uint8_t(QRandomGenerator::global()->bounded(1, 256)))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_clock.start();
    connect(&m_transport, &Transport::received, this, &Link::onBytes);
    connect(&m_transport, &Transport::failed, this, [this](const QString &reason) {
        if (!m_outstanding.empty())
            fail(Failure::TransportLost, reason);
    });
    connect(&m_timer, &QTimer::timeout, this, &Link::onTimeout);
}

uint8_t Link::request(uint8_t type, const QByteArray &payload, int expectedReplyBytes)
{
    const Frame frame{m_nextSequence, type, payload};
    m_nextSequence = uint8_t(m_nextSequence + 1);
    if (m_nextSequence == 0)
        m_nextSequence = 1; // 0 is never used: it marks frames that answer no request
    m_outstanding.push_back({frame, m_transport.wireTimeMs(Frame::worstCaseWireBytes(expectedReplyBytes))});
    transmit(frame);
    if (m_outstanding.size() == 1) {
        m_attempts = 1;
        armForOldest();
        m_transport.setAwaitingAnswers(true);
    }
    return frame.sequence;
}

void Link::transmit(const Frame &frame)
{
    const QByteArray wire = frame.encode();
    m_transport.write(wire);
    const double now = double(m_clock.nsecsElapsed()) / 1e6;
    m_wireFreeAtMs = std::max(m_wireFreeAtMs, now) + m_transport.wireTimeMs(int(wire.size()));
}

void Link::armForOldest()
{
    const double now = double(m_clock.nsecsElapsed()) / 1e6;
    const double queued = std::max(0.0, m_wireFreeAtMs - now);
    m_timer.start(int(std::ceil(queued + m_outstanding.front().replyWireMs)) + int(LinkTimeouts::ReplyMargin.count()));
}

void Link::resendAll()
{
    ++m_attempts;
    for (const Outstanding &request : m_outstanding) {
        ++m_retransmissions;
        transmit(request.frame);
    }
    armForOldest();
}

void Link::onBytes(const QByteArray &bytes)
{
    const QPointer<Link> alive(this);
    for (const Frame &frame : m_decoder.feed(bytes)) {
        if (m_outstanding.empty())
            return; // a late duplicate of an answer already taken
        if (frame.type == Protocol::Nak) {
            resendAll(); // it saw a request of ours damaged: send again now
            continue;
        }
        const auto isFor = [&](const Outstanding &o) { return o.frame.sequence == frame.sequence; };
        if (std::none_of(m_outstanding.begin(), m_outstanding.end(), isFor))
            continue; // the answer to an earlier send of a request already answered
        if (frame.type == Protocol::Busy)
            m_timer.start(int(LinkTimeouts::BusySilence.count()));
        else if (frame.type == Protocol::Reply)
            onReply(frame);
        if (!alive)
            return; // whoever took the answer closed the channel
    }
}

void Link::onReply(const Frame &frame)
{
    const auto it = std::find_if(m_outstanding.begin(), m_outstanding.end(),
                                 [&](const Outstanding &o) { return o.frame.sequence == frame.sequence; });
    const bool wasOldest = it == m_outstanding.begin();
    m_payloadBytes += it->frame.payload.size() + frame.payload.size();
    m_outstanding.erase(it);
    if (m_outstanding.empty()) {
        m_timer.stop();
        m_transport.setAwaitingAnswers(false);
    } else if (wasOldest) {
        m_attempts = 1;
        armForOldest();
    } // else the oldest's answer is still missing and its wait runs on
    emit replied(frame.sequence, frame.payload);
}

void Link::onTimeout()
{
    if (m_outstanding.empty())
        return;
    if (m_attempts < LinkTimeouts::MaxAttempts) {
        resendAll();
        return;
    }
    fail(Failure::NoAnswer, m_transport.silenceReason(LinkTimeouts::MaxAttempts));
}

void Link::fail(Failure failure, const QString &reason)
{
    m_timer.stop();
    m_outstanding.clear();
    m_transport.setAwaitingAnswers(false);
    emit failed(failure, reason);
}
