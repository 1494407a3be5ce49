#include "link/TransferProgramLoader.h"

#include "link/Link.h"
#include "link/Protocol.h"

namespace {
// The boot ROM answers with a status or a result of a few bytes; room to spare for the wait.
constexpr int BootRomAnswerBytes = 16;

uint8_t blockSum(const QByteArray &data)
{
    uint32_t sum = 0;
    for (char c : data)
        sum += static_cast<uint8_t>(c);
    return static_cast<uint8_t>(sum);
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
    sendNext();
}

void TransferProgramLoader::sendNext()
{
    if (m_offset < m_image.size()) {
        const QByteArray block = m_image.mid(m_offset, Protocol::LoadBlockBytes);
        m_waitingFor = m_link.request(Protocol::LoadBlock,
                                      Protocol::Writer().u32(blockAddress()).u8(blockSum(block)).bytes(block).done(),
                                      BootRomAnswerBytes);
        return;
    }
    m_starting = true;
    m_waitingFor = m_link.request(
        Protocol::Start,
        Protocol::Writer().u32(m_loadAddress).u32(uint32_t(m_image.size())).u32(m_startAddress).done(),
        BootRomAnswerBytes);
}

void TransferProgramLoader::onReplied(uint8_t sequence, const QByteArray &payload)
{
    if (m_waitingFor != sequence)
        return; // another request's answer
    m_waitingFor.reset();
    Protocol::Reader reply(payload);
    if (m_starting) {
        emit finished(reply.u32());
        return;
    }
    if (const uint16_t status = reply.u16(); status != Protocol::Status::Ok) {
        emit failed(QStringLiteral("the boot ROM refused the block at %1 (status %2)").arg(blockAddress(), 0, 16).arg(status));
        return;
    }
    m_offset += Protocol::LoadBlockBytes;
    sendNext();
}
