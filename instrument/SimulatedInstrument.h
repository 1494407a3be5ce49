#pragma once
// The instrument behind the wire: a boot ROM that takes a transfer program into RAM and
// starts it, then the transfer program that identifies, erases, programs, reads and sums
// the flash chips under programming voltage. It carries out requests in the order they
// arrive (queueing those that arrive while it works, as a UART buffer does), answers each once,
// keeps its recent answers for requests sent again, sends busy frames while it works, and
// misbehaves as its options ask.
#include "instrument/FlashBank.h"
#include "instrument/InstrumentOptions.h"
#include "link/Frame.h"
#include "link/FrameDecoder.h"

#include <QObject>
#include <QTimer>
#include <deque>
#include <map>
#include <random>
#include <vector>

class SimulatedInstrument : public QObject {
    Q_OBJECT
public:
    explicit SimulatedInstrument(const InstrumentOptions &options, QObject *parent = nullptr);

    // Bytes from the host.
    void receive(const QByteArray &bytes);
    const std::vector<FlashChip> &chips() const { return m_flash.chips(); }
    // Puts the --load files into the chips; false with a reason.
    bool loadFiles(QString *error);
    // Writes every chip to the dump folder; false with a reason.
    bool dump(QString *error) const;
    bool transferProgramRunning() const { return m_stage == Stage::TransferProgram; }

signals:
    // Bytes for the host.
    void send(const QByteArray &bytes);
    // The fault "port vanishes" struck.
    void vanished();

private:
    enum class Stage { BootRom, TransferProgram };

    void handle(const Frame &request);
    // Carries out queued requests until one needs time or the queue is empty.
    void workThroughQueue();
    bool answeredFromCache(const Frame &request);
    // A request not answered from the cache: keeps only the answers of the few requests just
    // before the newest, which the host may still send again; a host that started counting
    // afresh finds none of the old ones.
    void noteSequence(uint8_t sequence);
    QByteArray execute(const Frame &request, double &workMs);
    QByteArray bootRom(const Frame &request);
    QByteArray transferProgram(const Frame &request, double &workMs);
    void reply(const Frame &request, const QByteArray &payload);
    void emitFrame(const Frame &frame);
    // The bytes as a noisy line delivers them, in either direction.
    QByteArray damaged(const QByteArray &bytes);

    InstrumentOptions m_options;
    FlashBank m_flash;
    std::map<uint32_t, uint8_t> m_ram;
    Stage m_stage = Stage::BootRom;
    bool m_voltage = false;
    FrameDecoder m_decoder;
    int m_corruptSeen = 0;
    int m_framesSeen = 0;
    int64_t m_bytesReceived = 0;
    QTimer m_stallEnd;
    bool m_stalled = false;
    bool m_stalledAtType = false; // the stall at a request type happens once
    // Requests waiting while another is worked on.
    std::deque<Frame> m_queue;
    // The request being worked on.
    bool m_working = false;
    uint8_t m_workingSequence = 0;
    QByteArray m_workingReply;
    QTimer m_busy;
    // Recent requests with their answers, for requests sent again. Kept per stage, and only
    // for the numbers just before the newest request, so a host that starts over is never
    // answered from it.
    struct Answered {
        Frame request;
        QByteArray reply;
    };
    std::deque<Answered> m_answered;
    static constexpr size_t AnswersKept = 8; // well above the host's window of requests on the way
    static constexpr int SequenceHalf = 127;  // further ahead than this is a new count, not the next request
    uint8_t m_newestSequence = 0;             // 0: none yet
    std::mt19937 m_random;
};
