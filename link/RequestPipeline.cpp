#include "link/RequestPipeline.h"

#include "link/Protocol.h"
#include "link/RequestSplitter.h"

#include <QScopedValueRollback>
#include <algorithm>

namespace {
QByteArray programAnswer(uint16_t status, int32_t address)
{
    return Protocol::Writer().u16(status).u32(uint32_t(address)).done();
}
} // namespace

uint32_t RequestPipeline::Range::bytesFrom(int32_t at) const
{
    // Unsigned offsets: a range at the top of the address space, whose end wraps to 0, is a
    // range like any other.
    const uint32_t offset = uint32_t(at) - address;
    return offset < length ? length - offset : 0;
}

RequestPipeline::RequestPipeline(Link &link, QObject *parent) : QObject(parent), m_link(link)
{
    connect(&m_link, &Link::replied, this, &RequestPipeline::onReplied);
    connect(&m_link, &Link::failed, this, &RequestPipeline::onFailed);
}

void RequestPipeline::expectRange(int32_t address, int32_t length)
{
    m_range = Range{uint32_t(address), uint32_t(std::max(length, 0))};
    if (m_compressor)
        m_compressor->startImage();
}

void RequestPipeline::packBlocks(bool pack)
{
    m_compressor = pack ? std::make_unique<BlockCompressor>() : nullptr;
}

void RequestPipeline::reset()
{
    m_inFlight.clear();
    m_job.reset();
    m_readAhead.reset();
    m_range.reset();
    m_programFailure.reset();
    m_linkFailure.reset();
}

void RequestPipeline::submit(const Request &request)
{
    const QScopedValueRollback<bool> inSubmit(m_inSubmit, true);
    take(request);
}

void RequestPipeline::take(const Request &request)
{
    if (m_linkFailure) {
        const auto [failure, reason] = *m_linkFailure;
        m_linkFailure.reset();
        QMetaObject::invokeMethod(this, [this, failure, reason] { emit failed(failure, reason); }, Qt::QueuedConnection);
        return;
    }
    if (request.kind != Kind::Read)
        dropReadAhead(); // what it read may be about to change
    else if (answerFromReadAhead(request))
        return;
    if (request.kind == Kind::Program && m_programFailure) {
        const ProgramFailure failure = *m_programFailure;
        m_programFailure.reset();
        answer(Kind::Program, programAnswer(failure.status, failure.address));
        return;
    }
    answerNobody(Purpose::Engine); // a request the engine gave up waiting for
    m_job = jobFor(request);
    if (request.kind == Kind::Read)
        readAhead(request.architecture, int32_t(uint32_t(request.address) + uint32_t(request.count)), request.count);
    sendParts();
}

RequestPipeline::Job RequestPipeline::jobFor(const Request &request) const
{
    const QList<Request> parts = RequestSplitter::split(request, m_link.largestData());
    return Job{request, parts, QList<std::optional<QByteArray>>(parts.size())};
}

bool RequestPipeline::Job::answered() const
{
    return unsent.isEmpty() && std::all_of(answers.begin(), answers.end(), [](const auto &a) { return a.has_value(); });
}

// Program parts go behind Program parts and Read parts behind Read parts, as many as the link
// has room for: the order in which the instrument carries them out changes nothing. Every other
// request waits until nothing is on the way.
bool RequestPipeline::roomFor(Kind kind) const
{
    if (kind != Kind::Program && kind != Kind::Read)
        return m_link.outstanding() == 0;
    return m_link.hasRoom()
           && std::all_of(m_inFlight.begin(), m_inFlight.end(), [kind](const auto &entry) { return entry.second.kind == kind; });
}

bool RequestPipeline::answersEarly(const Request &request) const
{
    return m_range && uint32_t(std::max(request.count, 0)) < m_range->bytesFrom(request.address);
}

void RequestPipeline::sendParts()
{
    if (m_job && m_job->request.kind == Kind::Program) {
        while (!m_programFailure && !m_job->unsent.isEmpty() && roomFor(Kind::Program))
            sendNextPart(*m_job, Purpose::Block);
        answerBlockWhenDue();
    } else if (m_job && !m_job->unsent.isEmpty() && roomFor(m_job->request.kind) && m_programFailure) {
        const ProgramFailure failure = *m_programFailure; // the engine stopped an image before its last block
        m_programFailure.reset();
        m_job.reset();
        QMetaObject::invokeMethod(
            this, [this, failure] { emit programmingFailedEarlier(failure.address, failure.status); }, Qt::QueuedConnection);
    } else if (m_job) {
        while (!m_job->unsent.isEmpty() && roomFor(m_job->request.kind))
            sendNextPart(*m_job, Purpose::Engine);
    }
    while (m_readAhead && !m_readAhead->unsent.isEmpty() && (!m_job || m_job->unsent.isEmpty()) && roomFor(Kind::Read))
        sendNextPart(*m_readAhead, Purpose::ReadAhead);
}

void RequestPipeline::sendNextPart(Job &job, Purpose purpose)
{
    const Request part = job.unsent.takeFirst();
    if (part.kind == Kind::VoltageOn && m_compressor)
        m_compressor->startImage();
    // Each part packed on its own as it goes; sent again, it goes as it went.
    const BlockCompressor::Request sent = part.kind == Kind::Program && m_compressor
                                              ? m_compressor->pack(part.payload)
                                              : BlockCompressor::Request{part.type, part.payload};
    const uint8_t sequence = m_link.request(sent.type, sent.payload, part.expectedReplyBytes);
    m_inFlight[sequence] = {purpose, part.kind, int(job.answers.size() - job.unsent.size()) - 1,
                            part.payload.size() - sent.payload.size()};
}

void RequestPipeline::answerBlockWhenDue()
{
    const bool sent = m_job->unsent.isEmpty();
    if (m_programFailure && (!sent || !blocksOnTheirWay())) { // the first refusal, wherever it was
        const ProgramFailure failure = *m_programFailure;
        m_programFailure.reset();
        m_job.reset(); // what is not on its way stays unsent
        answer(Kind::Program, programAnswer(failure.status, failure.address));
    } else if (!m_programFailure && sent && (answersEarly(m_job->request) || !blocksOnTheirWay())) {
        const int32_t address = m_job->request.address;
        m_job.reset();
        answer(Kind::Program, programAnswer(Protocol::Status::Done, address));
    }
}

void RequestPipeline::answerWhenComplete()
{
    if (!m_job || m_job->request.kind == Kind::Program || !m_job->answered())
        return;
    const Kind kind = m_job->request.kind;
    QList<QByteArray> answers;
    for (const std::optional<QByteArray> &part : std::as_const(m_job->answers))
        answers << *part;
    m_job.reset();
    answer(kind, kind == Kind::Read ? RequestSplitter::joinedRead(answers) : answers.first());
}

bool RequestPipeline::answerFromReadAhead(const Request &request)
{
    if (!m_readAhead || m_readAhead->request.architecture != request.architecture
        || m_readAhead->request.address != request.address || m_readAhead->request.count != request.count) {
        dropReadAhead();
        return false;
    }
    answerNobody(Purpose::Engine);
    for (auto &entry : m_inFlight)
        if (entry.second.purpose == Purpose::ReadAhead)
            entry.second.purpose = Purpose::Engine; // the engine now waits for them
    m_job = std::move(*m_readAhead);
    m_readAhead.reset();
    readAhead(request.architecture, int32_t(uint32_t(request.address) + uint32_t(request.count)), request.count);
    answerWhenComplete();
    sendParts();
    return true;
}

void RequestPipeline::readAhead(uint8_t architecture, int32_t after, int32_t count)
{
    const uint32_t left = m_range ? m_range->bytesFrom(after) : 0;
    if (count <= 0 || left == 0)
        return;
    const auto ahead = int32_t(std::min(uint32_t(count), left));
    const QByteArray payload = Protocol::Writer().u8(architecture).u32(uint32_t(after)).u32(uint32_t(ahead)).done();
    m_readAhead = jobFor({Kind::Read, Protocol::Read, payload, ahead + 2, architecture, after, ahead});
}

void RequestPipeline::dropReadAhead()
{
    answerNobody(Purpose::ReadAhead);
    m_readAhead.reset();
}

void RequestPipeline::answerNobody(Purpose purpose)
{
    for (auto &entry : m_inFlight)
        if (entry.second.purpose == purpose)
            entry.second.purpose = Purpose::Nobody;
}

void RequestPipeline::answer(Kind kind, const QByteArray &payload)
{
    if (!m_inSubmit) {
        emit answered(kind, payload); // already on the event loop (a part's answer completed it)
        return;
    }
    // A posted call rather than a zero-time single shot, which makes a timer object each time.
    QMetaObject::invokeMethod(this, [this, kind, payload] { emit answered(kind, payload); }, Qt::QueuedConnection);
}

bool RequestPipeline::blocksOnTheirWay() const
{
    return std::any_of(m_inFlight.begin(), m_inFlight.end(),
                       [](const auto &entry) { return entry.second.purpose == Purpose::Block; });
}

void RequestPipeline::onReplied(uint8_t sequence, const QByteArray &payload)
{
    const auto it = m_inFlight.find(sequence);
    if (it == m_inFlight.end())
        return; // an answer taken by whoever asked (the boot ROM's, the voltage's at close)
    const InFlight inFlight = it->second;
    m_inFlight.erase(it);
    m_bytesPackedAway += inFlight.packedAway;
    switch (inFlight.purpose) {
    case Purpose::Engine:
        m_job->answers[inFlight.part] = payload;
        break;
    case Purpose::Block: {
        Protocol::Reader reply(payload);
        const uint16_t status = reply.u16();
        const auto address = int32_t(reply.u32());
        if (status != Protocol::Status::Done && !m_programFailure)
            m_programFailure = ProgramFailure{address, status};
        break;
    }
    case Purpose::ReadAhead:
        m_readAhead->answers[inFlight.part] = payload;
        break;
    case Purpose::Nobody:
        break;
    }
    answerWhenComplete();
    sendParts();
}

void RequestPipeline::onFailed(Link::Failure failure, const QString &reason)
{
    const bool engineWaits = m_job.has_value();
    m_inFlight.clear();
    m_job.reset();
    m_readAhead.reset();
    if (engineWaits)
        emit failed(failure, reason);
    else
        m_linkFailure = std::make_pair(failure, reason); // told at the engine's next request
}
