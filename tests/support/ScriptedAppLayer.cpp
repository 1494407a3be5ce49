#include "tests/support/ScriptedAppLayer.h"

#include "engine/AnswerCodes.h"
#include "engine/Crc32.h"

#include <QTimer>
#include <cstring>

namespace {
constexpr int16_t StatusErased = 0; // anything but the failing value
}

void ScriptedAppLayer::record(const QString &name, const QVariantList &args)
{
    m_calls->append({name, args});
}

void ScriptedAppLayer::apply(const Reply &reply)
{
    if (reply.status) m_status = *reply.status;
    if (reply.resultAddress) m_resultAddress = *reply.resultAddress;
    if (reply.manufacturerCode) m_manufacturerCode = *reply.manufacturerCode;
    if (reply.deviceCode) m_deviceCode = *reply.deviceCode;
    if (reply.checksum) m_checksum = *reply.checksum;
    if (reply.rangeCrc) m_rangeCrc = *reply.rangeCrc;
    if (reply.readData) m_readData = *reply.readData;
    if (reply.errorText) m_errorText = *reply.errorText;
    m_errorCodes = reply.errorCodes;
}

bool ScriptedAppLayer::holds(const QString &name)
{
    if (name != m_holdAt)
        return false;
    m_holdAt.clear();
    emit requestWithheld();
    return true;
}

bool ScriptedAppLayer::takeTime(const QString &name)
{
    if (!m_wait)
        return true;
    if (holds(name))
        return m_wait([] { return false; });
    QTimer turn; // one turn of the event loop; gone with the call if the wait is cancelled
    turn.setSingleShot(true);
    turn.start(0);
    return m_wait([&turn] { return !turn.isActive(); });
}

void ScriptedAppLayer::answerLater(int32_t defaultId, Reply healthy)
{
    if (holds(m_calls->last().name))
        return;
    Reply reply = std::move(healthy);
    if (!m_replies.empty()) {
        // What the script leaves unset is what a healthy instrument would answer.
        const Reply scripted = m_replies.front();
        m_replies.pop_front();
        reply.kind = scripted.kind;
        reply.lastError = scripted.lastError;
        reply.errorCodes = scripted.errorCodes;
        if (scripted.responseId) reply.responseId = scripted.responseId;
        if (scripted.status) reply.status = scripted.status;
        if (scripted.resultAddress) reply.resultAddress = scripted.resultAddress;
        if (scripted.manufacturerCode) reply.manufacturerCode = scripted.manufacturerCode;
        if (scripted.deviceCode) reply.deviceCode = scripted.deviceCode;
        if (scripted.checksum) reply.checksum = scripted.checksum;
        if (scripted.rangeCrc) reply.rangeCrc = scripted.rangeCrc;
        if (scripted.readData) reply.readData = scripted.readData;
        if (scripted.errorText) reply.errorText = scripted.errorText;
    }
    if (reply.kind == Reply::Kind::Silence) {
        emit requestWithheld();
        return;
    }
    // Queued on this object, so a reply still pending when the layer is dropped is dropped too.
    QTimer::singleShot(0, this, [this, reply, defaultId] {
        apply(reply);
        if (reply.kind == Reply::Kind::ErrorEvent)
            emit Trovex_Error(reply.lastError);
        else
            emit Trovex_Response(reply.responseId.value_or(defaultId));
    });
}

void ScriptedAppLayer::UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress,
                                             int32_t startAddress, int32_t &result)
{
    record(QStringLiteral("UploadTransferProgram"),
           {QByteArray(reinterpret_cast<const char *>(data), length), loadAddress, startAddress});
    result = takeTime(QStringLiteral("UploadTransferProgram")) ? m_transferResult : CancelledTransferResult;
}

void ScriptedAppLayer::OpenChannel(const QString &initString)
{
    record(QStringLiteral("OpenChannel"), {initString});
    m_errorCodes = {takeTime(QStringLiteral("OpenChannel")) ? m_openErrorCode : CancelledOpenCode};
}

void ScriptedAppLayer::QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex)
{
    record(QStringLiteral("QueryManufacturerCode"), {address, int(architecture), int(flashIndex)});
    answerLater(ResponseId::ManufacturerCode, passing(AnswerStatus::Ok));
}

void ScriptedAppLayer::ProgrammingVoltageOn()
{
    record(QStringLiteral("ProgrammingVoltageOn"));
    answerLater(ResponseId::VoltageOn, passing(AnswerStatus::VoltageIsOn));
}

void ScriptedAppLayer::ProgrammingVoltageOff()
{
    record(QStringLiteral("ProgrammingVoltageOff"));
    answerLater(ResponseId::VoltageOff, passing(AnswerStatus::VoltageIsOff));
}

void ScriptedAppLayer::FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length)
{
    record(QStringLiteral("FlashDelete"), {int(architecture), int(flashIndex), address, length});
    answerLater(ResponseId::Erase, passing(StatusErased));
}

void ScriptedAppLayer::Restart()
{
    record(QStringLiteral("Restart"));
    answerLater(ResponseId::General, passing(AnswerStatus::Ok));
}

void ScriptedAppLayer::ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex,
                                    const uint8_t *data)
{
    record(QStringLiteral("ProgramBlock"), {address, int(count), int(architecture), int(flashIndex),
                                            QByteArray(reinterpret_cast<const char *>(data), count)});
    for (int i = 0; i < count; ++i)
        m_flash[static_cast<uint32_t>(address) + static_cast<uint32_t>(i)] = data[i];
    Reply healthy = passing(AnswerStatus::Ok);
    healthy.resultAddress = address;
    answerLater(ResponseId::Program, healthy);
}


void ScriptedAppLayer::ReadMemory(uint8_t architecture, int32_t address, int32_t count)
{
    record(QStringLiteral("ReadMemory"), {int(architecture), address, count});
    Reply healthy = passing(AnswerStatus::Ok);
    healthy.readData = healthyRead(address, count);
    answerLater(ResponseId::Read, healthy);
}

QByteArray ScriptedAppLayer::healthyRead(int32_t address, int32_t count) const
{
    if (m_readSource)
        return m_readSource(address, count);
    QByteArray bytes(count, '\0');
    for (int32_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>((address + i) & 0xFF);
    return bytes;
}

void ScriptedAppLayer::RequestRangeCrc(uint8_t architecture, int32_t address, int32_t length)
{
    record(QStringLiteral("RequestRangeCrc"), {int(architecture), address, length});
    QByteArray bytes = healthyRead(address, length);
    for (auto byte = m_flash.lower_bound(uint32_t(address)); byte != m_flash.end() && byte->first - uint32_t(address) < uint32_t(length); ++byte)
        bytes[qsizetype(byte->first - uint32_t(address))] = char(byte->second);
    Reply healthy = passing(0);
    healthy.rangeCrc = Crc32::of(bytes);
    answerLater(ResponseId::RangeCrc, healthy);
}

void ScriptedAppLayer::AnnounceFlashPlan(const FlashPlan &plan)
{
    record(QStringLiteral("AnnounceFlashPlan"));
    AnnouncedPlan announced{plan, {}};
    for (const FlashPlan::Image &image : plan.images)
        announced.images << image.read(0, image.length);
    *m_plan = announced;
}

void ScriptedAppLayer::RequestChecksum(uint8_t architecture, int32_t address, int32_t length)
{
    record(QStringLiteral("RequestChecksum"), {int(architecture), address, length});
    uint32_t sum = 0;
    for (int32_t i = 0; i < length; ++i) {
        const auto byte = m_flash.find(static_cast<uint32_t>(address) + static_cast<uint32_t>(i));
        sum += byte == m_flash.end() ? 0xFFu : byte->second; // erased flash reads FF
    }
    Reply healthy = passing(AnswerStatus::Ok);
    healthy.checksum = static_cast<int32_t>(sum & 0xFF);
    answerLater(ResponseId::Checksum, healthy);
}







void ScriptedAppLayer::GetReadData(uint8_t *data)
{
    record(QStringLiteral("GetReadData"));
    if (!m_readData.isEmpty())
        std::memcpy(data, m_readData.constData(), static_cast<size_t>(m_readData.size()));
}



void ScriptedAppLayer::GetErrorCode(int16_t &code)
{
    record(QStringLiteral("GetErrorCode"));
    code = m_errorCodes.isEmpty() ? 0 : m_errorCodes.first();
    if (m_errorCodes.size() > 1)
        m_errorCodes.removeFirst();
}

