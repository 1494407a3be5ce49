// Frames, the decoder and the link, over a scripted transport.
#include "link/Frame.h"
#include "link/FrameDecoder.h"
#include "link/Link.h"
#include "link/LinkTimeouts.h"
#include "link/PortMap.h"
#include "link/Protocol.h"
#include "tests/link/ScriptedTransport.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

Frame sample(uint8_t sequence, int size)
{
    QByteArray payload(size, '\0');
    for (int i = 0; i < size; ++i)
        payload[i] = char((i * 37 + sequence) & 0xFF); // includes the END and ESCAPE values
    return Frame{sequence, Protocol::Reply, payload};
}

Frame decodeOne(const QByteArray &wire)
{
    FrameDecoder decoder;
    const QList<Frame> frames = decoder.feed(wire);
    return frames.size() == 1 ? frames.first() : Frame{0, 0xEE, {}};
}

} // namespace

class LinkTest : public QObject {
    Q_OBJECT
private slots:
    void framesSurviveStuffing()
    {
        for (int size : {0, 1, 2, 240, 4000}) {
            const Frame frame = sample(uint8_t(size % 251 + 1), size);
            const QByteArray wire = frame.encode();
            QCOMPARE(wire.count(char(Frame::End)), 2); // only the two delimiters
            QVERIFY(wire.size() <= Frame::worstCaseWireBytes(size));
            QCOMPARE(decodeOne(wire), frame);
        }
    }

    void aFrameSplitAtEveryPosition()
    {
        const Frame frame = sample(9, 300);
        const QByteArray wire = frame.encode();
        for (int cut = 0; cut <= wire.size(); ++cut) {
            FrameDecoder decoder;
            QList<Frame> frames = decoder.feed(wire.left(cut));
            frames += decoder.feed(wire.mid(cut));
            QCOMPARE(frames.size(), 1);
            QCOMPARE(frames.first(), frame);
        }
    }

    void byteByByteAndSeveralAtOnce()
    {
        const QByteArray wire = sample(1, 10).encode() + sample(2, 0).encode() + sample(3, 500).encode();
        FrameDecoder together;
        const QList<Frame> all = together.feed(wire);
        QCOMPARE(all.size(), 3);
        QCOMPARE(all.at(2), sample(3, 500));
        FrameDecoder single;
        QList<Frame> oneByOne;
        for (char c : wire)
            oneByOne += single.feed(QByteArray(1, c));
        QCOMPARE(oneByOne, all);
    }

    void damagedFramesAreSkippedAndTheNextIsFound_data()
    {
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("how"); // 0 flip a bit, 1 drop the byte, 2 insert a byte
        const int size = sample(4, 40).encode().size();
        for (int position = 1; position < size - 1; position += 7)
            for (int how = 0; how < 3; ++how)
                QTest::addRow("%d/%d", position, how) << position << how;
    }
    void damagedFramesAreSkippedAndTheNextIsFound()
    {
        QFETCH(int, position);
        QFETCH(int, how);
        QByteArray damaged = sample(4, 40).encode();
        if (how == 0)
            damaged[position] = char(damaged[position] ^ 0x10);
        else if (how == 1)
            damaged.remove(position, 1);
        else
            damaged.insert(position, char(0x55));
        FrameDecoder decoder;
        const QList<Frame> frames = decoder.feed(QByteArray("noise") + damaged + sample(5, 20).encode());
        QVERIFY(!frames.isEmpty());
        QCOMPARE(frames.last(), sample(5, 20));
        if (frames.size() == 2)
            QCOMPARE(frames.first(), sample(4, 40)); // damage that stuffing undid (a flipped END)
        QVERIFY(decoder.corruptFrames() >= 1);
    }

    void anOverlongRunWithoutEndIsDropped()
    {
        FrameDecoder decoder;
        QVERIFY(decoder.feed(QByteArray(1, char(Frame::End)) + QByteArray(20000, 'x')).isEmpty());
        const QList<Frame> frames = decoder.feed(sample(6, 8).encode());
        QCOMPARE(frames, QList<Frame>{sample(6, 8)});
    }

    void aFrameOnTheWaySaysHowMuchOfItIsStillToCome()
    {
        const Frame frame = sample(7, 300); // stuffed: END and ESCAPE values in the payload
        const QByteArray wire = frame.encode();
        const QByteArray plain = Frame{8, Protocol::Reply, QByteArray(300, 'p')}.encode();
        for (int cut = 1; cut < wire.size(); ++cut) {
            FrameDecoder decoder;
            decoder.feed(wire.left(cut));
            const auto pending = decoder.pending();
            QCOMPARE(pending.has_value(), cut >= 5); // END and the four header bytes
            if (!pending)
                continue;
            QCOMPARE(pending->sequence, frame.sequence);
            QCOMPARE(pending->type, frame.type);
            QVERIFY(pending->bytesToCome >= 1);
            QVERIFY2(pending->bytesToCome <= wire.size() - cut, qPrintable(QString::number(cut))); // never more than will come
        }
        FrameDecoder decoder;
        decoder.feed(plain.left(100));
        QCOMPARE(decoder.pending()->bytesToCome, plain.size() - 100); // exact without stuffing
        decoder.feed(plain.mid(100));
        QVERIFY(!decoder.pending());

        FrameDecoder damaged; // a length no frame has
        damaged.feed(QByteArray::fromHex("c0 01 80 ff ff"));
        QVERIFY(!damaged.pending());
    }

    void readingPausesForTheRestOfAnAnswer()
    {
        ScriptedTransport transport;
        transport.msPerByte = 0.1;
        Link link(transport);
        QSignalSpy replied(&link, &Link::replied);
        const uint8_t sequence = link.request(Protocol::Read, {}, 240);
        QTest::qWait(5); // as long as the request takes on this line
        const QByteArray answer = Frame{sequence, Protocol::Reply, QByteArray(240, 'r')}.encode();
        transport.deliver(answer.left(40));
        const double margin = LinkTimeouts::ReadPauseMargin.count();
        QCOMPARE(transport.pauses.last(), (answer.size() - 40) * 0.1 + margin);
        transport.deliver(answer.mid(40));
        QCOMPARE(replied.size(), 1);
        QCOMPARE(transport.pauses.last(), 0.0);

        // What starts like an answer to nothing on the way, or a busy frame: no pause.
        const uint8_t next = link.request(Protocol::Read, {}, 240);
        transport.deliver(Frame{uint8_t(next + 100), Protocol::Reply, QByteArray(240, 'x')}.encode().left(40));
        QCOMPARE(transport.pauses.last(), 0.0);
        transport.deliver(QByteArray(1, char(Frame::End)) + Frame{next, Protocol::Busy, QByteArray(40, 'b')}.encode().left(20));
        QCOMPARE(transport.pauses.last(), 0.0);
    }

    void readingPausesUntilTheOldestRequestCanBeAnswered()
    {
        ScriptedTransport transport;
        transport.msPerByte = 0.1;
        Link link(transport);
        link.request(Protocol::Program, QByteArray(240, 'p'), 6);
        QCOMPARE(transport.pauses.last(), 0.0); // a lone request: its answer is read as it comes
        link.request(Protocol::Program, QByteArray(240, 'q'), 6);
        // The first request's wire bytes must leave and a 16-byte answer come back.
        const double least = (transport.written.first().size() + Frame::leastWireBytes(6)) * 0.1
                             + LinkTimeouts::ReadPauseMargin.count();
        QVERIFY2(transport.pauses.last() <= least && transport.pauses.last() > least - 5,
                 qPrintable(QString::number(transport.pauses.last())));
    }

    void aLineFasterThanItsRateIsNeverPaused()
    {
        ScriptedTransport transport;
        transport.msPerByte = 0.1;
        Link link(transport);
        const uint8_t first = link.request(Protocol::Read, {}, 240);
        transport.deliver(Frame{first, Protocol::Reply, QByteArray(240, 'r')}.encode()); // before its request could have left
        const uint8_t second = link.request(Protocol::Read, {}, 240);
        link.request(Protocol::Read, {}, 240);
        transport.deliver(Frame{second, Protocol::Reply, QByteArray(240, 'r')}.encode().left(40));
        QCOMPARE(transport.pauses.last(), 0.0);
    }

    void anEarlyAnswerToAResentRequestSaysNothingOfTheLine()
    {
        ScriptedTransport transport;
        transport.msPerByte = 0.01;
        Link link(transport);
        const uint8_t first = link.request(Protocol::Read, {}, 240);
        QTRY_COMPARE_WITH_TIMEOUT(transport.written.size(), 2, 2000);
        transport.deliver(Frame{first, Protocol::Reply, QByteArray(240, 'r')}.encode()); // to the first send
        const uint8_t second = link.request(Protocol::Read, {}, 2400);
        QTest::qWait(5);
        transport.deliver(Frame{second, Protocol::Reply, QByteArray(2400, 'r')}.encode().left(40));
        QVERIFY(transport.pauses.last() > 0);
    }

    void aTimeoutResumesReading()
    {
        ScriptedTransport transport;
        transport.msPerByte = 0.001;
        Link link(transport);
        const uint8_t sequence = link.request(Protocol::Read, {}, 240);
        transport.deliver(Frame{sequence, Protocol::Reply, QByteArray(240, 'r')}.encode().left(40));
        QVERIFY(transport.pauses.last() > 0);
        QTRY_COMPARE_WITH_TIMEOUT(transport.written.size(), 2, 2000); // sent again after the wait
        QCOMPARE(transport.pauses.last(), 0.0);
    }

    void theLinkTakesTheAnswerWithItsNumber()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy replied(&link, &Link::replied);
        link.request(Protocol::VoltageOn, {}, 2);
        QCOMPARE(transport.written.size(), 1);
        const Frame sent = decodeOne(transport.written.first());
        QCOMPARE(sent.type, uint8_t(Protocol::VoltageOn));
        transport.deliver(Frame{uint8_t(sent.sequence + 7), Protocol::Reply, "stale"}.encode()); // another request's
        QCOMPARE(replied.size(), 0);
        transport.deliver(Frame{sent.sequence, Protocol::Reply, "ok"}.encode() + Frame{sent.sequence, Protocol::Reply, "dup"}.encode());
        QCOMPARE(replied.size(), 1);
        QCOMPARE(replied.at(0).at(1).toByteArray(), QByteArray("ok"));
        QCOMPARE(link.outstanding(), 0);

        link.request(Protocol::VoltageOff, {}, 2);
        QCOMPARE(decodeOne(transport.written.last()).sequence, uint8_t(sent.sequence == 255 ? 1 : sent.sequence + 1));
        transport.deliver(Frame{sent.sequence, Protocol::Reply, "dup"}.encode()); // a late duplicate
        QCOMPARE(replied.size(), 1);
    }

    void aMissingAnswerIsAskedForAgainWithTheSameNumber()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy replied(&link, &Link::replied);
        link.request(Protocol::Restart, {}, 2);
        QTRY_COMPARE_WITH_TIMEOUT(transport.written.size(), 2, 2000);
        QCOMPARE(transport.written.at(1), transport.written.at(0));
        transport.deliver(Frame{decodeOne(transport.written.at(0)).sequence, Protocol::Reply, {}}.encode());
        QCOMPARE(replied.size(), 1);
        QCOMPARE(link.retransmissions(), 1);
    }

    void aNakSendsAgainAtOnce()
    {
        ScriptedTransport transport;
        Link link(transport);
        link.request(Protocol::Restart, {}, 2);
        transport.deliver(Frame{0, Protocol::Nak, {}}.encode());
        QCOMPARE(transport.written.size(), 2);
    }

    void busyFramesKeepASlowRequestAlive()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy failed(&link, &Link::failed);
        link.request(Protocol::Erase, {}, 6);
        const uint8_t sequence = decodeOne(transport.written.first()).sequence;
        // Busy for longer than a plain answer may take, and all sends stay at one.
        for (int i = 0; i < 10; ++i) {
            QTest::qWait(100);
            transport.deliver(Frame{sequence, Protocol::Busy, {}}.encode());
        }
        QCOMPARE(transport.written.size(), 1);
        QCOMPARE(failed.size(), 0);
    }

    void aDeadLineFailsAfterEveryAttempt()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy failed(&link, &Link::failed);
        link.request(Protocol::Restart, {}, 2);
        QVERIFY(failed.wait(10000));
        QCOMPARE(transport.written.size(), 8);
        QCOMPARE(failed.at(0).at(0).value<Link::Failure>(), Link::Failure::NoAnswer);
        QVERIFY(failed.at(0).at(1).toString().contains(QStringLiteral("check the cable")));
        QCOMPARE(link.outstanding(), 0);
    }

    void aBrokenTransportFailsAtOnce()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy failed(&link, &Link::failed);
        link.request(Protocol::Restart, {}, 2);
        transport.breakDown();
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.at(0).at(0).value<Link::Failure>(), Link::Failure::TransportLost);
    }

    void severalRequestsOnTheWayAreMatchedByNumber()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy replied(&link, &Link::replied);
        const uint8_t first = link.request(Protocol::Program, "a", 6);
        const uint8_t second = link.request(Protocol::Program, "b", 6);
        const uint8_t third = link.request(Protocol::Program, "c", 6);
        QCOMPARE(transport.written.size(), 3);
        QCOMPARE(link.outstanding(), 3);
        transport.deliver(Frame{second, Protocol::Reply, "2"}.encode() + Frame{first, Protocol::Reply, "1"}.encode());
        transport.deliver(Frame{third, Protocol::Reply, "3"}.encode());
        QCOMPARE(replied.size(), 3);
        QCOMPARE(replied.at(0).at(0).value<uint8_t>(), second);
        QCOMPARE(replied.at(1).at(1).toByteArray(), QByteArray("1"));
        QCOMPARE(link.outstanding(), 0);
        QCOMPARE(link.retransmissions(), 0);
    }

    void onlyTheUnansweredGoAgain()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy replied(&link, &Link::replied);
        const uint8_t first = link.request(Protocol::Program, "a", 6);
        const uint8_t lost = link.request(Protocol::Program, "b", 6);
        const uint8_t third = link.request(Protocol::Program, "c", 6);
        transport.deliver(Frame{first, Protocol::Reply, {}}.encode() + Frame{third, Protocol::Reply, {}}.encode());
        QTRY_COMPARE_WITH_TIMEOUT(transport.written.size(), 4, 2000); // the wait for the oldest ran out
        QCOMPARE(decodeOne(transport.written.last()).sequence, lost);
        QCOMPARE(decodeOne(transport.written.last()).payload, QByteArray("b"));
        transport.deliver(Frame{lost, Protocol::Reply, {}}.encode());
        QCOMPARE(replied.size(), 3);
        QCOMPARE(link.outstanding(), 0);
    }

    void aNakSendsEveryUnansweredRequestAgain()
    {
        ScriptedTransport transport;
        Link link(transport);
        const uint8_t first = link.request(Protocol::Program, "a", 6);
        link.request(Protocol::Program, "b", 6);
        link.request(Protocol::Program, "c", 6);
        transport.deliver(Frame{first, Protocol::Reply, {}}.encode() + Frame{0, Protocol::Nak, {}}.encode());
        QCOMPARE(transport.written.size(), 5);
        QCOMPARE(decodeOne(transport.written.at(3)).payload, QByteArray("b"));
        QCOMPARE(decodeOne(transport.written.at(4)).payload, QByteArray("c"));
    }

    void aBrokenTransportFailsEveryRequestOnTheWayOnce()
    {
        ScriptedTransport transport;
        Link link(transport);
        QSignalSpy failed(&link, &Link::failed);
        link.request(Protocol::Program, "a", 6);
        link.request(Protocol::Program, "b", 6);
        transport.breakDown();
        QCOMPARE(failed.size(), 1);
        QCOMPARE(link.outstanding(), 0);
        transport.breakDown(); // nothing on the way: nobody to tell
        QCOMPARE(failed.size(), 1);
    }

    void portMap()
    {
        const PortMap defaults;
        QCOMPARE(defaults.deviceFor(QStringLiteral("COM1")), QStringLiteral("/dev/ttyS0"));
        QCOMPARE(defaults.deviceFor(QStringLiteral("com12")), QStringLiteral("/dev/ttyS11"));
        QCOMPARE(defaults.deviceFor(QStringLiteral("/dev/ttyUSB3")), QStringLiteral("/dev/ttyUSB3"));
        QCOMPARE(defaults.deviceFor(QStringLiteral("COM0")), QString());
        QCOMPARE(defaults.deviceFor(QStringLiteral("LPT1")), QString());
        const PortMap mapped(QStringLiteral("COM1=/dev/ttyUSB0; com2 = /dev/pts/7;broken"));
        QCOMPARE(mapped.deviceFor(QStringLiteral("COM1")), QStringLiteral("/dev/ttyUSB0"));
        QCOMPARE(mapped.deviceFor(QStringLiteral("COM2")), QStringLiteral("/dev/pts/7"));
        QCOMPARE(mapped.deviceFor(QStringLiteral("COM3")), QStringLiteral("/dev/ttyS2"));
        QCOMPARE(mapped.overrides().size(), 2);
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
