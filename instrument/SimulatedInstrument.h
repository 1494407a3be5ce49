#pragma once
// The instrument behind the wire: a boot ROM that takes a transfer program into RAM and
// starts it, then the transfer program that identifies, erases, programs, reads and sums
// the flash chips under programming voltage. It answers each request once, keeps its last
// answer for a request sent again, sends busy frames while it works, and misbehaves as its
// options ask.
#include "instrument/FlashChip.h"
#include "instrument/InstrumentOptions.h"
#include "trovex/Frame.h"
#include "trovex/FrameDecoder.h"

#include <QObject>
#include <QTimer>
#include <map>
#include <random>
#include <vector>

class SimulatedInstrument : public QObject {
    Q_OBJECT
public:
    explicit SimulatedInstrument(const InstrumentOptions &options, QObject *parent = nullptr);

    // Bytes from the host.
    void receive(const QByteArray &bytes);
    const std::vector<FlashChip> &chips() const { return m_chips; }
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
    QByteArray execute(const Frame &request, double &workMs);
    QByteArray bootRom(const Frame &request);
    QByteArray transferProgram(const Frame &request, double &workMs);
    FlashChip *chipHolding(uint32_t address, uint32_t length, int32_t index = 0);
    void reply(uint8_t sequence, const QByteArray &payload);
    void emitFrame(const Frame &frame);
    // The bytes as a noisy line delivers them, in either direction.
    QByteArray damaged(const QByteArray &bytes);

    InstrumentOptions m_options;
    std::vector<FlashChip> m_chips;
    std::map<uint32_t, uint8_t> m_ram;
    Stage m_stage = Stage::BootRom;
    bool m_voltage = false;
    FrameDecoder m_decoder;
    int m_corruptSeen = 0;
    int m_framesSeen = 0;
    int64_t m_bytesReceived = 0;
    QTimer m_stallEnd;
    bool m_stalled = false;
    // The request being worked on and the last answer, for requests sent again.
    bool m_working = false;
    uint8_t m_workingSequence = 0;
    QByteArray m_workingReply;
    QTimer m_busy;
    uint8_t m_lastSequence = 0; // 0: nothing answered yet (hosts never use it)
    QByteArray m_lastReply;
    std::mt19937 m_random;
};
