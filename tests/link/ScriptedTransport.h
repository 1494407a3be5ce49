#pragma once
// A transport whose far end the test scripts. It records what is written and delivers what
// the test says, and fails as real ones do: to open, on a write (from the event loop, or
// inside the call as a badly behaved transport would), or while nothing is on the way. As an
// instrument it answers every request at once, from the event loop, losing chosen answers; a
// write it takes as damaged it answers with a Nak that names the last request that came intact.
// As a serial port it takes the rates up to its fastest and records every change of rate.
#include "link/FrameDecoder.h"
#include "link/Protocol.h"
#include "link/Transport.h"

#include <QCoreApplication>
#include <QSet>
#include <functional>
#include <optional>

// Lets out what was posted: every posted call may post one more (the instrument's answer, the
// link taking it, the pipeline passing it on).
inline void settle()
{
    for (int round = 0; round < 4; ++round)
        QCoreApplication::processEvents();
}

class ScriptedTransport : public Transport {
    Q_OBJECT
public:
    enum class When { InsideTheCall, FromTheEventLoop };
    static inline const QString Lost = QStringLiteral("the serial port went away");

    QList<QByteArray> written;
    QList<double> pauses; // the link's pauses in reading, in order
    double msPerByte = 0;  // wire time: none unless a test needs it
    std::optional<QString> openFailure;
    std::function<QByteArray(const Frame &)> instrument; // the payload of its Reply to a request
    QSet<qsizetype> lostAnswers;                         // writes whose answers never come
    std::function<bool(qsizetype)> damages;              // whether the write with that index arrives damaged
    int rate = 0;         // the line's rate; 0 for none of its own (GPIB)
    int fastestTaken = 0; // the fastest rate the port takes
    int deafAt = -1;      // the instrument hears nothing sent at this rate (a lost switch)
    QList<int> rates;     // every rate it was set to, in order

    void open() override { openFailure ? reportFailed(*openFailure) : reportOpened(); }
    void write(const QByteArray &bytes) override
    {
        written << bytes;
        if (m_failingWrites > 0) {
            --m_failingWrites;
            m_failWhen == When::InsideTheCall ? emit failed(Lost) : reportFailed(Lost);
        } else if (rate == deafAt) {
            return; // sent at a rate the instrument does not hear
        } else if (damages && damages(written.size() - 1)) {
            m_damagedSinceIntact = std::min(m_damagedSinceIntact + 1, 255);
            answerLater(Frame{0, Protocol::Nak, Protocol::Writer().u8(m_lastIntact).u8(uint8_t(m_damagedSinceIntact)).done()}.encode());
        } else {
            for (const Frame &request : FrameDecoder().feed(bytes)) {
                m_lastIntact = request.sequence;
                m_damagedSinceIntact = 0;
                if (instrument && !lostAnswers.contains(written.size() - 1))
                    answerLater(Frame{request.sequence, Protocol::Reply, instrument(request)}.encode());
            }
        }
    }
    void close() override { dropReports(); }
    double wireTimeMs(int count) const override { return count * msPerByte; }
    void pauseReading(double ms) override { pauses << ms; }
    int lineRate() const override { return rate; }
    bool takesRate(int baud) override { return baud <= fastestTaken; }
    bool setLineRate(int baud) override
    {
        rates << baud;
        rate = baud;
        return true;
    }

    void failNextWrites(int count, When when)
    {
        m_failingWrites = count;
        m_failWhen = when;
    }
    void deliver(const QByteArray &bytes) { emit received(bytes); }
    void loseThePort() { reportFailed(Lost); }
    Frame sent(qsizetype index) const { return FrameDecoder().feed(written.at(index)).value(0); } // the index-th write

private:
    void answerLater(const QByteArray &reply)
    {
        QMetaObject::invokeMethod(this, [this, reply] { deliver(reply); }, Qt::QueuedConnection);
    }

    int m_failingWrites = 0;
    uint8_t m_lastIntact = 0;
    int m_damagedSinceIntact = 0;
    When m_failWhen = When::FromTheEventLoop;
};
