#include "trovex/Trovex.h"

#include "engine/AnswerCodes.h"
#include "link/LineRateSwitch.h"
#include "link/LinkTimeouts.h"
#include "link/Protocol.h"
#include "link/TransferProgramLoader.h"
#include "link/TransportFactory.h"
#include "trovex/TrovexError.h"
#include "trovex/DifferentialPlan.h"

#include <QRegularExpression>
#include <QTimer>
#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

// The instrument's status values reach the engine unchanged through GetStatus.
static_assert(Protocol::Status::Done == uint16_t(AnswerStatus::Ok));
static_assert(Protocol::Status::VoltageIsOn == uint16_t(AnswerStatus::VoltageIsOn));
static_assert(Protocol::Status::VoltageIsOff == uint16_t(AnswerStatus::VoltageIsOff));
static_assert(Protocol::Status::ReadFailed == uint16_t(AnswerStatus::ReadFailed));
static_assert(Protocol::Status::EraseFailed == uint16_t(AnswerStatus::EraseFailed));

Trovex::Trovex(EngineWait wait, PortMap ports, int highestRate, QObject *parent)
    : ApplicationLayer(parent), m_wait(std::move(wait)), m_ports(std::move(ports)), m_highestRate(highestRate)
{
}

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
    CloseChannel(); // a second open replaces the first channel
    setError(TrovexError::None, QString());
    m_abilities = {};
    // "clsid:<class> <port>:<baud>,E,8,1" for a serial port, "clsid:<class> GPIB0" for GPIB.
    static const QRegularExpression serial(QStringLiteral("^clsid:\\S+\\s+(.+):(\\d+),E,8,1$"),
                                           QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression gpib(QStringLiteral("^clsid:\\S+\\s+(GPIB\\d+)$"), QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch serialMatch = serial.match(initString.trimmed());
    const QRegularExpressionMatch gpibMatch = gpib.match(initString.trimmed());
    if (!serialMatch.hasMatch() && !gpibMatch.hasMatch()) {
        setError(TrovexError::BadInitString,
                 QStringLiteral("the channel \"%1\" is not a serial or GPIB port description this layer knows").arg(initString));
        return;
    }
    const QString name = (serialMatch.hasMatch() ? serialMatch : gpibMatch).captured(1).trimmed();
    QString reason;
    std::unique_ptr<Transport> transport =
        TransportFactory::forPort(m_ports, name, serialMatch.hasMatch() ? serialMatch.captured(2).toInt() : 0, &reason);
    if (!transport) {
        setError(TrovexError::BadInitString, reason);
        return;
    }
    if (openTransport(std::move(transport)))
        startLink();
}

bool Trovex::openTransport(std::unique_ptr<Transport> transport)
{
    m_transport = std::move(transport); // closed with the channel even while it opens
    bool opened = false;
    std::optional<QString> failure;
    const QObject listening; // the connections below end with it
    connect(m_transport.get(), &Transport::opened, &listening, [&] { opened = true; });
    connect(m_transport.get(), &Transport::failed, &listening, [&](const QString &reason) { failure = reason; });
    QTimer deadline; // a transport that never says anything must not hold the run
    deadline.setSingleShot(true);
    connect(&deadline, &QTimer::timeout, &listening, [&] {
        failure = QStringLiteral("the port did not open within %1 seconds; check its device and driver")
                      .arg(std::chrono::seconds(LinkTimeouts::LongestOpen).count());
    });
    deadline.start(LinkTimeouts::LongestOpen);
    m_transport->open();
    if (!m_wait([&] { return opened || failure; })) {
        CloseChannel();
        setError(TrovexError::Cancelled, QStringLiteral("the update was cancelled while the channel was opening"));
        return false;
    }
    if (failure) { // also when the transport broke right after opening
        CloseChannel();
        setError(TrovexError::PortUnavailable, *failure);
        return false;
    }
    return true;
}

void Trovex::startLink()
{
    m_link = std::make_unique<Link>(*m_transport);
    m_pipeline = std::make_unique<RequestPipeline>(*m_link);
    connect(m_pipeline.get(), &RequestPipeline::answered, this, &Trovex::onAnswered);
    connect(m_pipeline.get(), &RequestPipeline::failed, this, &Trovex::onFailed);
    connect(m_pipeline.get(), &RequestPipeline::programmingFailedEarlier, this, [this](int32_t address, uint16_t status) {
        setError(TrovexError::ProgramFailed,
                 QStringLiteral("the instrument could not program the block at H%1 (status %2); it said so after the "
                                "blocks behind it were on their way")
                     .arg(QString::number(uint32_t(address), 16).toUpper())
                     .arg(status));
        emit Trovex_Error(TrovexError::ProgramFailed);
    });
}

void Trovex::UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress, int32_t startAddress,
                                   int32_t &result)
{
    result = TransferResult::LinkFailed;
    if (!m_link) {
        setError(TrovexError::NotOpen, QStringLiteral("the channel is not open"));
        return;
    }
    TransferProgramLoader loader(*m_link, QByteArray(reinterpret_cast<const char *>(data), std::max(length, 0)),
                                 uint32_t(loadAddress), uint32_t(startAddress));
    std::optional<uint32_t> started;
    std::optional<QString> failure;
    connect(&loader, &TransferProgramLoader::finished, &loader, [&](uint32_t startResult) { started = startResult; });
    connect(&loader, &TransferProgramLoader::failed, &loader, [&](const QString &reason) { failure = reason; });
    loader.start();
    if (!m_wait([&] { return started || failure; })) {
        result = TransferResult::Cancelled;
        setError(TrovexError::Cancelled, QStringLiteral("the update was cancelled while the transfer program was loading"));
        return; // the loader goes, and with it the rest of the load
    }
    if (failure) {
        setError(TrovexError::TransferFailed, *failure);
        return;
    }
    result = static_cast<int32_t>(*started);
    if (result != 0) {
        setError(TrovexError::TransferFailed,
                 QStringLiteral("the boot ROM did not start the transfer program (result %1); check that the package "
                                "is meant for this instrument")
                     .arg(result));
        return;
    }
    setUpLine(result);
}

void Trovex::setUpLine(int32_t &result)
{
    LineRateSwitch line(*m_link, *m_transport, m_highestRate);
    bool settled = false;
    std::optional<QString> failure;
    connect(&line, &LineRateSwitch::finished, &line,
            [&](const InstrumentAbilities &abilities, int rate, const QString &note) {
                settled = true;
                m_abilities = abilities;
                m_pipeline->packBlocks(abilities.packedBlocks);
                m_link->setReceiveBuffer(abilities.receiveBuffer);
                emit lineSettled(rate, abilities.packedBlocks, note);
            });
    connect(&line, &LineRateSwitch::failed, &line, [&](const QString &reason) { failure = reason; });
    line.start();
    if (!m_wait([&] { return settled || failure; })) {
        result = TransferResult::Cancelled;
        setError(TrovexError::Cancelled, QStringLiteral("the update was cancelled while the line was set up"));
        return; // the switch goes, and with it the rest of the set-up
    }
    if (failure) {
        result = TransferResult::LinkFailed;
        setError(TrovexError::TransferFailed, *failure);
    }
}

void Trovex::submit(RequestPipeline::Request request)
{
    if (!m_pipeline) {
        raiseErrorLater(TrovexError::NotOpen, QStringLiteral("the channel is not open"));
        return;
    }
    m_pipeline->submit(request);
}

void Trovex::raiseErrorLater(int16_t code, const QString &text)
{
    QMetaObject::invokeMethod(
        this,
        [this, code, text] {
            setError(code, text);
            emit Trovex_Error(code);
        },
        Qt::QueuedConnection);
}

void Trovex::QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex)
{
    submit({Kind::Identify, Protocol::Identify, Protocol::Writer().u32(uint32_t(address)).u8(architecture).u8(flashIndex).done()});
}

void Trovex::ProgrammingVoltageOn()
{
    m_voltageMayBeOn = true; // from the moment it may reach the instrument
    submit({Kind::VoltageOn, Protocol::VoltageOn, {}});
}

void Trovex::ProgrammingVoltageOff()
{
    submit({Kind::VoltageOff, Protocol::VoltageOff, {}});
}

void Trovex::FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length)
{
    if (surveyFirst([=, this] { FlashDelete(architecture, flashIndex, address, length); }))
        return;
    m_requestAddress = address;
    m_requestCount = length;
    const auto erase = [&](uint32_t from, uint32_t count) {
        return RequestPipeline::Request{Kind::Erase, Protocol::Erase,
                                        Protocol::Writer().u8(architecture).u8(flashIndex).u32(from).u32(count).done()};
    };
    if (!m_plan) {
        submit(erase(uint32_t(address), uint32_t(length)));
        return;
    }
    const std::vector<DifferentialPlan::Range> parts = m_plan->eraseParts(uint32_t(address), uint32_t(length));
    if (parts.empty()) { // every unit holds its final content already
        answerAtOnce(Kind::Erase, Protocol::Writer().u16(Protocol::Status::Ok).u32(uint32_t(address)).done());
        return;
    }
    for (size_t i = 1; i < parts.size(); ++i)
        m_eraseParts.push_back(erase(parts[i].address, parts[i].length));
    submit(erase(parts[0].address, parts[0].length));
}

void Trovex::Restart()
{
    submit({Kind::Restart, Protocol::Restart, {}});
}

void Trovex::ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex, const uint8_t *data)
{
    const QByteArray block(reinterpret_cast<const char *>(data), std::max<int16_t>(count, 0));
    if (surveyFirst([=, this] { ProgramBlock(address, count, architecture, flashIndex, reinterpret_cast<const uint8_t *>(block.constData())); }))
        return;
    // The range's last block is sent when any block before it was: its answer is the one that
    // waits for theirs.
    const bool lastOfRange = uint64_t(uint32_t(address)) + uint64_t(block.size()) == m_rangeEnd;
    if (m_plan && m_plan->blockInPlace(uint32_t(address), block) && !(lastOfRange && m_blockSentInRange)) {
        emit blockAlreadyRight(int(block.size()));
        answerAtOnce(Kind::Program, Protocol::Writer().u16(Protocol::Status::Done).u32(uint32_t(address)).done());
        return;
    }
    m_blockSentInRange = true;
    submit({Kind::Program, Protocol::Program,
            Protocol::Writer().u32(uint32_t(address)).u8(architecture).u8(flashIndex).bytes(block).done(),
            Protocol::ShortAnswerBytes, architecture, address, count});
}

void Trovex::AnnounceRange(int32_t address, int32_t length)
{
    m_rangeEnd = uint64_t(uint32_t(address)) + uint64_t(std::max(length, 0));
    m_blockSentInRange = false;
    if (m_pipeline)
        m_pipeline->expectRange(address, length);
}

void Trovex::ReadMemory(uint8_t architecture, int32_t address, int32_t count)
{
    m_requestAddress = address;
    m_requestCount = count;
    submit({Kind::Read, Protocol::Read, Protocol::Writer().u8(architecture).u32(uint32_t(address)).u32(uint32_t(count)).done(),
            std::max(count, 0) + 2, architecture, address, count});
}

void Trovex::RequestChecksum(uint8_t architecture, int32_t address, int32_t length)
{
    submit({Kind::Checksum, Protocol::Checksum, Protocol::Writer().u8(architecture).u32(uint32_t(address)).u32(uint32_t(length)).done()});
}

void Trovex::RequestRangeCrc(uint8_t architecture, int32_t address, int32_t length)
{
    submit({Kind::RangeCrc, Protocol::RangeCrc, Protocol::Writer().u8(architecture).u32(uint32_t(address)).u32(uint32_t(length)).done()});
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

void Trovex::onAnswered(Kind kind, const QByteArray &payload)
{
    if (kind == Kind::RangeCrc && m_survey) {
        onSurveyAnswer(payload);
        return;
    }
    if (kind == Kind::Erase && !m_eraseParts.empty()) {
        if (Protocol::Reader(payload).u16() == Protocol::Status::Ok) { // on to the next part of the engine's erase
            const RequestPipeline::Request next = m_eraseParts.front();
            m_eraseParts.pop_front();
            submit(next);
            return;
        }
        m_eraseParts.clear(); // the engine's erase fails with this part
    }
    setError(TrovexError::None, QString());
    Protocol::Reader reply(payload);
    m_status = static_cast<int16_t>(reply.u16());
    const int32_t id = takeValues(kind, reply);
    if (kind == Kind::VoltageOff && uint16_t(m_status) == Protocol::Status::VoltageIsOff)
        m_voltageMayBeOn = false;
    int16_t code = TrovexError::InstrumentRefused;
    QString failure = undocumentedStatus(kind);
    if (failure.isEmpty() && !reply.complete()) {
        code = TrovexError::BadReply;
        failure = uint16_t(m_status) == Protocol::Status::Unknown
                      ? QStringLiteral("the instrument does not know the request (status 65535); check that the package is "
                                       "meant for this instrument")
                      : QStringLiteral("the instrument's answer (status %1) was too short for its request").arg(uint16_t(m_status));
    }
    if (!failure.isEmpty()) {
        setError(code, failure);
        emit Trovex_Error(code);
        return;
    }
    emit Trovex_Response(id);
}

int32_t Trovex::takeValues(Kind kind, Protocol::Reader &reply)
{
    switch (kind) {
    case Kind::Identify:
        m_manufacturer = static_cast<int32_t>(reply.u32());
        m_device = static_cast<int32_t>(reply.u32());
        if (m_status != Protocol::Status::Ok)
            setError(TrovexError::InstrumentRefused,
                     QStringLiteral("no flash chip of the configured kind answers at that address (status %1); "
                                    "check the package against the instrument")
                         .arg(m_status));
        return ResponseId::ManufacturerCode;
    case Kind::VoltageOn: return ResponseId::VoltageOn;
    case Kind::VoltageOff: return ResponseId::VoltageOff;
    case Kind::Restart: return ResponseId::General;
    case Kind::Erase:
        m_resultAddress = static_cast<int32_t>(reply.u32());
        return ResponseId::Erase;
    case Kind::Program:
        m_resultAddress = static_cast<int32_t>(reply.u32());
        return ResponseId::Program;
    case Kind::Read:
        m_readData = reply.rest();
        if (m_status != Protocol::Status::Ok)
            m_readData.clear();
        return ResponseId::Read;
    case Kind::Checksum:
        m_checksum = static_cast<int32_t>(reply.u32());
        if (m_status != Protocol::Status::Ok)
            setError(TrovexError::InstrumentRefused,
                     QStringLiteral("the instrument could not sum that range (status %1)").arg(m_status));
        return ResponseId::Checksum;
    case Kind::RangeCrc:
        m_rangeCrc = reply.u32();
        if (m_status != Protocol::Status::Ok)
            setError(TrovexError::InstrumentRefused,
                     QStringLiteral("the instrument could not compute the CRC-32 of that range (status %1)").arg(m_status));
        return ResponseId::RangeCrc;
    }
    return ResponseId::General;
}

// The engine takes one status as an erase's or a read's failure and passes every other; the
// instrument's only success is 0. Anything else (0xFFFF from a transfer program that does not
// know the request, above all) must not pass for an erased or read range.
QString Trovex::undocumentedStatus(Kind kind) const
{
    const auto status = uint16_t(m_status);
    if (status == Protocol::Status::Ok)
        return {};
    const QString at = QString::number(uint32_t(m_requestAddress), 16).toUpper();
    if (kind == Kind::Erase && status != Protocol::Status::EraseFailed)
        return QStringLiteral("the instrument did not erase the %1 bytes at H%2 (status %3)").arg(m_requestCount).arg(at).arg(status);
    if (kind == Kind::Read && status != Protocol::Status::ReadFailed)
        return QStringLiteral("the instrument did not read the %1 bytes at H%2 (status %3)").arg(m_requestCount).arg(at).arg(status);
    return {};
}

void Trovex::onFailed(Link::Failure failure, const QString &reason)
{
    m_survey.reset();
    m_eraseParts.clear();
    const int16_t code = failure == Link::Failure::NoAnswer ? TrovexError::NoAnswer : TrovexError::PortLost;
    setError(code, reason);
    emit Trovex_Error(code);
}

void Trovex::Shutdown()
{
    if (m_pipeline)
        m_pipeline->reset();
}

void Trovex::CloseChannel()
{
    switchVoltageOffBeforeClosing();
    forgetPlan();
    // Nothing is left running: the link's timers go with it, the transport stops its own.
    m_pipeline.reset();
    m_link.reset();
    if (m_transport)
        m_transport->close();
    m_transport.reset();
}

// An update that stopped with the programming voltage on (a refused block, a failed erase, a
// cancel) must not leave it on. The request goes behind whatever is on the way, which the
// instrument carries out first, as soon as the link has room for it. The wait is bounded, and
// there is none after a cancel: the request then leaves only if there is room at once, and the
// run ends as the user asked.
void Trovex::switchVoltageOffBeforeClosing()
{
    if (!std::exchange(m_voltageMayBeOn, false) || !m_link)
        return;
    std::optional<uint8_t> sequence;
    bool over = false;
    const auto sendWhenThereIsRoom = [&] {
        if (!sequence && m_link->hasRoom())
            sequence = m_link->request(Protocol::VoltageOff, {}, Protocol::ShortAnswerBytes);
    };
    const QObject listening; // the connections and the deadline end with it
    connect(m_link.get(), &Link::replied, &listening, [&](uint8_t answered, const QByteArray &) {
        over = over || answered == sequence;
        sendWhenThereIsRoom();
    });
    connect(m_link.get(), &Link::failed, &listening, [&] { over = true; });
    QTimer::singleShot(LinkTimeouts::VoltageOffAtClose, &listening, [&] { over = true; });
    sendWhenThereIsRoom();
    m_wait([&] { return over; });
}
