#pragma once
// Keeps the line busy without changing what the engine sees. The engine asks one thing at a
// time and waits for the answer; sent one by one, a serial line would stand idle while the
// instrument programs a block and answers, and while the host turns the answer round. So:
//  - a Program request is answered "done" as soon as it is on its way, as long as the link has
//    room (Link::Window); the instrument's own answer arrives while the next block is sent. A
//    block the instrument could not program is reported at the engine's next Program request,
//    with the block's own address, and at any other request as an error. Either way the
//    engine stops, and the checksum that ends every image still checks every byte;
//  - a Read of n bytes at A also asks for the n bytes at A + n, which answer the engine's next
//    Read while a read-back goes on (reading changes nothing on the instrument);
//  - every other request waits until the link has nothing on the way, so it is carried out
//    after everything sent before it.
// Answers and failures are always raised from the event loop, never inside submit. The link
// never answers or fails inside its request() either, so every request is recorded as on the
// way before anything can be heard of it.
#include "link/Link.h"

#include <QByteArray>
#include <QObject>
#include <map>
#include <optional>

class RequestPipeline : public QObject {
    Q_OBJECT
public:
    enum class Kind { Identify, VoltageOn, VoltageOff, Erase, Restart, Program, Read, Checksum };

    struct Request {
        Kind kind;
        uint8_t type;
        QByteArray payload;
        int expectedReplyBytes = 16;
        // Program and Read: where and how much, for early answers and reading ahead.
        uint8_t architecture = 0;
        int32_t address = 0;
        int32_t count = 0;
    };

    explicit RequestPipeline(Link &link, QObject *parent = nullptr);

    void submit(const Request &request);
    // Forgets everything on the way (the channel is closing).
    void reset();

signals:
    // The answer to the engine's request, laid out as the instrument's Reply.
    void answered(RequestPipeline::Kind kind, const QByteArray &payload);
    // A block answered "done" earlier was not programmed; raised at the next request that is
    // not a Program request.
    void programmingFailedEarlier(int32_t address, uint16_t status);
    // The link failed while the engine waited, or before its next request.
    void failed(Link::Failure failure, const QString &reason);

private:
    enum class Purpose { Engine, ProgramBehind, ReadAhead, Nobody };
    struct InFlight {
        Purpose purpose;
        Kind kind;
    };
    struct ReadAhead {
        uint8_t sequence;
        uint8_t architecture;
        int32_t address;
        int32_t count;
        std::optional<QByteArray> payload;
    };
    struct ProgramFailure {
        int32_t address;
        uint16_t status;
    };

    // submit's work, also for a held request once there is room.
    void take(const Request &request);
    void onReplied(uint8_t sequence, const QByteArray &payload);
    void onFailed(Link::Failure failure, const QString &reason);
    bool roomFor(Kind kind) const;
    void dispatch(const Request &request);
    bool answerFromReadAhead(const Request &request);
    // Asks for count bytes from after (-1: nothing to read ahead).
    void readAhead(uint8_t architecture, int32_t after, int32_t count);
    void dropReadAhead();
    // Emits at once when on the event loop, later when inside submit.
    void answer(Kind kind, const QByteArray &payload);
    bool engineWaits() const;

    Link &m_link;
    std::map<uint8_t, InFlight> m_inFlight;
    std::optional<Request> m_held; // the engine's request, waiting for room on the link
    std::optional<ReadAhead> m_readAhead;
    std::optional<ProgramFailure> m_programFailure;
    std::optional<std::pair<Link::Failure, QString>> m_linkFailure;
    bool m_inSubmit = false;
};
