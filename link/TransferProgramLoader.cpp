#include "link/TransferProgramLoader.h"

#include "link/Link.h"
#include "link/Protocol.h"

#include <algorithm>
#include <zlib.h>

namespace {
const QString PowerCycle = QStringLiteral("switch the instrument off and on, then repeat the update");

uint8_t blockSum(const QByteArray &data)
{
    uint32_t sum = 0;
    for (char c : data)
        sum += static_cast<uint8_t>(c);
    return static_cast<uint8_t>(sum);
}

uint32_t crc32Of(const QByteArray &data)
{
    return uint32_t(crc32(0L, reinterpret_cast<const Bytef *>(data.constData()), static_cast<uInt>(data.size())));
}
} // namespace

TransferProgramLoader::TransferProgramLoader(Link &link, QByteArray image, uint32_t loadAddress, uint32_t startAddress,
                                             QObject *parent)
    : QObject(parent), m_link(link), m_image(std::move(image)), m_loadAddress(loadAddress), m_startAddress(startAddress)
{
    connect(&m_link, &Link::replied, this, &TransferProgramLoader::onReplied);
    connect(&m_link, &Link::failed, this, [this](Link::Failure, const QString &reason) {
        if (!m_waitingFor)
            return; // not loading (yet, or any more)
        m_waitingFor.reset();
        emit failed(reason);
    });
}

void TransferProgramLoader::start()
{
    send(Step::Hello, Protocol::Hello, {});
}

void TransferProgramLoader::send(Step step, uint8_t type, const QByteArray &payload)
{
    m_step = step;
    m_waitingFor = m_link.request(type, payload, Protocol::ShortAnswerBytes);
}

void TransferProgramLoader::sendNext()
{
    if (m_offset < m_image.size()) {
        const QByteArray block = m_image.mid(m_offset, std::min(Protocol::LoadBlockBytes, m_link.largestData()));
        m_blockBytes = block.size();
        send(Step::Load, Protocol::LoadBlock, Protocol::Writer().u32(blockAddress()).u8(blockSum(block)).bytes(block).done());
        return;
    }
    send(Step::Start, Protocol::Start,
         Protocol::Writer().u32(m_loadAddress).u32(uint32_t(m_image.size())).u32(m_startAddress).done());
}

void TransferProgramLoader::onReplied(uint8_t sequence, const QByteArray &payload)
{
    if (m_waitingFor != sequence)
        return; // another request's answer
    m_waitingFor.reset();
    switch (m_step) {
    case Step::Hello: onHello(payload); break;
    case Step::Load: onLoaded(payload); break;
    case Step::Start: emit finished(Protocol::Reader(payload).u32()); break;
    }
}

void TransferProgramLoader::onHello(const QByteArray &payload)
{
    Protocol::Reader reply(payload);
    const uint16_t status = reply.u16();
    if (status == Protocol::Status::Unknown) {
        sendNext(); // the boot ROM: load the program
        return;
    }
    const uint32_t crc = reply.u32();
    const uint32_t length = reply.u32();
    if (status == Protocol::Status::Ok && reply.complete() && crc == crc32Of(m_image) && length == uint32_t(m_image.size())) {
        emit finished(Protocol::StartResult::Running); // left running by an earlier update: go on with it
        return;
    }
    emit failed(QStringLiteral("another transfer program runs in the instrument (CRC-32 %1, %2 bytes; this package's is "
                               "%3, %4 bytes); %5")
                    .arg(crc, 8, 16, QLatin1Char('0'))
                    .arg(length)
                    .arg(crc32Of(m_image), 8, 16, QLatin1Char('0'))
                    .arg(m_image.size())
                    .arg(PowerCycle));
}

void TransferProgramLoader::onLoaded(const QByteArray &payload)
{
    const uint16_t status = Protocol::Reader(payload).u16();
    if (status == Protocol::Status::Unknown) {
        emit failed(QStringLiteral("the instrument runs a program that takes no transfer program (status %1 at the block "
                                   "at %2); %3")
                        .arg(status)
                        .arg(blockAddress(), 0, 16)
                        .arg(PowerCycle));
        return;
    }
    if (status != Protocol::Status::Ok) {
        emit failed(QStringLiteral("the boot ROM refused the block at %1 (status %2)").arg(blockAddress(), 0, 16).arg(status));
        return;
    }
    m_offset += m_blockBytes;
    sendNext();
}
