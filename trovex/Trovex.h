#pragma once
// The application layer on a real channel. OpenChannel takes the channel description
// ("clsid:... COM2:115200,E,8,1" for a serial port, "clsid:... GPIB0" for GPIB), finds the
// port in the port map and opens its transport. UploadTransferProgram loads the transfer
// program into the boot ROM block by block and starts it (TransferProgramLoader). Both wait
// for the line through the engine's wait only, so a Cancel ends them at once: OpenChannel
// then leaves TrovexError::Cancelled, UploadTransferProgram returns TransferResult::Cancelled,
// and the channel closes as after any failure. Once the transfer program runs,
// UploadTransferProgram also asks it what it can do and moves a serial line to the fastest
// rate both ends and the user allow (LineRateSwitch); Program requests then go compressed when
// the program takes them, and the engine may ask for range checksums when it answers them.
// The engine sees none of the rest. Every other request goes to the transfer
// program through the request pipeline, which keeps the line busy within the ranges the
// engine announces, and is answered by one event. An answer whose status the request does
// not document is an error event that names the status. Closing a channel on which the
// programming voltage may still be on switches it off first.
#include "engine/ApplicationLayer.h"
#include "link/InstrumentAbilities.h"
#include "link/LineRateLimit.h"
#include "link/Link.h"
#include "link/PortMap.h"
#include "link/Protocol.h"
#include "link/RequestPipeline.h"

#include <QByteArray>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

class DifferentialPlan;
class Transport;

class Trovex : public ApplicationLayer {
    Q_OBJECT
public:
    // wait: the engine's wait, through which the synchronous operations wait for the line;
    // highestRate: the fastest line rate the user allows.
    explicit Trovex(EngineWait wait, PortMap ports = PortMap::fromEnvironment(),
                    int highestRate = LineRateLimit::fromEnvironment(), QObject *parent = nullptr);
    ~Trovex() override;

    void UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress, int32_t startAddress,
                               int32_t &result) override;
    void OpenChannel(const QString &initString) override;
    void QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex) override;
    void ProgrammingVoltageOn() override;
    void ProgrammingVoltageOff() override;
    void FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length) override;
    void Restart() override;
    void ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex,
                      const uint8_t *data) override;
    void AnnounceRange(int32_t address, int32_t length) override;
    // Where the transfer program answers range checksums, the erases and blocks of the plan
    // whose result the flash holds already are answered without being sent.
    void AnnounceFlashPlan(const FlashPlan &plan) override;
    void GetManufacturerCode(int32_t &code) override { code = m_manufacturer; }
    void ReadMemory(uint8_t architecture, int32_t address, int32_t count) override;
    void RequestChecksum(uint8_t architecture, int32_t address, int32_t length) override;
    void GetDeviceCode(int32_t &code) override { code = m_device; }
    void GetStatus(int16_t &status) override { status = m_status; }
    void GetChecksum(int32_t &checksum) override { checksum = m_checksum; }
    void GetEraseResult(int32_t &address, int16_t &status) override;
    void GetProgramResult(int32_t &address, int16_t &status) override;
    void GetReadLength(int32_t &length) override { length = static_cast<int32_t>(m_readData.size()); }
    void GetReadData(uint8_t *data) override;
    bool OffersRangeCrc() const override { return m_abilities.rangeChecksums; }
    void RequestRangeCrc(uint8_t architecture, int32_t address, int32_t length) override;
    void GetRangeCrc(uint32_t &crc) override { crc = m_rangeCrc; }
    void Shutdown() override;
    void CloseChannel() override;
    void GetErrorCode(int16_t &code) override { code = m_errorCode; }
    void GetErrorText(QString &text) override { text = m_errorText; }

    // Requests sent again after a lost or damaged answer, over the channel's life.
    int retransmissions() const { return m_link ? m_link->retransmissions() : 0; }
    // Payload bytes moved in both directions over the channel's life, program blocks counted
    // as the engine sent them (packed ones as they were before packing).
    int64_t payloadBytes() const
    {
        return (m_link ? m_link->payloadBytes() : 0) + (m_pipeline ? m_pipeline->bytesPackedAway() : 0);
    }

signals:
    // Once the transfer program runs: the line's rate from now on (0 on GPIB), whether Program
    // requests go compressed, and why the rate is not faster ("" when there is nothing to say).
    void lineSettled(int rate, bool packedBlocks, const QString &note);
    // A block answered as programmed without being sent: the flash held its bytes already.
    void blockAlreadyRight(int bytes);

private:
    using Kind = RequestPipeline::Kind;

    // Asks the running transfer program what it can do and sets the line up for it; result
    // and error as UploadTransferProgram's.
    void setUpLine(int32_t &result);
    void submit(RequestPipeline::Request request);
    void forgetPlan();
    // When the plan's ranges are still to be checked: checks them, then makes request, and
    // says true.
    bool surveyFirst(std::function<void()> request);
    void askNextCheck();
    void onSurveyAnswer(const QByteArray &payload);
    // Raises the answer the instrument would give, from the event loop, without asking it.
    void answerAtOnce(Kind kind, const QByteArray &payload);
    void onAnswered(Kind kind, const QByteArray &payload);
    // Takes the answer's values into the getters; its response id.
    int32_t takeValues(Kind kind, Protocol::Reader &reply);
    // Why an answer with a status the engine's response table would pass is a failure ("" if
    // it is none).
    QString undocumentedStatus(Kind kind) const;
    // Sends VoltageOff when the voltage may still be on, and waits a bounded time for it.
    void switchVoltageOffBeforeClosing();
    void onFailed(Link::Failure failure, const QString &reason);
    // Raises the error event from the event loop, never inside the request call.
    void raiseErrorLater(int16_t code, const QString &text);
    void setError(int16_t code, const QString &text);
    // Opens the transport made for the channel; false with the error set.
    bool openTransport(std::unique_ptr<Transport> transport);
    // The link and the pipeline on the open transport.
    void startLink();

    EngineWait m_wait;
    PortMap m_ports;
    int m_highestRate;
    std::unique_ptr<Transport> m_transport;
    std::unique_ptr<Link> m_link;
    std::unique_ptr<RequestPipeline> m_pipeline;

    int16_t m_errorCode = 0;
    QString m_errorText;
    int16_t m_status = 0;
    int32_t m_manufacturer = 0;
    int32_t m_device = 0;
    int32_t m_checksum = 0;
    uint32_t m_rangeCrc = 0;
    int32_t m_resultAddress = 0;
    QByteArray m_readData;
    int32_t m_requestAddress = 0; // of the engine's erase or read, for the messages
    int32_t m_requestCount = 0;
    bool m_voltageMayBeOn = false; // switched on, and not yet answered as off
    InstrumentAbilities m_abilities; // of the transfer program that runs

    // Writing only what is missing (TrovexDifferential.cpp).
    struct Survey {
        size_t next;                // the plan's check being asked
        std::function<void()> then; // the engine's request that waits for the answers
    };
    std::unique_ptr<DifferentialPlan> m_plan;
    uint8_t m_planArchitecture = 0;
    bool m_surveyed = false;
    std::optional<Survey> m_survey;
    std::deque<RequestPipeline::Request> m_eraseParts; // of the engine's erase, still to send
    uint64_t m_rangeEnd = 0;         // of the range announced last
    bool m_blockSentInRange = false; // a block of it went to the instrument
};
