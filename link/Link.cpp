#include "link/Link.h"

#include "link/Protocol.h"
#include "link/Transport.h"

#include <QPointer>
#include <QRandomGenerator>
#include <QScopedValueRollback>
#include <algorithm>
#include <cmath>
#include <utility>

Link::Link(Transport &transport, std::chrono::milliseconds longestOperation, QObject *parent)
    : QObject(parent), m_transport(transport), m_longestOperationMs(double(longestOperation.count())),
      m_nextSequence(uint8_t(QRandomGenerator::global()->bounded(1, 256)))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_clock.start();
    connect(&m_transport, &Transport::received, this, [this](const QByteArray &bytes) { take([this, bytes] { onBytes(bytes); }); });
    connect(&m_transport, &Transport::failed, this,
            [this](const QString &reason) { take([this, reason] { onTransportFailed(reason); }); });
    connect(&m_timer, &QTimer::timeout, this, &Link::onTimeout);
    m_damageTimer.setSingleShot(true);
    m_damageTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_damageTimer, &QTimer::timeout, this, &Link::resendDamagedAnswers);
}

// At once, as it comes: a transport that asks for more right after it has handed over bytes
// (the GPIB controller asking the instrument to talk again) must find the link up to date.
void Link::take(const std::function<void()> &report)
{
    if (!m_callingTransport && m_reportsWaiting == 0) {
        report();
        return;
    }
    ++m_reportsWaiting;
    QMetaObject::invokeMethod(
        this,
        [this, report] {
            --m_reportsWaiting;
            report();
        },
        Qt::QueuedConnection);
}

template <typename Call>
void Link::callTransport(Call &&call)
{
    const QScopedValueRollback<bool> inside(m_callingTransport, true);
    call(m_transport);
}

uint8_t Link::request(uint8_t type, const QByteArray &payload, int expectedReplyBytes)
{
    const Frame frame{m_nextSequence, type, payload};
    m_nextSequence = uint8_t(m_nextSequence + 1);
    if (m_nextSequence == 0)
        m_nextSequence = 1; // 0 is never used: it marks frames that answer no request
    m_outstanding.push_back({frame, m_transport.wireTimeMs(Frame::worstCaseWireBytes(expectedReplyBytes)),
                             m_transport.wireTimeMs(Frame::leastWireBytes(expectedReplyBytes))});
    if (m_lost) { // the transport broke while nothing was on the way: say so now, with its cause
        QMetaObject::invokeMethod(this, &Link::failForLostTransport, Qt::QueuedConnection);
        return frame.sequence;
    }
    transmit(m_outstanding.back());
    m_outstanding.back().firstWrite = m_writes;
    if (m_outstanding.size() == 1) {
        armForOldest();
        callTransport([](Transport &transport) { transport.setAwaitingAnswers(true); });
    }
    pauseReading();
    return frame.sequence;
}

bool Link::hasRoom() const
{
    if (m_outstanding.empty())
        return true;
    // Numbers run 1..255, so distances between them count modulo 255.
    const int ahead = (int(m_nextSequence) - int(m_outstanding.front().frame.sequence) + 255) % 255;
    if (ahead >= KeptAnswers)
        return false;
    if (outstanding() < Window)
        return true;
    int behindOldest = 0;
    for (auto request = std::next(m_outstanding.begin()); request != m_outstanding.end(); ++request)
        behindOldest += request->wireBytes;
    return behindOldest + Frame::worstCaseWireBytes(Frame::MaxPayload) <= m_receiveBuffer;
}

double Link::nowMs() const
{
    return double(m_clock.nsecsElapsed()) / 1e6;
}

void Link::transmit(Outstanding &request)
{
    const QByteArray wire = request.frame.encode();
    callTransport([&](Transport &transport) { transport.write(wire); });
    request.writtenAtMs = nowMs();
    request.wireBytes = int(wire.size());
    request.wireMs = m_transport.wireTimeMs(request.wireBytes);
    m_wireFreeAtMs = std::max(m_wireFreeAtMs, request.writtenAtMs) + request.wireMs;
    request.sentByMs = m_wireFreeAtMs;
    ++request.sends;
    request.lastWrite = ++m_writes;
    m_recentWrites.push_back(request.frame.sequence);
    if (m_recentWrites.size() > size_t(RecentWrites))
        m_recentWrites.pop_front();
    m_frameSize.carried(int(wire.size()));
}

// The estimates above assume the line moves at its nominal rate. One that is faster (a USB
// device posing as a serial port, a pseudo-terminal without pacing) answers long before them,
// and estimates that only grow would run further ahead with every block. An answer to a
// request sent once proves that everything up to its end has left: what was written after it
// leaves at most its own wire time later.
void Link::pullInEstimates(Iterator answered)
{
    if (answered->resent)
        return; // the answer may be to an earlier send, with the later one still queued
    double freeAtMs = nowMs();
    for (auto later = std::next(answered); later != m_outstanding.end(); ++later) {
        freeAtMs += later->wireMs;
        later->sentByMs = std::min(later->sentByMs, freeAtMs);
    }
    m_wireFreeAtMs = std::min(m_wireFreeAtMs, freeAtMs);
}

void Link::armForOldest()
{
    const Outstanding &oldest = m_outstanding.front();
    const double waitMs = std::max(0.0, oldest.sentByMs - nowMs()) + oldest.replyWireMs
                          + double(LinkTimeouts::ReplyMargin.count());
    const auto longestMs = double(std::chrono::milliseconds(LinkTimeouts::LongestReplyWait).count());
    m_timer.start(int(std::ceil(std::min(waitMs, longestMs))));
    m_busySinceMs.reset();
}

void Link::resendAll()
{
    for (Outstanding &request : m_outstanding)
        if (!resend(request))
            return;
    armForOldest();
}

bool Link::resend(Outstanding &request)
{
    if (request.sends >= LinkTimeouts::MostSendsOfOneRequest) {
        fail(Failure::NoAnswer, QStringLiteral("the line damaged %1 sends of one request; check the cable and its plugs, "
                                               "and keep it short and away from motors and mains cables")
                                    .arg(request.sends));
        return false;
    }
    ++m_retransmissions;
    request.resent = true; // its answer may be to an earlier send
    transmit(request);
    return true;
}

bool Link::resendDamaged(uint8_t intact, int damaged)
{
    const auto named = std::find(m_recentWrites.rbegin(), m_recentWrites.rend(), intact);
    if (intact == 0 || named == m_recentWrites.rend())
        return false;
    const uint64_t namedWrite = m_writes - uint64_t(named - m_recentWrites.rbegin());
    if (namedWrite == m_writes) {
        // Nothing went after it: the damaged frame was this very send, sent again after an
        // earlier one had arrived intact, or noise on a quiet line. Unanswered, it goes again
        // (the instrument answers it from what it kept, or ignores it while it works on it).
        const auto last = std::find_if(m_outstanding.begin(), m_outstanding.end(),
                                       [&](const Outstanding &o) { return o.lastWrite == m_writes; });
        if (last != m_outstanding.end() && !m_busySinceMs && resend(*last) && last == m_outstanding.begin())
            armForOldest();
        return true;
    }
    for (uint64_t write = namedWrite + 1; write <= std::min(m_writes, namedWrite + uint64_t(damaged)); ++write) {
        const auto lost = std::find_if(m_outstanding.begin(), m_outstanding.end(),
                                       [&](const Outstanding &o) { return o.lastWrite == write; });
        if (lost == m_outstanding.end())
            continue; // answered, or sent again since
        const bool oldest = lost == m_outstanding.begin();
        if (!resend(*lost))
            return true;
        if (oldest)
            armForOldest();
    }
    return true;
}

bool Link::resendShownLost(const Outstanding &answered, int damaged)
{
    // In the order of their first sends, so those first sent after the answered one's last send
    // end the search.
    for (auto it = m_outstanding.begin(); it != m_outstanding.end() && it->firstWrite < answered.lastWrite; ++it) {
        if (it->lastWrite > answered.lastWrite)
            continue; // sent again after it: that send may still be on its way
        if (it->lastWrite > answered.firstWrite && damaged == 0)
            continue; // its answer may still come behind this one, which an earlier send drew
        damaged = std::max(0, damaged - 1);
        if (!resend(*it))
            return false;
        if (it == m_outstanding.begin())
            armForOldest();
    }
    return true;
}

void Link::onBytes(const QByteArray &bytes)
{
    const QPointer<Link> alive(this);
    m_frameSize.carried(int(bytes.size()));
    // Up to one END at a time, so that a damaged frame is known in its place among the others.
    for (qsizetype from = 0; from < bytes.size();) {
        const qsizetype end = bytes.indexOf(char(Frame::End), from);
        const qsizetype to = end < 0 ? bytes.size() : end + 1;
        const int damagedBefore = m_decoder.corruptFrames();
        const QList<Frame> frames = m_decoder.feed(bytes.sliced(from, to - from));
        from = to;
        if (m_decoder.corruptFrames() > damagedBefore)
            onDamagedFrame();
        for (const Frame &frame : frames) {
            m_silentWaits = 0; // the instrument is there
            if (m_outstanding.empty())
                continue; // a late duplicate of an answer already taken
            onFrame(frame);
            if (!alive)
                return; // whoever took the answer or the failure closed the channel
        }
    }
    pauseReading();
}

// Answers come in the order of their requests, so a damaged frame that no answer follows was
// most likely the answer to the oldest request still unanswered: once that answer would have
// been in, the request goes again instead of waiting for the full wait to run out. Not while
// the instrument says it is busy: the damaged frame was then most likely a busy frame.
void Link::onDamagedFrame()
{
    m_frameSize.damaged();
    if (m_outstanding.empty() || m_busySinceMs)
        return;
    if (m_damagedFrames++ == 0)
        m_writesAtDamage = m_writes;
    const Outstanding &oldest = m_outstanding.front();
    const double waitMs = std::max(0.0, oldest.sentByMs - nowMs()) + oldest.replyWireMs
                          + double(LinkTimeouts::DamagedAnswerMargin.count());
    m_damageTimer.start(int(std::ceil(waitMs)));
}

void Link::forgetDamagedFrames()
{
    m_damagedFrames = 0;
    m_damageTimer.stop();
}

void Link::resendDamagedAnswers()
{
    int damaged = std::exchange(m_damagedFrames, 0);
    const double now = nowMs();
    for (auto it = m_outstanding.begin(); it != m_outstanding.end() && damaged > 0; ++it) {
        if (it->lastWrite > m_writesAtDamage || it->sentByMs + it->replyWireMs > now)
            continue; // sent again since, or its answer may still be on its way
        --damaged;
        if (!resend(*it))
            return;
        if (it == m_outstanding.begin())
            armForOldest();
    }
}

void Link::onFrame(const Frame &frame)
{
    if (frame.type == Protocol::Nak) {
        onNak(frame);
        return;
    }
    if (!isOutstanding(frame.sequence))
        return; // the answer to an earlier send of a request already answered
    if (frame.type == Protocol::Busy)
        onBusy();
    else if (frame.type == Protocol::Reply)
        onReply(frame);
}

// It saw requests of ours damaged: send them again now. An instrument that does not say which
// (an empty Nak) has every unanswered request again.
void Link::onNak(const Frame &nak)
{
    m_frameSize.damaged();
    Protocol::Reader names(nak.payload);
    const uint8_t intact = names.u8();
    const uint8_t damaged = names.u8();
    if (nak.payload.size() != Protocol::NakPayloadBytes || !resendDamaged(intact, damaged))
        resendAll();
}

void Link::onBusy()
{
    forgetDamagedFrames(); // the instrument works on the oldest request
    const double now = nowMs();
    if (!m_busySinceMs)
        m_busySinceMs = now;
    if (now - *m_busySinceMs <= m_longestOperationMs) {
        m_timer.start(int(LinkTimeouts::BusySilence.count()));
        return;
    }
    fail(Failure::NoAnswer, QStringLiteral("the instrument has been busy with one request for over %1 seconds without "
                                           "finishing it; switch it off and on again and repeat the update")
                                .arg(m_longestOperationMs / 1000.0));
}

void Link::pauseReading()
{
    const double ms = msUntilAnAnswerCanBeWhole();
    callTransport([ms](Transport &transport) { transport.pauseReading(ms); });
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
    pullInEstimates(it);
    m_busySinceMs.reset();
    m_payloadBytes += it->frame.payload.size() + frame.payload.size();
    const Outstanding answered = *it;
    m_outstanding.erase(it);
    const int damaged = m_damagedFrames; // since the last answer: answers to requests sent before this one
    forgetDamagedFrames();
    m_frameSize.answered();
    if (m_outstanding.empty()) {
        m_timer.stop();
        callTransport([](Transport &transport) { transport.setAwaitingAnswers(false); });
    } else if (wasOldest) {
        armForOldest();
    } // else the oldest's answer is still missing and its wait runs on
    if (resendShownLost(answered, damaged)) // before anything new goes
        emit replied(frame.sequence, frame.payload);
}

void Link::onTimeout()
{
    callTransport([](Transport &transport) { transport.pauseReading(0); }); // whatever came is needed now, whole or not
    if (m_outstanding.empty())
        return;
    if (++m_silentWaits < LinkTimeouts::MaxAttempts) {
        resendAll();
        return;
    }
    fail(Failure::NoAnswer, m_transport.silenceReason(LinkTimeouts::MaxAttempts));
}

void Link::onTransportFailed(const QString &reason)
{
    m_lost = reason; // for good: a transport that broke is closed
    failForLostTransport();
}

void Link::failForLostTransport()
{
    if (!m_outstanding.empty())
        fail(Failure::TransportLost, *m_lost);
}

void Link::abandon()
{
    m_timer.stop();
    forgetDamagedFrames();
    m_busySinceMs.reset();
    m_outstanding.clear();
    callTransport([](Transport &transport) {
        transport.pauseReading(0);
        transport.setAwaitingAnswers(false);
    });
}

void Link::fail(Failure failure, const QString &reason)
{
    abandon();
    emit failed(failure, reason);
}
