// Frames and their decoder; the link, its request pipeline, the transfer program's loader and
// the line's set-up after it, over a scripted transport; packed blocks; the protocol
// document's example exchanges, byte for byte.
#include "instrument/SimulatedInstrument.h"
#include "link/BlockCompressor.h"
#include "link/LineRateSwitch.h"
#include "link/LinkTimeouts.h"
#include "link/RequestPipeline.h"
#include "link/TransferProgramLoader.h"
#include "tests/link/ScriptedTransport.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>
#include <zlib.h>

namespace {
using namespace std::chrono_literals;
using Kind = RequestPipeline::Kind;
using Request = RequestPipeline::Request;
using When = ScriptedTransport::When;
// Busy frames may hold an answer off for this long in these tests.
constexpr auto LongestOperation = 1500ms;

Frame sample(uint8_t sequence, int size)
{
    QByteArray payload(size, '\0');
    for (int i = 0; i < size; ++i)
        payload[i] = char((i * 37 + sequence) & 0xFF); // includes the END and ESCAPE values
    return Frame{sequence, Protocol::Reply, payload};
}

Request program(int32_t address, const QByteArray &data = QByteArray(240, '\x55'))
{
    return {Kind::Program, Protocol::Program, Protocol::Writer().u32(uint32_t(address)).u8(2).u8(22).bytes(data).done(), 16, 2,
            address, int32_t(data.size())};
}

Request read(int32_t address, int32_t count)
{
    return {Kind::Read, Protocol::Read, Protocol::Writer().u8(2).u32(uint32_t(address)).u32(uint32_t(count)).done(), count + 2, 2,
            address, count};
}

const Request voltageOff{Kind::VoltageOff, Protocol::VoltageOff, {}};

QByteArray programAnswer(uint16_t status, int32_t address)
{
    return Protocol::Writer().u16(status).u32(uint32_t(address)).done();
}

QByteArray readAnswer(char fill, int count)
{
    return Protocol::Writer().u16(0).bytes(QByteArray(count, fill)).done();
}

// One scripted channel: transport, link and pipeline, and what they said. Its link has carried
// a few requests already, so that it sends whole blocks on a clean line.
struct Channel {
    ScriptedTransport transport;
    Link link{transport, LongestOperation};
    RequestPipeline pipeline{link};
    QSignalSpy replied{&link, &Link::replied};
    QSignalSpy answered{&pipeline, &RequestPipeline::answered};
    QSignalSpy failedEarlier{&pipeline, &RequestPipeline::programmingFailedEarlier};
    QSignalSpy failed{&pipeline, &RequestPipeline::failed};

    explicit Channel(int warmUp = 8)
    {
        for (int i = 0; i < warmUp; ++i)
            deliver({link.request(Protocol::Hello, {}, Protocol::ShortAnswerBytes), Protocol::Reply, {}});
        transport.written.clear();
        transport.pauses.clear();
        replied.clear();
    }

    // Submits, and checks that nothing is told inside the call.
    void submit(const Request &request)
    {
        const qsizetype told = answered.size() + failedEarlier.size() + failed.size();
        pipeline.submit(request);
        QCOMPARE(answered.size() + failedEarlier.size() + failed.size(), told);
        settle();
    }
    void deliver(const Frame &frame)
    {
        transport.deliver(frame.encode());
        settle();
    }
    // The instrument answers the index-th frame written.
    void answer(qsizetype index, const QByteArray &payload) { deliver({transport.sent(index).sequence, Protocol::Reply, payload}); }
    // ... or the request for the data at the address, however often it went.
    void answerAt(int32_t address, const QByteArray &payload)
    {
        for (qsizetype i = 0; i < transport.written.size(); ++i)
            if (Protocol::Reader(transport.sent(i).payload).u32() == uint32_t(address))
                return answer(i, payload);
    }
    // ... or says every 100 ms that it is busy with it, count times or until it is given up on.
    void busy(uint8_t sequence, int count)
    {
        int sent = 0;
        QTimer instrument;
        instrument.callOnTimeout([&] {
            transport.deliver(Frame{sequence, Protocol::Busy, {}}.encode());
            ++sent;
        });
        instrument.start(Protocol::BusyIntervalMs);
        QVERIFY(QTest::qWaitFor([&] { return sent == count || !failed.isEmpty(); }, 20000));
    }
    QByteArray answerPayload(qsizetype index) const { return answered.at(index).at(1).toByteArray(); }
    QByteArray sentPayload(qsizetype index) const { return transport.sent(index).payload; }
};

enum class Fault { LostBefore, LostAfter, WriteFailsInside, WriteFailsAfter, Silence, BusyForEver, EverySendDamaged };
enum class Before { Nothing, AnswerAtOnce, AnswerAfterResend };
enum class Then { Nothing, PartOfTheAnswer, PartOfAnotherAnswer, PartOfABusyFrame, Timeout };
// What answers the loader's Hello: the boot ROM, the package's transfer program left running,
// another transfer program, a program that knows neither Hello nor LoadBlock.
enum class Load { Whole, Noisy, BlockRefused, PortGoes, LoaderGoes, SameProgram, OtherProgram, NoBootRom };
constexpr double MsPerByte = 0.1;
constexpr int PackageRate = 115200;

// A packed block's data as the instrument inflates it: on its own, into at most length bytes.
QByteArray inflated(const QByteArray &data, int length)
{
    z_stream stream{};
    inflateInit2(&stream, -15);
    QByteArray out(length + 1, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = uInt(out.size());
    inflate(&stream, Z_SYNC_FLUSH);
    out.resize(out.size() - qsizetype(stream.avail_out));
    inflateEnd(&stream);
    return out;
}
constexpr int PartBytes = 40;
} // namespace

class LinkTest : public QObject {
    Q_OBJECT
private slots:
    // Stuffing leaves END only at the ends; a frame decodes behind another, cut anywhere or
    // fed byte by byte, and while it comes the decoder knows how much of it is still to come.
    void framesSurviveStuffingAndCutting_data()
    {
        QTest::addColumn<int>("size");
        for (int size : {0, 1, 2, 240, 300, 4000})
            QTest::addRow("%d bytes", size) << size;
    }
    void framesSurviveStuffingAndCutting()
    {
        QFETCH(int, size);
        const Frame frame = sample(uint8_t(size % 251 + 1), size);
        const QByteArray wire = frame.encode();
        QCOMPARE(wire.count(char(Frame::End)), 2);
        QVERIFY(wire.size() <= Frame::worstCaseWireBytes(size));
        const QList<Frame> both{sample(1, 10), frame};
        const QByteArray stream = both.first().encode() + wire;
        for (qsizetype cut = 0; cut <= stream.size(); ++cut) {
            FrameDecoder decoder;
            QList<Frame> frames = decoder.feed(stream.left(cut));
            const qsizetype in = cut - (stream.size() - wire.size()); // bytes of the second frame fed
            const auto pending = decoder.pending();
            QCOMPARE(pending.has_value() && in > 0, in >= 5 && in < wire.size()); // END and the header are in
            if (pending && in > 0)
                QVERIFY(pending->sequence == frame.sequence && pending->bytesToCome >= 1 && pending->bytesToCome <= wire.size() - in);
            QCOMPARE(frames += decoder.feed(stream.mid(cut)), both);
        }
        FrameDecoder single;
        QList<Frame> oneByOne;
        for (char c : stream)
            oneByOne += single.feed(QByteArray(1, c));
        QCOMPARE(oneByOne, both);
        const QByteArray plain = Frame{8, Protocol::Reply, QByteArray(300, 'p')}.encode();
        single.feed(plain.left(100));
        QCOMPARE(single.pending()->bytesToCome, plain.size() - 100); // exact without stuffing
        single.feed(QByteArray::fromHex("c0 01 80 ff ff")); // a length no frame has
        QVERIFY(!single.pending());
    }

    void damagedFramesAreSkippedAndTheNextIsFound_data()
    {
        QTest::addColumn<QByteArray>("damaged");
        const QByteArray wire = sample(4, 40).encode();
        for (int at = 1; at < wire.size() - 1; at += 7) {
            QByteArray flipped = wire, dropped = wire, inserted = wire;
            flipped[at] = char(flipped[at] ^ 0x10);
            QTest::addRow("%d flipped", at) << flipped;
            QTest::addRow("%d dropped", at) << dropped.remove(at, 1);
            QTest::addRow("%d inserted", at) << inserted.insert(at, char(0x55));
        }
        QTest::addRow("no END for too long") << QByteArray(1, char(Frame::End)) + QByteArray(20000, 'x');
    }
    void damagedFramesAreSkippedAndTheNextIsFound()
    {
        QFETCH(QByteArray, damaged);
        FrameDecoder decoder;
        const QList<Frame> frames = decoder.feed(QByteArray("noise") + damaged + sample(5, 20).encode());
        QVERIFY(!frames.isEmpty());
        QCOMPARE(frames.last(), sample(5, 20));
        if (frames.size() == 2)
            QCOMPARE(frames.first(), sample(4, 40)); // damage that stuffing undid (a flipped END)
        QVERIFY(decoder.corruptFrames() >= 1);
    }

    // The instrument's events: N answers the N-th request, "other" a number not on the way,
    // "nak" says requests came damaged without saying which, "nak:I:K" that K frames came
    // damaged after the I-th request arrived intact ("-": none did, "x": a number not sent
    // lately), "damaged" is a frame from the instrument that arrives damaged, "busy" keeps the
    // first busy for a second, "timeout" lets a wait run out. Then the requests answered and
    // written, in order: only what was lost goes again.
    void answersAreTakenByTheirNumber_data()
    {
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("replies");
        QTest::addColumn<QString>("sends");
        QTest::newRow("in order") << 3 << "0 1 2" << "012" << "012";
        QTest::newRow("an answer overtaken: its request goes again") << 3 << "1 0 2" << "102" << "0120";
        QTest::newRow("another's answer, a duplicate") << 1 << "other 0 0" << "0" << "0";
        QTest::newRow("a missing answer is asked again") << 1 << "timeout 0" << "0" << "00";
        QTest::newRow("a wait that runs out sends every unanswered") << 3 << "0 timeout 1 2" << "012" << "01212";
        QTest::newRow("a nak that names none sends every unanswered") << 3 << "0 nak 1 2" << "012" << "01212";
        QTest::newRow("a nak names the damaged one") << 3 << "nak:0:1 0 1 2" << "012" << "0121";
        QTest::newRow("... or two") << 3 << "nak:0:2 0 1 2" << "012" << "01212";
        QTest::newRow("... the first of all") << 3 << "nak:-:1 0 1 2" << "012" << "012012";
        QTest::newRow("damage after the last send: it may have been that send") << 3 << "nak:2:1 0 1 2" << "012" << "0122";
        QTest::newRow("... a request sent again after it arrived intact") << 1 << "timeout nak:0:1 0" << "0" << "000";
        QTest::newRow("a damaged one sent again since: not again") << 3 << "nak:0:1 nak:0:1 0 1 2" << "012" << "0121";
        QTest::newRow("a number not sent lately: every unanswered") << 3 << "nak:x:1 0 1 2" << "012" << "012012";
        QTest::newRow("a damaged answer, then silence: the oldest goes again")
            << 3 << "damaged timeout 0 1 2" << "012" << "0120";
        QTest::newRow("... two: the two oldest") << 3 << "damaged damaged timeout 0 1 2" << "012" << "01201";
        QTest::newRow("... then an answer to a later send: one sent before that send")
            << 3 << "nak:0:2 0 damaged 2 1" << "021" << "012121";
        QTest::newRow("busy frames hold the resend off") << 1 << "busy 0" << "0" << "0";
    }
    void answersAreTakenByTheirNumber()
    {
        QFETCH(int, requests);
        QFETCH(QString, events);
        Channel c;
        QList<uint8_t> numbers;
        for (int i = 0; i < requests; ++i) {
            numbers << c.link.request(Protocol::Program, QByteArray(1, char('0' + i)), 6);
            QVERIFY(numbers.last() != 0 && (i == 0 || numbers[i] == uint8_t(numbers[i - 1] == 255 ? 1 : numbers[i - 1] + 1)));
        }
        for (const QString &event : events.split(QLatin1Char(' '))) {
            const qsizetype sent = c.transport.written.size();
            if (event == QLatin1String("timeout"))
                QTRY_VERIFY_WITH_TIMEOUT(c.transport.written.size() > sent, 2000);
            else if (event == QLatin1String("busy"))
                c.busy(numbers[0], 10); // four times as long as a plain answer may take
            else if (event == QLatin1String("nak"))
                c.deliver(Frame{0, Protocol::Nak, {}});
            else if (event == QLatin1String("damaged"))
                c.transport.deliver(QByteArray::fromHex("c0" "0180" "0600" "c0")); // cut short after its header
            else if (event.startsWith(QLatin1String("nak:"))) {
                const QString named = event.section(QLatin1Char(':'), 1, 1);
                const uint8_t intact = named == QLatin1String("-") ? 0 : named == QLatin1String("x") ? uint8_t(numbers[0] + 100) : numbers[named.toInt()];
                c.deliver({0, Protocol::Nak, Protocol::Writer().u8(intact).u8(uint8_t(event.section(QLatin1Char(':'), 2).toInt())).done()});
            } else
                c.deliver({event == QLatin1String("other") ? uint8_t(numbers[0] + 100) : numbers[event.toInt()], Protocol::Reply, {}});
        }
        QString replies, sends;
        for (const QList<QVariant> &reply : std::as_const(c.replied))
            replies += QString::number(numbers.indexOf(reply.at(0).value<uint8_t>()));
        for (qsizetype i = 0; i < c.transport.written.size(); ++i) { // each request goes again as it was
            sends += QString::fromLatin1(c.transport.sent(i).payload);
            QCOMPARE(c.transport.sent(i).sequence, numbers[c.transport.sent(i).payload.toInt()]);
        }
        QTEST(replies, "replies");
        QTEST(sends, "sends");
        QCOMPARE(c.link.outstanding(), 0);
        QCOMPARE(c.link.retransmissions(), sends.size() - requests);
    }

    // However the line or the instrument fails, the engine is told once, from the event loop,
    // with the cause: while it waits, or at its next request when the line broke behind blocks
    // already answered or while nothing was on the way; whether the transport said so inside
    // the write or after it. Nothing stays on the way.
    void failuresAreToldOnceWithTheirCause_data()
    {
        QTest::addColumn<int>("blocks");
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<Link::Failure>("failure");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<int>("sends");
        const auto lost = [](const char *name, int blocks, Fault fault, int sends) {
            QTest::newRow(name) << blocks << fault << Link::Failure::TransportLost << ScriptedTransport::Lost << sends;
        };
        lost("the port goes while the engine waits", 0, Fault::LostAfter, 1);
        lost("the port went while nothing was on the way", 0, Fault::LostBefore, 0);
        lost("the port went behind blocks answered", 1, Fault::LostBefore, 1);
        lost("a write fails inside the call", 0, Fault::WriteFailsInside, 1);
        lost("a write fails after the call", 0, Fault::WriteFailsAfter, 1);
        lost("a block's write fails inside the call", 1, Fault::WriteFailsInside, 1);
        QTest::newRow("nobody answers") << 0 << Fault::Silence << Link::Failure::NoAnswer << "check the cable"
                                        << LinkTimeouts::MaxAttempts;
        QTest::newRow("busy for ever") << 0 << Fault::BusyForEver << Link::Failure::NoAnswer
                                       << "busy with one request for over 1.5 seconds" << 1;
        QTest::newRow("every send damaged") << 0 << Fault::EverySendDamaged << Link::Failure::NoAnswer
                                            << "the line damaged 32 sends of one request; check the cable"
                                            << LinkTimeouts::MostSendsOfOneRequest;
    }
    void failuresAreToldOnceWithTheirCause()
    {
        QFETCH(int, blocks);
        QFETCH(Fault, fault);
        QFETCH(QString, reason);
        Channel c;
        c.pipeline.expectRange(0x5000, 10 * 240);
        if (fault == Fault::WriteFailsInside || fault == Fault::WriteFailsAfter)
            c.transport.failNextWrites(1, fault == Fault::WriteFailsInside ? When::InsideTheCall : When::FromTheEventLoop);
        if (fault == Fault::EverySendDamaged)
            c.transport.damages = [](qsizetype) { return true; };
        for (int i = 0; i < blocks; ++i)
            c.submit(program(0x5000 + i * 240));
        if (fault == Fault::LostBefore)
            c.transport.loseThePort();
        settle();
        QCOMPARE(c.failed.size(), 0); // nobody waits yet
        c.submit(voltageOff);
        if (fault == Fault::LostAfter)
            c.transport.loseThePort();
        if (fault == Fault::BusyForEver)
            c.busy(c.transport.sent(0).sequence, 1000);
        QTRY_COMPARE_WITH_TIMEOUT(c.failed.size(), 1, 10000);
        QTEST(c.failed.at(0).at(0).value<Link::Failure>(), "failure");
        QVERIFY2(c.failed.at(0).at(1).toString().contains(reason), qPrintable(c.failed.at(0).at(1).toString()));
        QTEST(int(c.transport.written.size()), "sends");
        QCOMPARE(c.answered.size(), blocks);
        QCOMPARE(c.link.outstanding(), 0);
        settle();
        QCOMPARE(c.failed.size(), 1);
    }

    // On a line faster than its rate (an unpaced pseudo-terminal, a USB device) the link's
    // estimates of when its bytes have left must not run ahead: after a thousand blocks a lost
    // answer with no later one to show it lost is asked for again within its own wire time and
    // the margin.
    void aLostAnswerIsAskedAgainPromptlyOnAFastLine()
    {
        constexpr int Blocks = 1000;
        Channel c;
        c.transport.msPerByte = 1000.0 * 11 / 115200; // 115200 baud, 8E1
        c.transport.instrument = [](const Frame &) { return Protocol::Writer().u16(Protocol::Status::Done).u32(0).done(); };
        c.transport.lostAnswers = {Blocks - 1};
        int sent = 0;
        const auto sendBlock = [&] {
            if (sent++ < Blocks)
                c.link.request(Protocol::Program, QByteArray(246, 'p'), 6);
        };
        connect(&c.link, &Link::replied, this, sendBlock);
        for (int i = 0; i < Link::Window; ++i)
            sendBlock();
        QTRY_COMPARE_WITH_TIMEOUT(c.replied.size(), Blocks - 1, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(c.transport.written.size(), Blocks + 1, 1000);
        QCOMPARE(c.transport.sent(Blocks).sequence, c.transport.sent(Blocks - 1).sequence);
    }

    // Requests on the way before any answer: three for any instrument; more when it names a
    // receive buffer that holds those behind the oldest and one more of the largest, counted
    // as they go on the wire; never more than it keeps answers for.
    void requestsOnTheWay_data()
    {
        QTest::addColumn<int>("receiveBuffer");
        QTest::addColumn<int>("payload");
        QTest::addColumn<char>("fill");
        QTest::addColumn<int>("onTheWay");
        QTest::newRow("any instrument") << 0 << 40 << 'p' << 3;
        QTest::newRow("a buffer for one of the largest frames") << 8210 << 40 << 'p' << 3;
        QTest::newRow("small blocks: as many as answers are kept") << 32768 << 40 << 'p' << 8;
        QTest::newRow("the largest blocks") << 24630 << 4006 << 'p' << 6;
        QTest::newRow("the largest blocks, stuffed") << 24630 << 4006 << '\xC0' << 4;
    }
    void requestsOnTheWay()
    {
        QFETCH(int, receiveBuffer);
        QFETCH(int, payload);
        QFETCH(char, fill);
        Channel c;
        c.link.setReceiveBuffer(receiveBuffer);
        while (c.link.hasRoom() && c.link.outstanding() < 20)
            c.link.request(Protocol::Program, QByteArray(payload, fill), 6);
        QTEST(c.link.outstanding(), "onTheWay");
    }

    // The link lets the transport stop reading while no answer it needs can be whole; never
    // on a line faster than its rate.
    void readingPauses_data()
    {
        QTest::addColumn<Before>("before");
        QTest::addColumn<int>("onTheWay");
        QTest::addColumn<Then>("then");
        QTest::addColumn<double>("pause"); // -1: some pause
        const double margin = LinkTimeouts::ReadPauseMargin.count();
        const double rest = (Frame{1, Protocol::Reply, QByteArray(242, 'r')}.encode().size() - PartBytes) * MsPerByte + margin;
        const double oldest = (Frame{1, Protocol::Read, {}}.encode().size() + Frame::leastWireBytes(242)) * MsPerByte + margin;
        QTest::newRow("a lone request") << Before::Nothing << 1 << Then::Nothing << 0.0;
        QTest::newRow("the rest of an answer") << Before::Nothing << 1 << Then::PartOfTheAnswer << rest;
        QTest::newRow("until the oldest can be answered") << Before::Nothing << 2 << Then::Nothing << oldest;
        QTest::newRow("part of an answer to nothing on the way") << Before::Nothing << 1 << Then::PartOfAnotherAnswer << 0.0;
        QTest::newRow("part of a busy frame") << Before::Nothing << 1 << Then::PartOfABusyFrame << 0.0;
        QTest::newRow("on a line faster than its rate") << Before::AnswerAtOnce << 2 << Then::PartOfTheAnswer << 0.0;
        QTest::newRow("after an early answer to a resend") << Before::AnswerAfterResend << 1 << Then::PartOfTheAnswer << -1.0;
        QTest::newRow("after a timeout") << Before::Nothing << 1 << Then::Timeout << 0.0;
    }
    void readingPauses()
    {
        QFETCH(Before, before);
        QFETCH(int, onTheWay);
        QFETCH(Then, then);
        QFETCH(double, pause);
        Channel c;
        c.transport.msPerByte = MsPerByte;
        if (before != Before::Nothing) { // a long request, whose answer comes long before it could have left
            const uint8_t first = c.link.request(Protocol::Read, QByteArray(2400, 'q'), 242);
            if (before == Before::AnswerAfterResend)
                QTRY_COMPARE_WITH_TIMEOUT(c.transport.written.size(), 2, 2000);
            c.deliver({first, Protocol::Reply, QByteArray(242, 'r')});
        }
        uint8_t number = 0;
        for (int i = 0; i < onTheWay; ++i)
            number = c.link.request(Protocol::Read, {}, 242);
        if (then == Then::Timeout)
            QTRY_COMPARE_WITH_TIMEOUT(c.transport.written.size(), 2, 2000);
        else if (then != Then::Nothing)
            c.transport.deliver(Frame{uint8_t(then == Then::PartOfAnotherAnswer ? number + 100 : number),
                                         then == Then::PartOfABusyFrame ? Protocol::Busy : Protocol::Reply, QByteArray(242, 'r')}
                                       .encode()
                                       .left(PartBytes));
        settle();
        // Within what stuffing and the time the test takes can change.
        const double paused = c.transport.pauses.last();
        QVERIFY2(pause < 0 ? paused > 0 : pause == 0 ? paused == 0 : paused > pause - 5 && paused < pause + 1.5,
                 qPrintable(QString::number(paused)));
    }

    // The boot ROM takes the program block by block on a new channel, the first blocks short
    // until the line has answered some, all short while it damages frames, then starts it; the
    // same program left running is used again; another program, or one that takes none, is a
    // clear failure; a loader that goes sends nothing more.
    void theTransferProgramIsLoadedAndStarted_data()
    {
        QTest::addColumn<Load>("load");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("sends");
        QTest::addColumn<QString>("sizes"); // of the blocks loaded, each new one as it comes
        const QString powerCycle = QStringLiteral("; switch the instrument off and on, then repeat the update");
        QTest::newRow("loaded and started") << Load::Whole << "started 0" << 6 << "64 128 256 152";
        QTest::newRow("every third send damaged") << Load::Noisy << "started 0" << 22 << "64 48 8";
        QTest::newRow("a block refused") << Load::BlockRefused << "the boot ROM refused the block at 200c0 (status 1)" << 4
                                         << "64 128 256";
        QTest::newRow("the port goes") << Load::PortGoes << ScriptedTransport::Lost << 1 << "";
        QTest::newRow("the loader goes") << Load::LoaderGoes << "" << 1 << "";
        QTest::newRow("the same program still runs") << Load::SameProgram << "started 0" << 1 << "";
        QTest::newRow("another program runs") << Load::OtherProgram
                                              << "another transfer program runs in the instrument (CRC-32 ce3037ca, 600 bytes; "
                                                 "this package's is ce3037c9, 600 bytes)" + powerCycle
                                              << 1 << "";
        QTest::newRow("no boot ROM answers") << Load::NoBootRom
                                             << "the instrument runs a program that takes no transfer program (status 65535 at "
                                                "the block at 20000)" + powerCycle
                                             << 2 << "64";
    }
    void theTransferProgramIsLoadedAndStarted()
    {
        QFETCH(Load, load);
        QFETCH(QString, outcome);
        constexpr uint32_t ImageCrc = 0xCE3037C9; // 600 bytes of "k"
        Channel c(0);
        c.transport.instrument = [&](const Frame &request) {
            const bool running = load == Load::SameProgram || load == Load::OtherProgram;
            if (request.type == Protocol::Hello && running)
                return Protocol::Writer().u16(Protocol::Status::Ok).u32(ImageCrc + (load == Load::OtherProgram)).u32(600).done();
            if (request.type == Protocol::Start)
                return Protocol::Writer().u32(Protocol::StartResult::Running).done();
            if (request.type == Protocol::Hello || load == Load::NoBootRom)
                return Protocol::Writer().u16(Protocol::Status::Unknown).done();
            const bool refused = load == Load::BlockRefused && Protocol::Reader(request.payload).u32() == 0x200C0;
            return Protocol::Writer().u16(refused ? Protocol::Status::BadBlockSum : Protocol::Status::Ok).done();
        };
        if (load == Load::PortGoes)
            c.transport.failNextWrites(1, When::FromTheEventLoop);
        if (load == Load::Noisy)
            c.transport.damages = [](qsizetype write) { return write % 3 == 1; };
        auto loader = std::make_unique<TransferProgramLoader>(c.link, QByteArray(600, 'k'), 0x20000, 0x20000);
        QStringList outcomes;
        connect(loader.get(), &TransferProgramLoader::finished, this, [&](uint32_t result) { outcomes << QStringLiteral("started %1").arg(result); });
        connect(loader.get(), &TransferProgramLoader::failed, this, [&](const QString &reason) { outcomes << reason; });
        loader->start();
        QVERIFY(outcomes.isEmpty());
        if (load == Load::LoaderGoes)
            loader.reset();
        QTRY_COMPARE(outcomes.size(), load == Load::LoaderGoes ? 0 : 1);
        settle();
        QCOMPARE(outcomes.value(0), outcome);
        QTEST(int(c.transport.written.size()), "sends");
        QCOMPARE(c.transport.sent(0).type, uint8_t(Protocol::Hello)); // first, on every channel
        uint32_t next = 0x20000, last = next; // each block is the next or the last again
        QStringList sizes;
        for (qsizetype i = 1; i < c.transport.written.size() && c.transport.sent(i).type == Protocol::LoadBlock; ++i) {
            Protocol::Reader block(c.transport.sent(i).payload);
            const uint32_t address = block.u32();
            const auto bytes = QString::number(block.rest().size() - 1); // after the block sum
            QVERIFY(address == next || address == last);
            last = address;
            next = std::max(next, address + bytes.toUInt());
            if (sizes.value(sizes.size() - 1) != bytes)
                sizes << bytes;
        }
        QTEST(sizes.join(QLatin1Char(' ')), "sizes");
        if (outcome == QLatin1String("started 0") && load != Load::SameProgram)
            QCOMPARE(next, 0x20000u + 600);
    }

    // The engine's blocks within an image of `blocks` blocks (0: none announced). Events: sN the
    // engine submits block N, aN the instrument answers block N ("done"), or aN:K with a refusal
    // at block K's address. Then what the engine was told, and the frames written: blocks are
    // answered on their way but for the image's last, whose answer waits for every block's and
    // carries the first refusal; a refusal answers the next block unsent; a block whose answer
    // is overtaken goes again; the oldest block on the way is never outrun by more than the
    // instrument keeps.
    void programBlocks_data()
    {
        QTest::addColumn<int>("blocks");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("told"); // status@block of each answer to the engine
        QTest::addColumn<int>("written");
        QTest::newRow("on their way, the last after every answer")
            << 4 << "s0 s1 s2 s3 a0 a3 a1 a2" << "66@0 66@1 66@2 66@3" << 6;
        QTest::newRow("the last waits for the blocks before it") << 4 << "s0 s1 s2 s3 a0 a3 a1" << "66@0 66@1 66@2" << 6;
        QTest::newRow("a refusal answers the next block") << 4 << "s0 s1 a0:0 s2" << "66@0 66@1 67@0" << 2;
        QTest::newRow("a refusal before the last comes with it")
            << 4 << "s0 s1 s2 s3 a0 a3:1 a2:1 a1:1" << "66@0 66@1 66@2 67@1" << 6;
        QTest::newRow("the last refused") << 2 << "s0 s1 a1:1 a0" << "66@0 67@1" << 3;
        QTest::newRow("the oldest on the way is not outrun")
            << 12 << "s0 s1 s2 a1 s3 a2 s4 a3 s5 a4 s6 a5 s7 a6 s8 a7 a0"
            << "66@0 66@1 66@2 66@3 66@4 66@5 66@6 66@7 66@8" << 13;
        QTest::newRow("no image announced: each waits for its answer") << 0 << "s0 a0 s1 a1" << "66@0 66@1" << 2;
    }
    void programBlocks()
    {
        QFETCH(int, blocks);
        QFETCH(QString, events);
        const auto address = [](int block) { return 0x1000 + block * 240; };
        Channel c;
        if (blocks > 0)
            c.pipeline.expectRange(address(0), blocks * 240);
        for (const QString &event : events.split(QLatin1Char(' '))) {
            const QStringList parts = event.mid(1).split(QLatin1Char(':'));
            const int n = parts[0].toInt();
            if (event.startsWith(QLatin1Char('s')))
                c.submit(program(address(n)));
            else if (parts.size() == 1)
                c.answerAt(address(n), programAnswer(Protocol::Status::Done, address(n)));
            else
                c.answerAt(address(n), programAnswer(Protocol::Status::ProgramFailed, address(parts[1].toInt())));
        }
        QStringList told;
        for (qsizetype i = 0; i < c.answered.size(); ++i) {
            Protocol::Reader answer(c.answerPayload(i));
            const uint16_t status = answer.u16();
            told << QStringLiteral("%1@%2").arg(status).arg((int(answer.u32()) - address(0)) / 240);
        }
        QTEST(told.join(QLatin1Char(' ')), "told");
        QTEST(int(c.transport.written.size()), "written");
        const bool nothingOnTheWay = c.link.outstanding() == 0;
        c.submit(voltageOff); // carried out after every block
        QCOMPARE(c.transport.sent(c.transport.written.size() - 1).type == Protocol::VoltageOff, nothingOnTheWay);
    }

    // While the line damages every n-th frame the engine's blocks and reads go in parts, the
    // smaller the more it damages, and only the damaged parts go again; once it is clean they go
    // whole again. The engine sees one answer per request, the right one, and the instrument
    // has every byte in place.
    void partsFollowTheLine_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<int>("damagedEvery");
        QTest::addColumn<int>("noisyPart"); // the largest part over the noisy line's last blocks
        QTest::newRow("blocks, every fourth frame damaged") << Kind::Program << 4 << 64;
        QTest::newRow("blocks, every other frame damaged") << Kind::Program << 2 << 32;
        QTest::newRow("reads, every fourth frame damaged") << Kind::Read << 4 << 48;
    }
    void partsFollowTheLine()
    {
        QFETCH(Kind, kind);
        QFETCH(int, damagedEvery);
        constexpr int Block = 240, Noisy = 100, Clean = 300, Last = 10;
        Channel c;
        QByteArray flash(Block * (Noisy + Clean), '\0');
        for (qsizetype i = 0; i < flash.size(); ++i)
            flash[i] = char(i * 7 + i / 251);
        const QByteArray image = flash;
        if (kind == Kind::Program)
            flash.fill('\xFF');
        c.transport.instrument = [&](const Frame &request) {
            Protocol::Reader fields(request.payload);
            if (request.type == Protocol::Read) {
                fields.u8();
                const uint32_t address = fields.u32();
                return Protocol::Writer().u16(Protocol::Status::Ok).bytes(flash.mid(address, fields.u32())).done();
            }
            const uint32_t address = fields.u32();
            fields.u8();
            fields.u8();
            const QByteArray data = fields.rest();
            flash.replace(address, data.size(), data);
            return programAnswer(Protocol::Status::Done, int32_t(address));
        };
        c.pipeline.expectRange(0, int32_t(flash.size()));
        const auto partBytes = [&](qsizetype write) {
            Protocol::Reader fields(c.transport.sent(write).payload);
            if (kind == Kind::Program)
                return int(fields.rest().size()) - 6;
            fields.u8();
            fields.u32();
            return int(fields.u32());
        };
        c.transport.damages = [=](qsizetype write) { return write % damagedEvery == 0; };
        int largestPart = 0;
        qsizetype damaged = 0;
        for (int block = 0; block < Noisy + Clean; ++block) {
            if (block == Noisy) { // the line is clean from here on
                c.transport.damages = nullptr;
                damaged = (c.transport.written.size() + damagedEvery - 1) / damagedEvery;
            }
            if (block == Noisy - Last || block == Noisy + Clean - Last)
                largestPart = 0;
            const qsizetype before = c.transport.written.size();
            c.submit(kind == Kind::Program ? program(block * Block, image.mid(block * Block, Block)) : read(block * Block, Block));
            for (int round = 0; round < 100 && c.answered.size() <= block; ++round)
                QCoreApplication::processEvents();
            QCOMPARE(c.answered.size(), block + 1);
            const QByteArray told = c.answerPayload(block);
            QCOMPARE(told, kind == Kind::Program ? programAnswer(Protocol::Status::Done, block * Block)
                                                 : readAnswer(0, 0).left(2) + image.mid(block * Block, Block));
            for (qsizetype i = before; i < c.transport.written.size(); ++i)
                largestPart = std::max(largestPart, partBytes(i));
            if (block == Noisy - 1)
                QTEST(largestPart, "noisyPart");
        }
        QCOMPARE(largestPart, Block);
        QTRY_COMPARE(c.link.outstanding(), 0);
        QCOMPARE(flash, image);
        QCOMPARE(c.link.retransmissions(), damaged);
    }

    // A read also asks for the block after it, never past the end of the range being read,
    // which answers the engine's next read at once or when it arrives; a read elsewhere or any
    // other request drops it. Outside the range nothing is read ahead.
    void readsAreServedFromTheReadAhead()
    {
        Channel c;
        c.pipeline.expectRange(0, 780);
        c.submit(read(0, 240));
        QCOMPARE(c.sentPayload(1), read(240, 240).payload);
        c.answer(0, readAnswer('A', 240));
        c.answer(1, readAnswer('B', 240));
        c.submit(read(240, 240)); // already here
        QCOMPARE(c.answerPayload(1), readAnswer('B', 240));
        QCOMPARE(c.sentPayload(2), read(480, 240).payload);
        c.submit(read(480, 240)); // still on its way
        QCOMPARE(c.answered.size(), 2);
        QCOMPARE(c.sentPayload(3), read(720, 60).payload); // the rest of the range, no more
        c.answer(2, readAnswer('C', 240));
        QCOMPARE(c.answerPayload(2), readAnswer('C', 240));
        c.answer(3, readAnswer('D', 60));
        c.submit(read(720, 60));
        QCOMPARE(c.answerPayload(3), readAnswer('D', 60));
        QCOMPARE(c.transport.written.size(), 4); // nothing past the end

        c.submit(read(0, 240));
        c.submit(voltageOff); // programming may follow: what was read ahead is stale
        c.answer(4, readAnswer('E', 240));
        c.answer(5, readAnswer('F', 240));
        c.answer(6, Protocol::Writer().u16(Protocol::Status::VoltageIsOff).done());
        c.submit(read(240, 240));
        QCOMPARE(c.sentPayload(7), read(240, 240).payload); // asked again, not served from before
        c.submit(read(780, 60)); // outside the range: nothing read ahead
        c.answer(7, readAnswer('G', 240));
        c.answer(8, readAnswer('H', 240));
        QCOMPARE(c.sentPayload(9), read(780, 60).payload);
        QCOMPARE(c.transport.written.size(), 10);
    }

    // Once the transfer program runs: the fastest rate that the instrument names, the port
    // takes and the user allows, the next slower one after a refusal, and the package's rate
    // when the program names no abilities or the new rate is never proved. Then what the set-up
    // reports ("RATE packed|plain: why not faster") and every rate the port was set to.
    void theLineIsSetUpForWhatBothEndsAndTheUserAllow_data()
    {
        QTest::addColumn<int>("named");       // the instrument's highest rate; -1: it does not know Abilities
        QTest::addColumn<QList<int>>("declined"); // rates it declines
        QTest::addColumn<int>("portFastest"); // 0: a GPIB controller, whose rate is its own
        QTest::addColumn<int>("allowed");     // the user's highest rate
        QTest::addColumn<bool>("switchLost"); // nothing sent at the new rate arrives
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QString>("rates");
        const QList<int> none;
        QTest::newRow("a program without abilities") << -1 << none << 4000000 << 921600 << false
                                                     << "115200 plain: the transfer program does not switch to a faster rate" << "";
        QTest::newRow("the fastest all three allow") << 921600 << none << 4000000 << 4000000 << false << "921600 packed: " << "921600";
        QTest::newRow("the port's fastest") << 4000000 << none << 460800 << 4000000 << false << "460800 packed: " << "460800";
        QTest::newRow("the user's limit") << 4000000 << none << 4000000 << 500000 << false << "500000 packed: " << "500000";
        QTest::newRow("no faster rate allowed") << 921600 << none << 4000000 << 0 << false
                                                << "115200 packed: no faster rate is allowed" << "";
        QTest::newRow("declined, then slower") << 921600 << QList<int>{921600, 576000} << 4000000 << 921600 << false
                                               << "500000 packed: " << "500000";
        QTest::newRow("every rate declined") << 921600 << QList<int>{921600, 576000, 500000, 460800, 230400} << 4000000 << 921600
                                             << false << "115200 packed: the instrument declined 230400 to 921600 baud" << "";
        QTest::newRow("the new rate never proved") << 921600 << none << 4000000 << 921600 << true
                                                   << "115200 packed: the instrument did not answer at 921600 baud"
                                                   << "921600 115200";
        QTest::newRow("GPIB keeps the controller's rate") << 921600 << none << 0 << 921600 << false << "0 packed: " << "";
    }
    void theLineIsSetUpForWhatBothEndsAndTheUserAllow()
    {
        QFETCH(int, named);
        QFETCH(QList<int>, declined);
        QFETCH(int, portFastest);
        QFETCH(int, allowed);
        QFETCH(bool, switchLost);
        Channel c;
        c.transport.rate = portFastest > 0 ? PackageRate : 0;
        c.transport.fastestTaken = portFastest;
        if (switchLost)
            c.transport.deafAt = 921600;
        c.transport.instrument = [&](const Frame &request) {
            if (request.type == Protocol::Abilities)
                return named < 0 ? Protocol::Writer().u16(Protocol::Status::Unknown).done()
                                 : Protocol::Writer().u16(Protocol::Status::Ok).u32(uint32_t(named)).u32(3).u32(0).done();
            const bool refused = declined.contains(int(Protocol::Reader(request.payload).u32()));
            return Protocol::Writer().u16(refused ? Protocol::Status::RateNotTaken : Protocol::Status::Ok).done();
        };
        LineRateSwitch line(c.link, c.transport, allowed);
        QString outcome;
        connect(&line, &LineRateSwitch::finished, this, [&](const InstrumentAbilities &abilities, int rate, const QString &note) {
            outcome = QStringLiteral("%1 %2: %3").arg(rate).arg(abilities.packedBlocks ? "packed" : "plain", note);
        });
        connect(&line, &LineRateSwitch::failed, this, [&](const QString &reason) { outcome = reason; });
        line.start();
        QVERIFY(outcome.isEmpty()); // never inside the call
        QTRY_VERIFY_WITH_TIMEOUT(!outcome.isEmpty(), 5000);
        QTEST(outcome, "outcome");
        QStringList rates;
        for (const int rate : std::as_const(c.transport.rates))
            rates << QString::number(rate);
        QTEST(rates.join(QLatin1Char(' ')), "rates");
    }

    // Program requests of any block size go packed: each block's data inflates on its own to
    // exactly the block, also in another order and across a new image; a block that does not
    // shrink goes as the Program request it was.
    void packedBlocksInflateOnTheirOwn_data()
    {
        QTest::addColumn<int>("block");
        for (const int block : {240, 1024, 4000})
            QTest::addRow("%d-byte blocks", block) << block;
    }
    void packedBlocksInflateOnTheirOwn()
    {
        QFETCH(int, block);
        const QByteArray code = QByteArray("\x90\x8B\x46\x04\xE8\x10\x27\x50\x5D\xC3").repeated(410);
        QByteArray random(block, '\0');
        QRandomGenerator(block).fillRange(reinterpret_cast<quint32 *>(random.data()), block / 4);
        BlockCompressor compressor;
        QList<QByteArray> blocks;
        QList<BlockCompressor::Request> sent;
        for (int n = 0; n < 4; ++n) {
            if (n == 2)
                compressor.startImage();
            blocks << code.mid(n * 7, block);
            sent << compressor.pack(program(0x1000 + n * block).payload.left(6) + blocks.last());
        }
        for (qsizetype n = sent.size() - 1; n >= 0; --n) { // last first
            QCOMPARE(sent[n].type, uint8_t(Protocol::ProgramPacked));
            Protocol::Reader packed(sent[n].payload);
            QCOMPARE(packed.u32(), uint32_t(0x1000 + n * block));
            packed.u16();
            QCOMPARE(packed.u16(), uint16_t(block));
            const QByteArray data = packed.rest();
            QVERIFY2(data.size() < block / 2, qPrintable(QString::number(data.size())));
            QCOMPARE(inflated(data, block), blocks[n]);
        }
        const QByteArray plain = program(0x9000).payload.left(6) + random;
        const BlockCompressor::Request unchanged = compressor.pack(plain);
        QCOMPARE(unchanged.type, uint8_t(Protocol::Program));
        QCOMPARE(unchanged.payload, plain);
    }

    // The example exchanges of docs/protocol.md, replayed into the simulated instrument: it
    // answers each request with exactly the bytes shown, and the host's frames are exactly what
    // the host's encoder makes (CRC, stuffing, field order).
    void theDocumentedExampleIsExact()
    {
        QFile document(QStringLiteral(VARNOLT_PROTOCOL_DOC));
        QVERIFY(document.open(QIODevice::ReadOnly));
        InstrumentOptions options;
        options.flash = {{QStringLiteral("AM29F040"), 0}};
        options.timeScale = 0;
        SimulatedInstrument instrument(options);
        QByteArray said;
        connect(&instrument, &SimulatedInstrument::send, this, [&](const QByteArray &bytes) { said += bytes; });
        QList<QPair<QByteArray, QByteArray>> exchanges; // a request and the answer to it
        for (const QByteArray &line : document.readAll().split('\n')) {
            if (line.startsWith("host "))
                exchanges.append({QByteArray::fromHex(line.mid(5)), {}});
            else if (line.startsWith("inst ") && !exchanges.isEmpty())
                exchanges.last().second += QByteArray::fromHex(line.mid(5));
        }
        QCOMPARE(exchanges.size(), 35);
        for (const auto &[request, answer] : std::as_const(exchanges)) {
            said.clear();
            instrument.receive(request);
            QCOMPARE(said.toHex(' '), answer.toHex(' '));
            const QList<Frame> frames = FrameDecoder().feed(request);
            if (!frames.isEmpty()) // the damaged one excepted
                QCOMPARE(frames.first().encode().toHex(' '), request.toHex(' '));
        }
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
