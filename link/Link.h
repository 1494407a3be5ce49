#pragma once
// Numbered requests over a transport, several of them on the way at once. Each request is
// answered by the instrument's Reply with its number; a request lost on the way, or whose answer
// was, goes out again with its number (the instrument then answers from its cache instead of
// acting twice). Only what was lost goes again: the instrument answers in the order requests
// arrive, so an answer shows every request sent before it and still unanswered to be lost, a
// damaged frame from it was most likely the answer of one of the oldest, and its Nak names
// the last request that arrived intact and how many damaged frames followed it. A Nak that
// names nothing, or a wait for an answer that runs out, sends every unanswered request again.
// Busy frames stretch the wait during long operations, up to
// LinkTimeouts::LongestOperation. After MaxAttempts waits in a row with nothing heard from the
// instrument, after MostSendsOfOneRequest sends of one request, or when the transport breaks,
// every request on the way fails at once with a reason that says what to check. A transport
// that broke while nothing was on the way fails the next request with the same reason. How much
// data a request should carry follows what the line damages (AdaptiveFrameSize).
//
// Replies and failures are always raised from the event loop, never inside request(). The
// transport's reports are taken as they come from the event loop; one made inside a call the
// link made to the transport waits for the event loop, so a transport that reports inside a
// write cannot pull the ground from under the link.
//
// Keeping the line busy is the caller's business: it may send another request before the
// earlier ones are answered while hasRoom() says so, and only where the order in which the
// instrument carries them out does not matter.
#include "link/AdaptiveFrameSize.h"
#include "link/Frame.h"
#include "link/FrameDecoder.h"
#include "link/LinkTimeouts.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <chrono>
#include <deque>
#include <functional>
#include <optional>

class Transport;

class Link : public QObject {
    Q_OBJECT
public:
    enum class Failure { NoAnswer, TransportLost };
    // Requests on the way at once, at most, for every instrument: two keep the line busy while
    // the instrument answers the first; the third absorbs the host's scheduling hiccups. An
    // instrument that names a receive buffer gets more (setReceiveBuffer).
    static constexpr int Window = 3;
    // The instrument keeps the answers of this many recent numbers, the newest included: a
    // request sent again must be among them to be answered from what it kept.
    static constexpr int KeptAnswers = 8;
    // Writes remembered for a Nak to name one: it comes back within a few frames, and what it
    // names lies within the numbers the instrument keeps.
    static constexpr int RecentWrites = 2 * KeptAnswers;

    // longestOperation: how long busy frames may hold off the answer to one request.
    explicit Link(Transport &transport, std::chrono::milliseconds longestOperation = LinkTimeouts::LongestOperation,
                  QObject *parent = nullptr);

    // Sends a request and returns its number; exactly one of replied (with that number) or
    // failed follows, from the event loop. expectedReplyBytes sizes the wait for the answer.
    uint8_t request(uint8_t type, const QByteArray &payload, int expectedReplyBytes);
    // Forgets every request on the way without a word: nothing of them is sent again, and
    // their answers, should any come, are ignored. For a line whose rate the far end may not
    // have followed.
    void abandon();
    // Requests sent and not answered yet.
    int outstanding() const { return int(m_outstanding.size()); }
    // The wire bytes the instrument keeps of requests that wait while it works on one, as its
    // Abilities answer names them; 0 (any instrument): two frames.
    void setReceiveBuffer(int wireBytes) { m_receiveBuffer = wireBytes; }
    // Whether another request may go before the earlier ones are answered: the oldest on the
    // way would still be among the KeptAnswers newest numbers (answers that overtake a lost
    // one must not push it out of the instrument's memory), and fewer than Window are on the
    // way, or the instrument's receive buffer holds the requests behind the oldest and one
    // more of the largest size. Blocks that pack well are small, and a few of them on the way
    // do not keep the line busy while the flash programs them.
    bool hasRoom() const;
    // The most data a request should carry now: less while the line damages frames.
    int largestData() const { return m_frameSize.dataBytes(); }
    int retransmissions() const { return m_retransmissions; }
    // Payload bytes of requests answered and of their answers, for rates.
    int64_t payloadBytes() const { return m_payloadBytes; }

signals:
    void replied(uint8_t sequence, const QByteArray &payload);
    // Every outstanding request is dropped.
    void failed(Link::Failure failure, const QString &reason);

private:
    struct Outstanding {
        Frame frame;
        double replyWireMs;  // its answer's wire time with the worst stuffing, for the wait
        double answerWireMs; // ... and with none, the least it takes
        double wireMs = 0;   // its own wire time
        int wireBytes = 0;
        double writtenAtMs = 0;
        double sentByMs = 0; // when its last byte will have left, at the latest
        bool resent = false;
        int sends = 0;
        uint64_t firstWrite = 0; // the link's count of writes at its first send
        uint64_t lastWrite = 0;  // ... and at its latest
    };
    using Iterator = std::deque<Outstanding>::iterator;

    // Runs a report of the transport now, or after the event loop's turn when it came inside a
    // call to the transport (and then every report after it too, to keep their order).
    void take(const std::function<void()> &report);
    // Calls the transport, noting that the link is inside the call.
    template <typename Call>
    void callTransport(Call &&call);
    void onBytes(const QByteArray &bytes);
    void onFrame(const Frame &frame);
    void onReply(const Frame &frame);
    void onNak(const Frame &nak);
    void onDamagedFrame();
    void forgetDamagedFrames();
    // The damaged frames that no answer followed were the answers to as many of the oldest
    // requests, unless those went again since or their answers can still be on the way.
    void resendDamagedAnswers();
    void onBusy();
    void onTimeout();
    void onTransportFailed(const QString &reason);
    void failForLostTransport();
    // Lets the transport stop reading while no answer can be whole yet.
    void pauseReading();
    double msUntilAnAnswerCanBeWhole() const;
    // An answer that came before its request could have left shows a line faster than its
    // rate (no real serial line, or one without pacing): estimates from the rate would only
    // slow it down.
    void checkLineRate(const Outstanding &answered);
    bool isOutstanding(uint8_t sequence) const;
    double nowMs() const;
    void transmit(Outstanding &request);
    // An answer shows that every byte written up to its request's end has left.
    void pullInEstimates(Iterator answered);
    void resendAll();
    // Sends again what a Nak names: the unanswered requests among the damaged writes after the
    // last write of the number that arrived intact, unless sent again since, or that write
    // itself when it was the last. False when that number is none of the recent writes.
    bool resendDamaged(uint8_t intact, int damaged);
    // Sends again what an answer shows lost: every unanswered request whose sends all went before
    // the first send of the request answered (it, or its answer, was lost), and, for each frame
    // that came damaged since the last answer, one more whose last send went before the answered
    // one's last (the damaged frame was most likely its answer). False when the link has failed.
    bool resendShownLost(const Outstanding &answered, int damaged);
    // False when the request has gone out too often: the link has then failed.
    bool resend(Outstanding &request);
    // Waits for the oldest request's answer: until its own bytes have left, its answer's wire
    // time and the margin, never longer than LongestReplyWait.
    void armForOldest();
    void fail(Failure failure, const QString &reason);

    Transport &m_transport;
    FrameDecoder m_decoder;
    const double m_longestOperationMs;
    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_wireFreeAtMs = 0; // when the bytes written so far will have left, at the latest
    std::deque<Outstanding> m_outstanding;
    std::optional<double> m_busySinceMs; // the first busy frame since the last progress
    std::optional<QString> m_lost;       // why the transport broke
    std::deque<uint8_t> m_recentWrites;  // the numbers of the latest writes, newest last
    uint64_t m_writes = 0;               // writes so far
    AdaptiveFrameSize m_frameSize;
    QTimer m_damageTimer;        // runs out when the answer a damaged frame may have been is overdue
    int m_damagedFrames = 0;     // from the instrument, since the last answer or busy frame
    uint64_t m_writesAtDamage = 0; // writes before the first of them
    bool m_callingTransport = false;
    int m_reportsWaiting = 0; // reports put off until the event loop
    uint8_t m_nextSequence; // starts anywhere, so a new channel does not repeat the numbers of the last
    int m_silentWaits = 0; // waits that ran out since anything intact came from the instrument
    int m_retransmissions = 0;
    bool m_lineOutrunsItsRate = false;
    int m_receiveBuffer = 0;
    int64_t m_payloadBytes = 0;
};
