#include "trovex/Trovex.h"

#include "engine/AnswerCodes.h"
#include "trovex/Protocol.h"
#include "trovex/SerialTransport.h"
#include "trovex/TrovexError.h"

#include <QEventLoop>
#include <QRegularExpression>
#include <QTimer>
#include <cstring>

// The instrument's status values reach the engine unchanged through GetStatus.
static_assert(Protocol::Status::Done == uint16_t(AnswerStatus::Ok));
static_assert(Protocol::Status::VoltageIsOn == uint16_t(AnswerStatus::VoltageIsOn));
static_assert(Protocol::Status::VoltageIsOff == uint16_t(AnswerStatus::VoltageIsOff));
static_assert(Protocol::Status::ReadFailed == uint16_t(AnswerStatus::ReadFailed));
static_assert(Protocol::Status::EraseFailed == uint16_t(AnswerStatus::EraseFailed));

namespace {
constexpr int32_t TransferFailedResult = 1; // UploadTransferProgram: the link failed

uint8_t blockSum(const QByteArray &data)
{
    uint32_t sum = 0;
    for (char c : data)
        sum += static_cast<uint8_t>(c);
    return static_cast<uint8_t>(sum);
}
} // namespace

Trovex::Trovex(PortMap ports, QObject *parent) : ApplicationLayer(parent), m_ports(std::move(ports)) {}

Trovex::~Trovex()
{
    CloseChannel();
}

void Trovex::setError(int16_t code, const QString &text)
{
    m_errorCode = code;
    m_errorText = text;
}

void Trovex::OpenChannel(const QString &initString)
{
    setError(TrovexError::None, QString());
    // "clsid:<class> <port>:<baud>,E,8,1"
    static const QRegularExpression serial(QStringLiteral("^clsid:\\S+\\s+(.+):(\\d+),E,8,1$"),
                                           QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = serial.match(initString.trimmed());
    if (!match.hasMatch()) {
        setError(TrovexError::BadInitString,
                 QStringLiteral("the channel \"%1\" is not a serial port description this layer knows").arg(initString));
        return;
    }
    const QString name = match.captured(1).trimmed();
    const QString device = m_ports.deviceFor(name);
    if (device.isEmpty()) {
        setError(TrovexError::BadInitString,
                 QStringLiteral("the port %1 is not in the port map; set %2, e.g. %2=\"%1=/dev/ttyUSB0\"")
                     .arg(name, QLatin1String(PortMap::EnvironmentVariable)));
        return;
    }
    auto transport = std::make_unique<SerialTransport>(device, match.captured(2).toInt());
    QString reason;
    if (!transport->open(&reason)) {
        setError(TrovexError::PortUnavailable, reason);
        return;
    }
    m_transport = std::move(transport);
    m_link = std::make_unique<Link>(*m_transport);
    connect(m_link.get(), &Link::replied, this, &Trovex::onReplied);
    connect(m_link.get(), &Link::failed, this, &Trovex::onFailed);
}

bool Trovex::requestAndWait(uint8_t type, const QByteArray &payload, QByteArray &answer)
{
    QEventLoop wait;
    bool ok = false;
    const QMetaObject::Connection onReply = connect(m_link.get(), &Link::replied, &wait, [&](const QByteArray &bytes) {
        answer = bytes;
        ok = true;
        wait.quit();
    });
    const QMetaObject::Connection onFail = connect(m_link.get(), &Link::failed, &wait,
                                                   [&](Link::Failure, const QString &reason) {
                                                       setError(TrovexError::TransferFailed, reason);
                                                       wait.quit();
                                                   });
    m_link->request(type, payload, 16);
    wait.exec(); // the link's own timeouts bound this wait
    disconnect(onReply);
    disconnect(onFail);
    return ok;
}

void Trovex::UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress, int32_t startAddress,
                                   int32_t &result)
{
    result = TransferFailedResult;
    if (!m_link) {
        setError(TrovexError::NotOpen, QStringLiteral("the channel is not open"));
        return;
    }
    m_pending = Pending::None;
    const QByteArray image(reinterpret_cast<const char *>(data), length);
    QByteArray answer;
    for (int32_t offset = 0; offset < length; offset += Protocol::LoadBlockBytes) {
        const QByteArray block = image.mid(offset, Protocol::LoadBlockBytes);
        const auto address = static_cast<uint32_t>(loadAddress) + static_cast<uint32_t>(offset);
        if (!requestAndWait(Protocol::LoadBlock, Protocol::Writer().u32(address).u8(blockSum(block)).bytes(block).done(), answer))
            return;
        Protocol::Reader reply(answer);
        const uint16_t status = reply.u16();
        if (status != Protocol::Status::Ok) {
            setError(TrovexError::TransferFailed,
                     QStringLiteral("the boot ROM refused the block at %1 (status %2)").arg(address, 0, 16).arg(status));
            return;
        }
    }
    if (!requestAndWait(Protocol::Start,
                        Protocol::Writer().u32(uint32_t(loadAddress)).u32(uint32_t(length)).u32(uint32_t(startAddress)).done(),
                        answer))
        return;
    result = static_cast<int32_t>(Protocol::Reader(answer).u32());
    if (result != 0)
        setError(TrovexError::TransferFailed,
                 QStringLiteral("the boot ROM did not start the transfer program (result %1); check that the package "
                                "is meant for this instrument")
                     .arg(result));
}

void Trovex::send(Pending what, uint8_t type, const QByteArray &payload, int expectedReplyBytes)
{
    if (!m_link) {
        raiseErrorLater(TrovexError::NotOpen, QStringLiteral("the channel is not open"));
        return;
    }
    m_pending = what;
    m_link->request(type, payload, expectedReplyBytes);
}

void Trovex::raiseErrorLater(int16_t code, const QString &text)
{
    QTimer::singleShot(0, this, [this, code, text] {
        setError(code, text);
        emit Trovex_Error(code);
    });
}

void Trovex::QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex)
{
    send(Pending::Identify, Protocol::Identify, Protocol::Writer().u32(uint32_t(address)).u8(architecture).u8(flashIndex).done());
}

void Trovex::ProgrammingVoltageOn()
{
    send(Pending::VoltageOn, Protocol::VoltageOn, {});
}

void Trovex::ProgrammingVoltageOff()
{
    send(Pending::VoltageOff, Protocol::VoltageOff, {});
}

void Trovex::FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length)
{
    send(Pending::Erase, Protocol::Erase,
         Protocol::Writer().u8(architecture).u8(flashIndex).u32(uint32_t(address)).u32(uint32_t(length)).done());
}

void Trovex::Restart()
{
    send(Pending::Restart, Protocol::Restart, {});
}

void Trovex::ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex, const uint8_t *data)
{
    const QByteArray block(reinterpret_cast<const char *>(data), std::max<int16_t>(count, 0));
    send(Pending::Program, Protocol::Program,
         Protocol::Writer().u32(uint32_t(address)).u8(architecture).u8(flashIndex).bytes(block).done());
}

void Trovex::ReadMemory(uint8_t architecture, int32_t address, int32_t count)
{
    send(Pending::Read, Protocol::Read, Protocol::Writer().u8(architecture).u32(uint32_t(address)).u32(uint32_t(count)).done(),
         std::max(count, 0) + 2);
}

void Trovex::RequestChecksum(uint8_t architecture, int32_t address, int32_t length)
{
    send(Pending::Checksum, Protocol::Checksum,
         Protocol::Writer().u8(architecture).u32(uint32_t(address)).u32(uint32_t(length)).done());
}

void Trovex::GetEraseResult(int32_t &address, int16_t &status)
{
    address = m_resultAddress;
    status = m_status;
}

void Trovex::GetProgramResult(int32_t &address, int16_t &status)
{
    address = m_resultAddress;
    status = m_status;
}

void Trovex::GetReadData(uint8_t *data)
{
    if (!m_readData.isEmpty())
        std::memcpy(data, m_readData.constData(), static_cast<size_t>(m_readData.size()));
}

void Trovex::onReplied(const QByteArray &payload)
{
    const Pending what = m_pending;
    m_pending = Pending::None;
    if (what == Pending::None)
        return; // a boot-ROM answer, taken by UploadTransferProgram
    setError(TrovexError::None, QString());
    Protocol::Reader reply(payload);
    m_status = static_cast<int16_t>(reply.u16());
    int32_t id = ResponseId::General;
    switch (what) {
    case Pending::Identify:
        m_manufacturer = static_cast<int32_t>(reply.u32());
        m_device = static_cast<int32_t>(reply.u32());
        if (m_status != Protocol::Status::Ok)
            setError(TrovexError::InstrumentRefused,
                     QStringLiteral("no flash chip of the configured kind answers at that address (status %1); "
                                    "check the package against the instrument")
                         .arg(m_status));
        id = ResponseId::ManufacturerCode;
        break;
    case Pending::VoltageOn: id = ResponseId::VoltageOn; break;
    case Pending::VoltageOff: id = ResponseId::VoltageOff; break;
    case Pending::Restart: id = ResponseId::General; break;
    case Pending::Erase:
        m_resultAddress = static_cast<int32_t>(reply.u32());
        id = ResponseId::Erase;
        break;
    case Pending::Program:
        m_resultAddress = static_cast<int32_t>(reply.u32());
        id = ResponseId::Program;
        break;
    case Pending::Read:
        m_readData = reply.rest();
        if (m_status != Protocol::Status::Ok)
            m_readData.clear();
        id = ResponseId::Read;
        break;
    case Pending::Checksum:
        m_checksum = static_cast<int32_t>(reply.u32());
        if (m_status != Protocol::Status::Ok)
            setError(TrovexError::InstrumentRefused,
                     QStringLiteral("the instrument could not sum that range (status %1)").arg(m_status));
        id = ResponseId::Checksum;
        break;
    case Pending::None: break;
    }
    if (!reply.complete()) {
        setError(TrovexError::BadReply, QStringLiteral("the instrument's answer was too short for its request"));
        emit Trovex_Error(TrovexError::BadReply);
        return;
    }
    emit Trovex_Response(id);
}

void Trovex::onFailed(Link::Failure failure, const QString &reason)
{
    const bool wasPending = m_pending != Pending::None;
    m_pending = Pending::None;
    const int16_t code = failure == Link::Failure::NoAnswer ? TrovexError::NoAnswer : TrovexError::PortLost;
    setError(code, reason);
    if (wasPending)
        emit Trovex_Error(code);
}

void Trovex::Shutdown()
{
    m_pending = Pending::None;
}

void Trovex::CloseChannel()
{
    m_link.reset();
    if (m_transport)
        m_transport->close();
    m_transport.reset();
}
