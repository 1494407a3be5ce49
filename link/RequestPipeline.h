#pragma once
// Keeps the line busy without changing what the engine sees. The engine asks one thing at a
// time and waits for the answer; sent one by one, a serial line would stand idle while the
// instrument programs a block and answers, and while the host turns the answer round. So,
// within the range the engine says its next Program or Read requests cover (expectRange):
//  - a Program request is answered "done" as soon as it is on its way, as long as the link has
//    room, unless it is the range's last block: that one's answer waits for the instrument's
//    answers to every block before it. A refused block is reported, with the address the
//    instrument gave, as the answer to the engine's next Program request, at the latest the
//    last one. The instrument refuses every block after a refused one until the next image,
//    so nothing is written behind a failure;
//  - a Read of n bytes at A also asks for up to n bytes after it, never past the range's end
//    (outside it may lie registers that reading changes), which answer the engine's next Read;
//  - every other request waits until the link has nothing on the way, so it is carried out
//    after everything sent before it.
// Outside a range, or without one, every request waits for its own answer. A Program or Read
// request goes in parts as small as the link advises for the line (RequestSplitter); the engine
// still sees one answer per request: a block on its way once all its parts are, a read once all
// its parts are answered, with the first failing part's status (and a refused part's address).
// With packBlocks, every Program part goes out compressed on its own as it is sent
// (BlockCompressor), one stream per image: each range and each VoltageOn starts a new one.
// Answers and failures are always raised from the event loop, never inside submit. The link
// never answers or fails inside its request() either, so every request is recorded as on the
// way before anything can be heard of it.
#include "link/BlockCompressor.h"
#include "link/Link.h"
#include "link/Protocol.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <map>
#include <memory>
#include <optional>

class RequestPipeline : public QObject {
    Q_OBJECT
public:
    enum class Kind { Identify, VoltageOn, VoltageOff, Erase, Restart, Program, Read, Checksum, RangeCrc };

    struct Request {
        Kind kind;
        uint8_t type;
        QByteArray payload;
        int expectedReplyBytes = Protocol::ShortAnswerBytes;
        // Program and Read: where and how much, for early answers and reading ahead.
        uint8_t architecture = 0;
        int32_t address = 0;
        int32_t count = 0;
    };

    explicit RequestPipeline(Link &link, QObject *parent = nullptr);

    void submit(const Request &request);
    // The range that the Program or Read requests from now on cover: an image, or a range read
    // back.
    void expectRange(int32_t address, int32_t length);
    // Whether Program requests go out compressed (the instrument takes ProgramPacked).
    void packBlocks(bool pack);
    // Forgets everything on the way (the channel is closing).
    void reset();
    // Bytes that packing kept off the line in the answered blocks: the link's payload bytes
    // plus these are the bytes as the engine sees them.
    int64_t bytesPackedAway() const { return m_bytesPackedAway; }

signals:
    // The answer to the engine's request, laid out as the instrument's Reply.
    void answered(RequestPipeline::Kind kind, const QByteArray &payload);
    // A block answered "done" earlier was not programmed; raised at the next request that is
    // not a Program request (the engine stopped an image before its last block).
    void programmingFailedEarlier(int32_t address, uint16_t status);
    // The link failed while the engine waited, or before its next request.
    void failed(Link::Failure failure, const QString &reason);

private:
    // What a part's answer is for: the engine's request, a block already answered (which tells
    // only of a refusal), the range read ahead, or nothing any more.
    enum class Purpose { Engine, Block, ReadAhead, Nobody };
    struct InFlight {
        Purpose purpose;
        Kind kind;
        int part;                 // its place in its request
        qsizetype packedAway = 0; // the part's payload bytes that packing saved
    };
    // A request of the engine's, or the range read ahead, and how its parts are getting on.
    struct Job {
        Request request;
        QList<Request> unsent;                         // its parts not on their way yet, in order
        QList<std::optional<QByteArray>> answers;      // each part's answer, as they come
        bool answered() const;
    };
    struct ProgramFailure {
        int32_t address;
        uint16_t status;
    };
    struct Range {
        uint32_t address;
        uint32_t length;
        // Bytes of the range from address on; 0 when address lies outside it.
        uint32_t bytesFrom(int32_t address) const;
    };

    // submit's work.
    void take(const Request &request);
    Job jobFor(const Request &request) const;
    void onReplied(uint8_t sequence, const QByteArray &payload);
    void onFailed(Link::Failure failure, const QString &reason);
    bool roomFor(Kind kind) const;
    // Sends what there is room for: the engine's parts first, then those read ahead; answers a
    // block that is due.
    void sendParts();
    void sendNextPart(Job &job, Purpose purpose);
    // A block before the range's last, which may be answered on its way.
    bool answersEarly(const Request &request) const;
    // The engine's block: on its way, early; or once every block before it is answered; a
    // refusal at once.
    void answerBlockWhenDue();
    // The engine's other request, once all its parts are answered.
    void answerWhenComplete();
    bool answerFromReadAhead(const Request &request);
    // Asks for up to count bytes from after, within the range.
    void readAhead(uint8_t architecture, int32_t after, int32_t count);
    void dropReadAhead();
    // The parts on their way for that purpose are answered to nobody.
    void answerNobody(Purpose purpose);
    // Emits at once when on the event loop, later when inside submit.
    void answer(Kind kind, const QByteArray &payload);
    bool blocksOnTheirWay() const;

    Link &m_link;
    std::map<uint8_t, InFlight> m_inFlight;
    std::optional<Job> m_job; // the engine's request not answered yet
    std::optional<Job> m_readAhead;
    std::optional<Range> m_range;
    std::optional<ProgramFailure> m_programFailure;
    std::optional<std::pair<Link::Failure, QString>> m_linkFailure;
    std::unique_ptr<BlockCompressor> m_compressor; // when the instrument takes packed blocks
    bool m_inSubmit = false;
    int64_t m_bytesPackedAway = 0;
};
