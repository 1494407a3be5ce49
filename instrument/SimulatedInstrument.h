#pragma once
// The instrument behind the wire, as docs/protocol.md describes it: a boot ROM that takes a
// transfer program into its RAM and starts it, then the transfer program that identifies,
// erases, programs, reads and sums the flash chips under programming voltage. It carries out
// requests in the order they arrive (queueing those that arrive while it works, as a UART
// buffer does), answers each once, keeps its recent answers for requests sent again, sends
// busy frames while it works, and misbehaves as its options ask. Its transfer program says what
// it can do beyond the requests every one knows (Abilities), switches the line's rate (UartRate),
// inflates packed program blocks and sums ranges with a CRC-32, with its processor's own time
// per byte. It can lose its power mid-run: the flash keeps what was programmed, an erase under
// way leaves the unit it was at half erased, and nothing answers any more.
#include "instrument/FlashBank.h"
#include "instrument/InstrumentOptions.h"
#include "instrument/KeptAnswers.h"
#include "instrument/UartRate.h"
#include "link/Frame.h"
#include "link/FrameDecoder.h"
#include "link/Protocol.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <deque>
#include <map>
#include <optional>
#include <random>

class SimulatedInstrument : public QObject {
    Q_OBJECT
public:
    // The boot ROM's RAM, where the transfer program is loaded.
    static constexpr uint32_t RamStart = 0x20000;
    static constexpr uint32_t RamBytes = 0x20000;

    explicit SimulatedInstrument(const InstrumentOptions &options, QObject *parent = nullptr);

    // Bytes from the host.
    void receive(const QByteArray &bytes);
    // Bytes received from the host so far: the scale of --cut-power-after and --disconnect-after.
    int64_t bytesReceived() const { return m_bytesReceived; }
    // Puts the --load files into the chips; false with a reason.
    bool loadFiles(QString *error);
    // Writes every chip to the dump folder; false with a reason.
    bool dump(QString *error) const;

signals:
    // Bytes for the host.
    void send(const QByteArray &bytes);
    // The fault "port vanishes" struck.
    void vanished();
    // The line's rate for what is sent from now on and what is heard once that has left.
    void lineRateChanged(int baud);

private:
    enum class Stage { BootRom, TransferProgram };
    using Reader = Protocol::Reader;

    // receive's work on the bytes that arrive while the power is on.
    void take(const QByteArray &bytes);
    // Bytes up to and with one END: a frame to handle, or a damaged one to send a Nak for that
    // names the last request that arrived intact and the damaged frames since.
    void takeFrame(const QByteArray &bytes);
    void handle(const Frame &request);
    // Whether the power goes halfway through this request (--cut-power-in).
    bool cutsPowerIn(const Frame &request);
    // The power goes: share is how much of an erase under way got done.
    void losePower(double share);
    // What an erase under way has done by now.
    double erasedShareNow() const;
    // Whether the request is being worked on or waits its turn.
    bool isUnderWay(const Frame &request) const;
    // Carries out queued requests until one needs time or the queue is empty.
    void workThroughQueue();
    QByteArray execute(const Frame &request, double &workMs);
    QByteArray bootRom(const Frame &request);
    QByteArray loadBlock(Reader &in);
    QByteArray start(Reader &in);
    QByteArray transferProgram(const Frame &request, double &workMs);
    QByteArray identify(Reader &in) const;
    QByteArray erase(Reader &in, double &workMs);
    QByteArray abilities() const;
    QByteArray switchRate(Reader &in);
    QByteArray program(Reader &in, double &workMs);
    QByteArray programPacked(Reader &in, double &workMs);
    // Programs data at address, or refuses it (and the rest of the image).
    QByteArray program(uint32_t address, uint8_t index, const QByteArray &data, double &workMs);
    // Whether the running transfer program knows the request type.
    bool knows(uint8_t type) const;
    QByteArray read(Reader &in);
    QByteArray checksum(Reader &in) const;
    QByteArray rangeCrc(Reader &in, double &workMs) const;
    QByteArray restart();
    // The request after the answer to it has gone: a switch of the line's rate.
    void afterAnswer(const Frame &request, const QByteArray &answer);
    // Leaves the program running and the flash as they are: the next image starts afresh.
    void startImage() { m_refusedAt.reset(); }
    void reply(const Frame &request, const QByteArray &payload);
    void emitFrame(const Frame &frame);
    // The bytes as a noisy line delivers them, in either direction.
    QByteArray damaged(const QByteArray &bytes);

    InstrumentOptions m_options;
    FlashBank m_flash;
    std::map<uint32_t, uint8_t> m_ram; // the bytes loaded since power-on or Restart
    Stage m_stage = Stage::BootRom;
    uint32_t m_programCrc = 0;    // of the transfer program's image, for Hello
    uint32_t m_programLength = 0;
    bool m_voltage = false;
    std::optional<uint32_t> m_refusedAt; // where the image being programmed was first refused
    FrameDecoder m_decoder;
    UartRate m_rate;
    bool m_deaf = false; // --lose-switch: nothing is heard at the switched rate
    uint8_t m_lastIntact = 0; // the number of the last request that arrived intact; 0: none since power-on
    int m_damagedSinceIntact = 0;
    bool m_poweredOff = false;
    int m_cutRequestsSeen = 0;
    bool m_readGarbled = false;
    // The erase under way: its units as they were, for a power cut to leave it half done.
    struct Erasing {
        QElapsedTimer since;
        double ms;
        std::vector<std::pair<uint32_t, uint32_t>> units;
        std::vector<QByteArray> before;
    };
    std::optional<Erasing> m_erasing;
    int m_framesSeen = 0;
    int64_t m_bytesReceived = 0;
    QTimer m_stallEnd;
    bool m_stalled = false;
    bool m_stalledAtType = false; // the stall at a request type happens once
    struct Waiting {
        Frame request;
        double arrivedMs;
    };
    // Requests waiting while another is worked on.
    std::deque<Waiting> m_queue;
    // The request being worked on.
    std::optional<Frame> m_working;
    QByteArray m_workingReply;
    // The work's own clock: work ends when its time is up, however late the timer that
    // reports it, and the next request starts then.
    QElapsedTimer m_clock;
    double m_workEndsMs = 0;
    QTimer m_busy;
    KeptAnswers m_kept;
    std::mt19937 m_random;
};
