#include "link/Link.h"

#include "link/LinkTimeouts.h"
#include "link/Protocol.h"
#include "link/Transport.h"

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
    m_outstanding.push_back({frame, m_transport.wireTimeMs(Frame::worstCaseWireBytes(expectedReplyBytes)),
                             m_transport.wireTimeMs(Frame::leastWireBytes(expectedReplyBytes))});
    transmit(m_outstanding.back());
    if (m_outstanding.size() == 1) {
        m_attempts = 1;
        armForOldest();
        m_transport.setAwaitingAnswers(true);
    }
    pauseReading();
    return frame.sequence;
}

double Link::nowMs() const
{
    return double(m_clock.nsecsElapsed()) / 1e6;
}

void Link::transmit(Outstanding &request)
{
    const QByteArray wire = request.frame.encode();
    m_transport.write(wire);
    request.writtenAtMs = nowMs();
    m_wireFreeAtMs = std::max(m_wireFreeAtMs, request.writtenAtMs) + m_transport.wireTimeMs(int(wire.size()));
    request.sentByMs = m_wireFreeAtMs;
}

void Link::armForOldest()
{
    const double queued = std::max(0.0, m_wireFreeAtMs - nowMs());
    m_timer.start(int(std::ceil(queued + m_outstanding.front().replyWireMs)) + int(LinkTimeouts::ReplyMargin.count()));
}

void Link::resendAll()
{
    ++m_attempts;
    for (Outstanding &request : m_outstanding) {
        ++m_retransmissions;
        request.resent = true; // its answer may be to an earlier send
        transmit(request);
    }
    armForOldest();
}

void Link::onBytes(const QByteArray &bytes)
{
    const QPointer<Link> alive(this);
    for (const Frame &frame : m_decoder.feed(bytes)) {
        if (m_outstanding.empty())
            break; // a late duplicate of an answer already taken
        if (frame.type == Protocol::Nak) {
            resendAll(); // it saw a request of ours damaged: send again now
            continue;
        }
        if (!isOutstanding(frame.sequence))
            continue; // the answer to an earlier send of a request already answered
        if (frame.type == Protocol::Busy)
            m_timer.start(int(LinkTimeouts::BusySilence.count()));
        else if (frame.type == Protocol::Reply)
            onReply(frame);
        if (!alive)
            return; // whoever took the answer closed the channel
    }
    pauseReading();
}

void Link::pauseReading()
{
    m_transport.pauseReading(msUntilAnAnswerCanBeWhole());
}

// How long reading can wait without the link waiting for it: for the rest of an answer that
// has begun to arrive (its length is in its header), or, while later requests keep the line
// busy, until the oldest request has left and the least answer to it can be back. A lone
// request's answer is read as it comes, so no run waits for a pause. Noise that starts like a
// frame and busy frames pause nothing.
double Link::msUntilAnAnswerCanBeWhole() const
{
    if (m_lineOutrunsItsRate)
        return 0;
    const double margin = double(LinkTimeouts::ReadPauseMargin.count());
    if (const auto pending = m_decoder.pending())
        return pending->type == Protocol::Reply && isOutstanding(pending->sequence)
                   ? m_transport.wireTimeMs(pending->bytesToCome) + margin
                   : 0;
    if (m_outstanding.size() < 2)
        return 0;
    const Outstanding &oldest = m_outstanding.front();
    return std::max(0.0, oldest.sentByMs + oldest.answerWireMs + margin - nowMs());
}

void Link::checkLineRate(const Outstanding &answered)
{
    // Half the time the request should have needed: room for a line a few percent faster
    // than its nominal rate.
    const double halfway = answered.writtenAtMs + (answered.sentByMs - answered.writtenAtMs) / 2;
    if (!answered.resent && nowMs() < halfway)
        m_lineOutrunsItsRate = true;
}

bool Link::isOutstanding(uint8_t sequence) const
{
    return std::any_of(m_outstanding.begin(), m_outstanding.end(),
                       [&](const Outstanding &o) { return o.frame.sequence == sequence; });
}

void Link::onReply(const Frame &frame)
{
    const auto it = std::find_if(m_outstanding.begin(), m_outstanding.end(),
                                 [&](const Outstanding &o) { return o.frame.sequence == frame.sequence; });
    const bool wasOldest = it == m_outstanding.begin();
    checkLineRate(*it);
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
    m_transport.pauseReading(0); // whatever came is needed now, whole or not
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
    m_transport.pauseReading(0);
    m_transport.setAwaitingAnswers(false);
    emit failed(failure, reason);
}
