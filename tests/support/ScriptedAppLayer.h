#pragma once
// An application layer for tests. It records every call with its arguments, answers the
// getters from a script, and answers each asynchronous request with the next scripted
// reply, raised from the event loop (never inside the request call) so that the engine
// sees nothing before it waits.
//
// Without a scripted reply a request gets the answer of a healthy instrument: the response
// id of the request with the status that passes it; programmed blocks are kept in a flash
// map, a checksum request sums the bytes programmed in its range, and a read delivers the
// read source's bytes. Replies can also be withheld (no event at all), to test Cancel and the
// sleeping wait.
//
// OpenChannel and UploadTransferProgram take event-loop time as the real ones do: they wait
// through the engine's wait (a zero-time timer, or a scripted duration), so a click or a
// Cancel can come in the middle of them. Held, they wait until the run is cancelled.
#include "engine/ApplicationLayer.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>

class ScriptedAppLayer : public ApplicationLayer {
    Q_OBJECT
public:
    struct Call {
        QString name;
        QVariantList args;
    };

    // One answer to one asynchronous request. Unset values are those of the healthy answer.
    struct Reply {
        enum class Kind { Response, ErrorEvent, Silence };
        Kind kind = Kind::Response;
        std::optional<int32_t> responseId; // default: the id that answers the request
        int16_t lastError = 0;             // for ErrorEvent
        std::optional<int16_t> status;
        std::optional<int32_t> resultAddress; // erase and program results
        std::optional<int32_t> manufacturerCode;
        std::optional<int32_t> deviceCode;
        std::optional<int32_t> checksum;
        std::optional<uint32_t> rangeCrc;
        std::optional<QByteArray> readData;
        std::optional<QString> errorText;
        // Successive GetErrorCode answers while this reply is read; the last one repeats.
        QList<int16_t> errorCodes;
    };

    static Reply response(int32_t id) { Reply r; r.responseId = id; return r; }
    static Reply errorEvent(int16_t lastError, const QString &text)
    {
        Reply r; r.kind = Reply::Kind::ErrorEvent; r.lastError = lastError; r.errorText = text; return r;
    }
    static Reply silence() { Reply r; r.kind = Reply::Kind::Silence; return r; }

    // wait: the engine's wait, through which the synchronous operations pass event-loop time;
    // without it they return at once.
    explicit ScriptedAppLayer(EngineWait wait = {}) : m_wait(std::move(wait)) {}

    // The first request called name (an operation's name, e.g. "OpenChannel" or "ReadMemory")
    // gets no answer: it waits until the run is cancelled. requestWithheld says when.
    void holdAt(const QString &name) { m_holdAt = name; }
    // What the operations report when their wait was cancelled.
    static constexpr int16_t CancelledOpenCode = 20;
    static constexpr int32_t CancelledTransferResult = 3;

    // Scripted replies, used in order by the asynchronous requests.
    void queueReply(const Reply &reply) { m_replies.push_back(reply); }
    void setOpenErrorCode(int16_t code) { m_openErrorCode = code; }
    void setTransferResult(int32_t result) { m_transferResult = result; }
    void setErrorText(const QString &text) { m_errorText = text; }
    // Where a healthy read takes its bytes from (default: the low byte of each address).
    void setReadSource(std::function<QByteArray(int32_t address, int32_t count)> source) { m_readSource = std::move(source); }
    // A transfer program that answers range checksums: the CRC-32 of the flash as a healthy read
    // delivers it, with the blocks programmed so far over it.
    void setOffersRangeCrc(bool offers) { m_offersRangeCrc = offers; }
    // The plan the engine announced, with its images read while it was announced.
    struct AnnouncedPlan {
        FlashPlan plan;
        QList<QByteArray> images;
    };
    std::shared_ptr<std::optional<AnnouncedPlan>> announcedPlan() const { return m_plan; }
    // Applies a reply's getter values now, without raising an event.
    void applyNow(const Reply &reply) { apply(reply); }

    // The record of calls, shared so that it outlives the layer the engine drops at a run's end.
    std::shared_ptr<QList<Call>> callLog() const { return m_calls; }

    // ApplicationLayer
    void UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress,
                               int32_t startAddress, int32_t &result) override;
    void OpenChannel(const QString &initString) override;
    void QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex) override;
    void ProgrammingVoltageOn() override;
    void ProgrammingVoltageOff() override;
    void FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length) override;
    void Restart() override;
    void ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex,
                      const uint8_t *data) override;
    void AnnounceRange(int32_t address, int32_t length) override { record(QStringLiteral("AnnounceRange"), {address, length}); }
    void GetManufacturerCode(int32_t &code) override { record(QStringLiteral("GetManufacturerCode")); code = m_manufacturerCode; }
    void ReadMemory(uint8_t architecture, int32_t address, int32_t count) override;
    void RequestChecksum(uint8_t architecture, int32_t address, int32_t length) override;
    void GetDeviceCode(int32_t &code) override { record(QStringLiteral("GetDeviceCode")); code = m_deviceCode; }
    void GetStatus(int16_t &status) override { record(QStringLiteral("GetStatus")); status = m_status; }
    void GetChecksum(int32_t &checksum) override { record(QStringLiteral("GetChecksum")); checksum = m_checksum; }
    void GetEraseResult(int32_t &address, int16_t &status) override
    {
        record(QStringLiteral("GetEraseResult"));
        address = m_resultAddress;
        status = m_status;
    }
    void GetProgramResult(int32_t &address, int16_t &status) override
    {
        record(QStringLiteral("GetProgramResult"));
        address = m_resultAddress;
        status = m_status;
    }
    void GetReadLength(int32_t &length) override { record(QStringLiteral("GetReadLength")); length = int32_t(m_readData.size()); }
    void GetReadData(uint8_t *data) override;
    bool OffersRangeCrc() const override { return m_offersRangeCrc; }
    void RequestRangeCrc(uint8_t architecture, int32_t address, int32_t length) override;
    void GetRangeCrc(uint32_t &crc) override { record(QStringLiteral("GetRangeCrc")); crc = m_rangeCrc; }
    void AnnounceFlashPlan(const FlashPlan &plan) override;
    void Shutdown() override { record(QStringLiteral("Shutdown")); }
    void CloseChannel() override { record(QStringLiteral("CloseChannel")); }
    void GetErrorCode(int16_t &code) override;
    void GetErrorText(QString &text) override { record(QStringLiteral("GetErrorText")); text = m_errorText; }

signals:
    // A request was answered with silence: nothing will come unless the test raises it.
    void requestWithheld();

private:
    void record(const QString &name, const QVariantList &args = {});
    // True when the request called name is the one to hold (it then says so).
    bool holds(const QString &name);
    // Passes event-loop time as a synchronous operation does; false when the run was
    // cancelled meanwhile.
    bool takeTime(const QString &name);
    // Takes the next scripted reply (or the healthy answer) and raises it later.
    void answerLater(int32_t defaultId, Reply healthy);
    static Reply passing(int16_t status) { Reply r; r.status = status; return r; }
    void apply(const Reply &reply);

    std::shared_ptr<QList<Call>> m_calls = std::make_shared<QList<Call>>();
    // The bytes a healthy read delivers.
    QByteArray healthyRead(int32_t address, int32_t count) const;

    std::map<uint32_t, uint8_t> m_flash; // the bytes programmed so far, by address
    bool m_offersRangeCrc = false;
    std::shared_ptr<std::optional<AnnouncedPlan>> m_plan = std::make_shared<std::optional<AnnouncedPlan>>();
    std::function<QByteArray(int32_t, int32_t)> m_readSource;
    std::deque<Reply> m_replies;
    EngineWait m_wait;
    QString m_holdAt;
    int16_t m_openErrorCode = 0;
    int32_t m_transferResult = 0;

    // Getter state
    int16_t m_status = 0;
    int32_t m_resultAddress = 0;
    int32_t m_manufacturerCode = 0;
    int32_t m_deviceCode = 0;
    int32_t m_checksum = 0;
    uint32_t m_rangeCrc = 0;
    QByteArray m_readData;
    QString m_errorText;
    QList<int16_t> m_errorCodes;
};
