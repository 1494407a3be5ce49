#include "link/RequestPipeline.h"

#include "link/Protocol.h"

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
    m_held.reset();
    m_readAhead.reset();
    m_range.reset();
    m_waitingBlockAnswer.reset();
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
    if (!roomFor(request.kind)) {
        m_held = request;
        return;
    }
    dispatch(request);
}

bool RequestPipeline::roomFor(Kind kind) const
{
    if (kind != Kind::Program)
        return m_link.outstanding() == 0;
    return m_link.hasRoom() && std::all_of(m_inFlight.begin(), m_inFlight.end(), [](const auto &entry) {
               return entry.second.purpose == Purpose::ProgramBehind;
           });
}

bool RequestPipeline::answersEarly(const Request &request) const
{
    return m_range && uint32_t(std::max(request.count, 0)) < m_range->bytesFrom(request.address);
}

void RequestPipeline::dispatch(const Request &request)
{
    if (request.kind != Kind::Program && m_programFailure) {
        const ProgramFailure failure = *m_programFailure;
        m_programFailure.reset();
        QMetaObject::invokeMethod(
            this, [this, failure] { emit programmingFailedEarlier(failure.address, failure.status); }, Qt::QueuedConnection);
        return;
    }
    if (request.kind == Kind::VoltageOn && m_compressor)
        m_compressor->startImage();
    const BlockCompressor::Request sent = request.kind == Kind::Program && m_compressor
                                              ? m_compressor->pack(request.payload)
                                              : BlockCompressor::Request{request.type, request.payload};
    const uint8_t sequence = m_link.request(sent.type, sent.payload, request.expectedReplyBytes);
    const qsizetype packedAway = request.payload.size() - sent.payload.size();
    if (request.kind == Kind::Program && answersEarly(request)) {
        m_inFlight[sequence] = {Purpose::ProgramBehind, Kind::Program, packedAway};
        answer(Kind::Program, programAnswer(Protocol::Status::Done, request.address));
        return;
    }
    m_inFlight[sequence] = {Purpose::Engine, request.kind, packedAway};
    if (request.kind == Kind::Read)
        readAhead(request.architecture, int32_t(uint32_t(request.address) + uint32_t(request.count)), request.count);
}

bool RequestPipeline::answerFromReadAhead(const Request &request)
{
    if (!m_readAhead || m_readAhead->architecture != request.architecture || m_readAhead->address != request.address
        || m_readAhead->count != request.count) {
        dropReadAhead();
        return false;
    }
    const ReadAhead ahead = *m_readAhead;
    m_readAhead.reset();
    if (ahead.payload)
        answer(Kind::Read, *ahead.payload);
    else
        m_inFlight[ahead.sequence].purpose = Purpose::Engine; // still on the way: the engine now waits for it
    readAhead(request.architecture, int32_t(uint32_t(request.address) + uint32_t(request.count)), request.count);
    return true;
}

void RequestPipeline::readAhead(uint8_t architecture, int32_t after, int32_t count)
{
    const uint32_t left = m_range ? m_range->bytesFrom(after) : 0;
    if (count <= 0 || left == 0)
        return;
    const auto ahead = int32_t(std::min(uint32_t(count), left));
    const QByteArray payload = Protocol::Writer().u8(architecture).u32(uint32_t(after)).u32(uint32_t(ahead)).done();
    const uint8_t sequence = m_link.request(Protocol::Read, payload, ahead + 2);
    m_inFlight[sequence] = {Purpose::ReadAhead, Kind::Read};
    m_readAhead = ReadAhead{sequence, architecture, after, ahead, std::nullopt};
}

void RequestPipeline::dropReadAhead()
{
    if (!m_readAhead)
        return;
    if (const auto it = m_inFlight.find(m_readAhead->sequence); it != m_inFlight.end())
        it->second.purpose = Purpose::Nobody;
    m_readAhead.reset();
}

void RequestPipeline::answer(Kind kind, const QByteArray &payload)
{
    if (!m_inSubmit) {
        emit answered(kind, payload); // already on the event loop (a held request went out)
        return;
    }
    // A posted call rather than a zero-time single shot, which makes a timer object each time.
    QMetaObject::invokeMethod(this, [this, kind, payload] { emit answered(kind, payload); }, Qt::QueuedConnection);
}

bool RequestPipeline::blocksBehind() const
{
    return std::any_of(m_inFlight.begin(), m_inFlight.end(),
                       [](const auto &entry) { return entry.second.purpose == Purpose::ProgramBehind; });
}

void RequestPipeline::answerWaitingBlock()
{
    if (!m_waitingBlockAnswer || blocksBehind())
        return;
    QByteArray payload = *m_waitingBlockAnswer;
    m_waitingBlockAnswer.reset();
    if (m_programFailure) { // the first refusal, wherever it was
        payload = programAnswer(m_programFailure->status, m_programFailure->address);
        m_programFailure.reset();
    }
    emit answered(Kind::Program, payload);
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
        if (inFlight.kind == Kind::Program)
            m_waitingBlockAnswer = payload;
        else
            emit answered(inFlight.kind, payload);
        break;
    case Purpose::ProgramBehind: {
        Protocol::Reader reply(payload);
        const uint16_t status = reply.u16();
        const auto address = int32_t(reply.u32());
        if (status != Protocol::Status::Done && !m_programFailure)
            m_programFailure = ProgramFailure{address, status};
        break;
    }
    case Purpose::ReadAhead:
        if (m_readAhead && m_readAhead->sequence == sequence)
            m_readAhead->payload = payload;
        break;
    case Purpose::Nobody:
        break;
    }
    answerWaitingBlock();
    if (m_held && roomFor(m_held->kind)) {
        const Request held = *m_held;
        m_held.reset();
        take(held);
    }
}

bool RequestPipeline::engineWaits() const
{
    return m_held || m_waitingBlockAnswer || std::any_of(m_inFlight.begin(), m_inFlight.end(), [](const auto &entry) {
               return entry.second.purpose == Purpose::Engine;
           });
}

void RequestPipeline::onFailed(Link::Failure failure, const QString &reason)
{
    const bool waits = engineWaits();
    m_inFlight.clear();
    m_held.reset();
    m_readAhead.reset();
    m_waitingBlockAnswer.reset();
    if (waits)
        emit failed(failure, reason);
    else
        m_linkFailure = std::make_pair(failure, reason); // told at the engine's next request
}
