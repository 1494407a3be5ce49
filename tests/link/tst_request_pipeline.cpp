// The request pipeline: what the engine is told and when, and what goes on the wire, with
// the instrument's answers scripted.
#include "tests/link/ScriptedTransport.h"
#include "link/FrameDecoder.h"
#include "link/Protocol.h"
#include "link/RequestPipeline.h"

#include <QSignalSpy>
#include <QtTest>

namespace {
using Kind = RequestPipeline::Kind;
using Request = RequestPipeline::Request;

Request program(int32_t address, int32_t count = 240)
{
    const QByteArray data(count, '\x55');
    return {Kind::Program, Protocol::Program, Protocol::Writer().u32(uint32_t(address)).u8(2).u8(22).bytes(data).done(), 16, 2,
            address, count};
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

// One scripted channel: transport, link and pipeline, and what the pipeline said.
struct Channel {
    ScriptedTransport transport;
    Link link{transport};
    RequestPipeline pipeline{link};
    QSignalSpy answered{&pipeline, &RequestPipeline::answered};
    QSignalSpy failedEarlier{&pipeline, &RequestPipeline::programmingFailedEarlier};
    QSignalSpy failed{&pipeline, &RequestPipeline::failed};

    Frame sent(qsizetype index) const
    {
        FrameDecoder decoder;
        const QList<Frame> frames = decoder.feed(transport.written.at(index));
        return frames.value(0);
    }
    // The instrument answers the index-th frame written.
    void answer(qsizetype index, const QByteArray &payload) { transport.deliver(Frame{sent(index).sequence, Protocol::Reply, payload}.encode()); }
    // Lets queued answers out.
    static void settle() { QCoreApplication::processEvents(); }
    QByteArray answerPayload(qsizetype index) const { return answered.at(index).at(1).toByteArray(); }
};
} // namespace

class RequestPipelineTest : public QObject {
    Q_OBJECT
private slots:
    void programBlocksAreAnsweredOnceOnTheirWayUpToTheWindow()
    {
        Channel c;
        for (int i = 0; i < Link::Window; ++i) {
            c.pipeline.submit(program(0x1000 + i * 240));
            QCOMPARE(c.answered.size(), i); // never inside submit
            Channel::settle();
            QCOMPARE(c.answered.size(), i + 1);
            QCOMPARE(c.answerPayload(i), programAnswer(Protocol::Status::Done, 0x1000 + i * 240));
        }
        QCOMPARE(c.transport.written.size(), Link::Window);
        c.pipeline.submit(program(0x1000 + Link::Window * 240)); // the window is full: it waits
        Channel::settle();
        QCOMPARE(c.answered.size(), Link::Window);
        QCOMPARE(c.transport.written.size(), Link::Window);
        c.answer(0, programAnswer(Protocol::Status::Done, 0x1000));
        Channel::settle();
        QCOMPARE(c.transport.written.size(), Link::Window + 1);
        QCOMPARE(c.answered.size(), Link::Window + 1);
    }

    void aBlockThatFailedIsReportedAtTheNextBlockWithItsOwnAddress()
    {
        Channel c;
        c.pipeline.submit(program(0x2000));
        Channel::settle();
        c.answer(0, programAnswer(Protocol::Status::ProgramFailed, 0x2010));
        c.pipeline.submit(program(0x20F0));
        Channel::settle();
        QCOMPARE(c.answered.size(), 2);
        QCOMPARE(c.answerPayload(1), programAnswer(Protocol::Status::ProgramFailed, 0x2010));
        QCOMPARE(c.transport.written.size(), 1); // the next block was not sent
    }

    void otherRequestsWaitUntilEveryBlockIsAnswered()
    {
        Channel c;
        c.pipeline.submit(program(0x3000));
        Channel::settle();
        c.pipeline.submit(program(0x30F0));
        Channel::settle();
        c.pipeline.submit(voltageOff);
        QCOMPARE(c.transport.written.size(), 2);
        c.answer(0, programAnswer(Protocol::Status::Done, 0x3000));
        QCOMPARE(c.transport.written.size(), 2);
        c.answer(1, programAnswer(Protocol::Status::Done, 0x30F0));
        QCOMPARE(c.transport.written.size(), 3);
        QCOMPARE(c.sent(2).type, uint8_t(Protocol::VoltageOff));
        c.answer(2, Protocol::Writer().u16(Protocol::Status::VoltageIsOff).done());
        QCOMPARE(c.answered.last().at(0).value<Kind>(), Kind::VoltageOff);
    }

    void aLastBlockThatFailedStopsTheNextRequest()
    {
        Channel c;
        c.pipeline.submit(program(0x4000));
        Channel::settle();
        c.pipeline.submit(voltageOff);
        c.answer(0, programAnswer(Protocol::Status::ProgramFailed, 0x4000));
        Channel::settle();
        QCOMPARE(c.failedEarlier.size(), 1);
        QCOMPARE(c.failedEarlier.at(0).at(0).toInt(), 0x4000);
        QCOMPARE(c.transport.written.size(), 1); // the voltage stays as it is: the engine stops here
        QCOMPARE(c.answered.size(), 1);
    }

    void aReadBackIsServedFromTheReadAhead()
    {
        Channel c;
        c.pipeline.submit(read(0, 240));
        QCOMPARE(c.transport.written.size(), 2);
        QCOMPARE(c.sent(1).payload, read(240, 240).payload);
        const QByteArray first = Protocol::Writer().u16(0).bytes(QByteArray(240, 'A')).done();
        const QByteArray second = Protocol::Writer().u16(0).bytes(QByteArray(240, 'B')).done();
        c.answer(0, first);
        c.answer(1, second);
        QCOMPARE(c.answered.size(), 1);
        QCOMPARE(c.answerPayload(0), first);
        c.pipeline.submit(read(240, 240));
        QCOMPARE(c.transport.written.size(), 3); // the next read ahead is on its way at once
        QCOMPARE(c.sent(2).payload, read(480, 240).payload);
        Channel::settle();
        QCOMPARE(c.answerPayload(1), second);
    }

    void aReadAheadStillOnItsWayAnswersWhenItArrives()
    {
        Channel c;
        c.pipeline.submit(read(0, 100));
        c.answer(0, Protocol::Writer().u16(0).bytes(QByteArray(100, 'A')).done());
        c.pipeline.submit(read(100, 100));
        QCOMPARE(c.answered.size(), 1);
        c.answer(1, Protocol::Writer().u16(0).bytes(QByteArray(100, 'B')).done());
        QCOMPARE(c.answered.size(), 2);
        QCOMPARE(c.answerPayload(1).mid(2), QByteArray(100, 'B'));
    }

    void aReadElsewhereOrAnotherRequestDropsTheReadAhead()
    {
        Channel c;
        c.pipeline.submit(read(0, 100));
        c.answer(0, Protocol::Writer().u16(0).bytes(QByteArray(100, 'A')).done());
        c.pipeline.submit(read(100, 60)); // the end of the range: shorter than the read ahead
        QCOMPARE(c.transport.written.size(), 2); // waits for the read ahead to come back
        c.answer(1, Protocol::Writer().u16(0).bytes(QByteArray(100, 'B')).done());
        QCOMPARE(c.transport.written.size(), 4);
        QCOMPARE(c.sent(2).payload, read(100, 60).payload);
        c.answer(2, Protocol::Writer().u16(0).bytes(QByteArray(60, 'C')).done());
        QCOMPARE(c.answerPayload(1).mid(2), QByteArray(60, 'C'));

        c.pipeline.submit(voltageOff); // programming may follow: what was read ahead is stale
        c.answer(3, Protocol::Writer().u16(0).bytes(QByteArray(60, 'D')).done());
        QCOMPARE(c.sent(4).type, uint8_t(Protocol::VoltageOff));
        c.answer(4, Protocol::Writer().u16(Protocol::Status::VoltageIsOff).done());
        c.pipeline.submit(read(160, 60));
        QCOMPARE(c.sent(5).payload, read(160, 60).payload); // asked again, not served from before
    }

    void aBrokenLineIsToldWhenTheEngineWaitsOrAtItsNextRequest()
    {
        Channel waiting;
        waiting.pipeline.submit(voltageOff);
        waiting.transport.breakDown();
        QCOMPARE(waiting.failed.size(), 1);

        Channel between;
        between.pipeline.submit(program(0x5000));
        Channel::settle();
        between.transport.breakDown(); // the engine is preparing its next block
        QCOMPARE(between.failed.size(), 0);
        between.pipeline.submit(program(0x50F0));
        Channel::settle();
        QCOMPARE(between.failed.size(), 1);
        QCOMPARE(between.failed.at(0).at(1).toString(), QStringLiteral("the serial port went away"));
        QCOMPARE(between.transport.written.size(), 1);
    }
};

QTEST_GUILESS_MAIN(RequestPipelineTest)
#include "tst_request_pipeline.moc"
