#include "instrument/SimulatedInstrument.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <cmath>
#include <zlib.h>

using namespace Protocol;

namespace {
// What each request carries and what its Reply holds besides the data, in bytes.
struct Layout {
    uint8_t type;
    int leastPayload;
    int mostPayload;
    int replyFields;
};
constexpr Layout Layouts[] = {
    {LoadBlock, 6, 5 + LoadBlockBytes, 2}, {Start, 12, 12, 4},     {Identify, 6, 6, 10},
    {VoltageOn, 0, 0, 2},                  {VoltageOff, 0, 0, 2},  {Erase, 10, 10, 6},
    {Restart, 0, 0, 2},                    {Program, 7, 6 + LargestBlock, 6}, {Read, 9, 9, 2},
    {Checksum, 9, 9, 6},                   {Hello, 0, 0, 10},     {Abilities, 0, 0, 14},
    {SwitchRate, 4, 4, 2},                 {ProgramPacked, 9, 8 + LargestBlock, 6},
    {RangeCrc, 9, 9, 6},
};
// The time the instrument's processor takes to inflate a packed block, per byte it yields: a
// 32-bit microcontroller inflates some 4 MB a second, far less than a byte's program time.
constexpr double InflateUsPerByte = 0.25;
// The time its processor takes for a range's CRC-32, per byte: a table-driven loop over flash
// on a small processor, some 2 MB a second.
constexpr double RangeCrcUsPerByte = 0.5;
// What a Program request carries before its data: address u32, architecture u8, flash u8.
constexpr qsizetype ProgramFieldBytes = 6;
// What the transfer program keeps, as it comes from the wire, of the requests that arrive
// while it works on one: 32 KiB of its 128 KiB of RAM, room for the seven plain 4000-byte
// blocks that may wait behind the one it programs, or for three of the largest frames stuffed
// at worst.
constexpr uint32_t ReceiveBufferBytes = 32 * 1024;
// The request types that came with the abilities: a transfer program from before knows none.
constexpr uint8_t AbilityRequests[] = {Abilities, SwitchRate, ProgramPacked, RangeCrc};

// What a request is as a fault option names it: a packed block is a program block.
uint8_t kindOf(uint8_t type)
{
    return type == ProgramPacked ? uint8_t(Program) : type;
}

// The block a ProgramPacked request's data inflates to: exactly length bytes, from a raw
// deflate stream that refers to nothing before it; nullopt when it does not.
std::optional<QByteArray> inflated(const QByteArray &data, uint16_t length)
{
    z_stream stream{};
    if (inflateInit2(&stream, -15) != Z_OK)
        return std::nullopt;
    QByteArray out(qsizetype(length) + 1, '\0'); // one more, to see data that yields too much
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = uInt(out.size());
    const int result = inflate(&stream, Z_SYNC_FLUSH);
    const qsizetype produced = out.size() - qsizetype(stream.avail_out);
    const bool whole = (result == Z_OK || result == Z_STREAM_END) && stream.avail_in == 0 && produced == length;
    inflateEnd(&stream);
    return whole ? std::optional<QByteArray>(out.left(length)) : std::nullopt;
}

const Layout &layoutOf(uint8_t type)
{
    return *std::find_if(std::begin(Layouts), std::end(Layouts), [&](const Layout &l) { return l.type == type; });
}

// A known request whose payload does not fit it: its Reply's fields, status Malformed, the
// rest 0 (a Start's result, a u32, is Malformed too).
QByteArray malformed(uint8_t type)
{
    QByteArray reply = Writer().u16(Status::Malformed).done();
    reply.append(QByteArray(layoutOf(type).replyFields - reply.size(), '\0'));
    return reply;
}

bool fits(const Frame &request)
{
    const Layout &layout = layoutOf(request.type);
    return request.payload.size() >= layout.leastPayload && request.payload.size() <= layout.mostPayload;
}

uint32_t crc32Of(const QByteArray &bytes)
{
    return uint32_t(crc32(0L, reinterpret_cast<const Bytef *>(bytes.constData()), uInt(bytes.size())));
}

QByteArray unknown()
{
    return Writer().u16(Status::Unknown).done();
}
} // namespace

SimulatedInstrument::SimulatedInstrument(const InstrumentOptions &options, QObject *parent)
    : QObject(parent), m_options(options), m_rate(options.baud, options.maxBaud), m_random(options.seed)
{
    connect(&m_rate, &UartRate::changed, this, [this](int baud) {
        m_deaf = m_deaf && baud != m_options.baud; // heard again once back at the package's rate
        emit lineRateChanged(baud);
    });
    for (const auto &[name, base] : options.flash)
        m_flash.add(FlashChip(*FlashChip::part(name), base));
    m_busy.setInterval(BusyIntervalMs);
    connect(&m_busy, &QTimer::timeout, this, [this] { emitFrame(Frame{m_working->sequence, Busy, {}}); });
    m_stallEnd.setSingleShot(true);
    connect(&m_stallEnd, &QTimer::timeout, this, [this] { m_stalled = false; });
    m_clock.start();
}

void SimulatedInstrument::receive(const QByteArray &received)
{
    if (m_poweredOff)
        return;
    const int64_t cutAt = m_options.cutPowerAfterBytes;
    const bool cut = cutAt >= 0 && m_bytesReceived + received.size() >= cutAt;
    take(cut ? received.left(qsizetype(cutAt - m_bytesReceived)) : received);
    if (cut && !m_poweredOff)
        losePower(erasedShareNow());
}

void SimulatedInstrument::take(const QByteArray &received)
{
    m_bytesReceived += received.size();
    const QByteArray bytes = damaged(received);
    if (m_options.disconnectAfterBytes >= 0 && m_bytesReceived > m_options.disconnectAfterBytes) {
        emit vanished();
        return;
    }
    if (m_deaf)
        return; // the switch was lost: whatever comes at the new rate never arrives
    // Up to one END at a time: each damaged frame is told of before what follows it is taken.
    for (qsizetype from = 0; from < bytes.size();) {
        const qsizetype end = bytes.indexOf(char(Frame::End), from);
        const qsizetype to = end < 0 ? bytes.size() : end + 1;
        takeFrame(bytes.sliced(from, to - from));
        from = to;
    }
}

void SimulatedInstrument::takeFrame(const QByteArray &bytes)
{
    const int damagedBefore = m_decoder.corruptFrames();
    const QList<Frame> frames = m_decoder.feed(bytes);
    m_rate.heard(!frames.isEmpty());
    for (const Frame &frame : frames) {
        m_lastIntact = frame.sequence;
        m_damagedSinceIntact = 0;
        handle(frame);
    }
    if (m_decoder.corruptFrames() > damagedBefore) {
        m_damagedSinceIntact = std::min(m_damagedSinceIntact + 1, int(UINT8_MAX));
        emitFrame(Frame{0, Nak, Writer().u8(m_lastIntact).u8(uint8_t(m_damagedSinceIntact)).done()});
    }
}

void SimulatedInstrument::handle(const Frame &request)
{
    if (m_stalled)
        return;
    const bool firstOfStalledType = m_options.stallAtType == kindOf(request.type) && !m_stalledAtType;
    m_stalledAtType = m_stalledAtType || firstOfStalledType;
    if (++m_framesSeen == m_options.stallAfterFrames || firstOfStalledType) {
        m_stalled = true;
        m_stallEnd.start(m_options.stallMs);
        return;
    }
    if (const std::optional<QByteArray> kept = m_kept.answerTo(request)) {
        emitFrame(Frame{request.sequence, Reply, *kept}); // done already: answer again, act once
        return;
    }
    if (isUnderWay(request))
        return; // sent again while we work on it or while it waits: its Reply answers it
    if (request.type == Hello)
        m_kept.forget(); // a new channel: what was kept belongs to another count
    m_kept.note(request.sequence);
    m_queue.push_back({request, double(m_clock.nsecsElapsed()) / 1e6});
    workThroughQueue();
}

bool SimulatedInstrument::isUnderWay(const Frame &request) const
{
    return m_working == request
           || std::any_of(m_queue.begin(), m_queue.end(), [&](const Waiting &waiting) { return waiting.request == request; });
}

void SimulatedInstrument::workThroughQueue()
{
    while (!m_working && !m_queue.empty()) {
        const Waiting next = m_queue.front();
        m_queue.pop_front();
        double workMs = 0;
        const Frame &request = next.request;
        const bool lastRequest = cutsPowerIn(request);
        // A block programmed halfway keeps the first half of what it writes.
        Reader block(request.payload);
        const uint32_t blockAt = block.u32();
        block.u16(); // architecture, flash number
        const uint32_t blockLength = request.type == ProgramPacked ? block.u16() : uint32_t(std::max<qsizetype>(request.payload.size() - ProgramFieldBytes, 0));
        const QByteArray before = lastRequest && kindOf(request.type) == Program ? m_flash.read(blockAt, blockLength).value_or(QByteArray())
                                                                                 : QByteArray();
        const QByteArray answer = execute(request, workMs);
        if (lastRequest) {
            if (!before.isEmpty())
                m_flash.load(blockAt + uint32_t(before.size() / 2), before.mid(before.size() / 2));
            losePower(0.5);
            return;
        }
        const double scaled = workMs * m_options.timeScale;
        if (m_erasing)
            m_erasing->ms = scaled;
        if (scaled < 1) {
            m_erasing.reset();
            reply(request, answer);
            continue;
        }
        // A request that waited starts when the work before it ended, not when the timer got
        // round to saying so: at fast rates the flash's time is what the line waits for, and
        // the simulator's lateness must not add to it.
        m_workEndsMs = std::max(next.arrivedMs, m_workEndsMs) + scaled;
        const double leftMs = m_workEndsMs - double(m_clock.nsecsElapsed()) / 1e6;
        m_working = next.request;
        m_workingReply = answer;
        m_busy.start();
        QTimer::singleShot(int(std::ceil(std::max(leftMs, 0.0))), Qt::PreciseTimer, this, [this] {
            if (m_poweredOff)
                return;
            m_erasing.reset();
            m_busy.stop();
            const Frame done = *m_working;
            m_working.reset();
            reply(done, m_workingReply);
            workThroughQueue();
        });
    }
}

void SimulatedInstrument::reply(const Frame &request, const QByteArray &payload)
{
    if (request.type != Hello) // carrying a Hello out again changes nothing
        m_kept.keep(request, payload);
    emitFrame(Frame{request.sequence, Reply, payload});
    afterAnswer(request, payload);
}

void SimulatedInstrument::afterAnswer(const Frame &request, const QByteArray &answer)
{
    const uint16_t status = Reader(answer).u16();
    if (request.type == Restart && status == Status::Done) {
        m_rate.restarted();
    } else if (request.type == SwitchRate && status == Status::Ok) {
        m_rate.switchTo(int(Reader(request.payload).u32()));
        m_deaf = m_options.loseSwitch && m_rate.rate() != m_options.baud;
    }
}

QByteArray SimulatedInstrument::damaged(const QByteArray &bytes)
{
    if (m_options.corruptRate <= 0 && m_options.dropRate <= 0)
        return bytes;
    std::uniform_real_distribution<double> chance(0.0, 1.0);
    QByteArray out;
    for (char c : bytes) {
        if (chance(m_random) < m_options.dropRate)
            continue;
        if (chance(m_random) < m_options.corruptRate)
            c = char(uint8_t(c) ^ uint8_t(1u << (m_random() % 8)));
        out.append(c);
    }
    return out;
}

bool SimulatedInstrument::cutsPowerIn(const Frame &request)
{
    return m_options.cutPowerInType && kindOf(request.type) == *m_options.cutPowerInType && m_stage == Stage::TransferProgram
           && ++m_cutRequestsSeen == m_options.cutPowerInCount;
}

double SimulatedInstrument::erasedShareNow() const
{
    return m_erasing && m_erasing->ms > 0 ? std::min(1.0, double(m_erasing->since.elapsed()) / m_erasing->ms) : 1.0;
}

void SimulatedInstrument::losePower(double share)
{
    if (m_erasing) {
        // The units before the one it was at are erased, that one up to its middle, the rest
        // not at all.
        const double at = share * double(m_erasing->units.size());
        for (size_t i = 0; i < m_erasing->units.size(); ++i) {
            const QByteArray &old = m_erasing->before[i];
            if (double(i) + 1 <= at)
                continue;
            const qsizetype keep = double(i) <= at ? old.size() / 2 : 0;
            m_flash.load(m_erasing->units[i].first + uint32_t(keep), old.mid(keep));
        }
        m_erasing.reset();
    }
    m_poweredOff = true;
    m_busy.stop();
    m_stallEnd.stop();
    m_queue.clear();
    m_working.reset();
}

void SimulatedInstrument::emitFrame(const Frame &frame)
{
    if (m_poweredOff)
        return;
    emit send(damaged(frame.encode()));
}

QByteArray SimulatedInstrument::execute(const Frame &request, double &workMs)
{
    return m_stage == Stage::BootRom ? bootRom(request) : transferProgram(request, workMs);
}

QByteArray SimulatedInstrument::bootRom(const Frame &request)
{
    if (request.type != LoadBlock && request.type != Start)
        return unknown();
    if (!fits(request))
        return malformed(request.type);
    Reader in(request.payload);
    return request.type == LoadBlock ? loadBlock(in) : start(in);
}

QByteArray SimulatedInstrument::loadBlock(Reader &in)
{
    const uint32_t address = in.u32();
    const uint8_t sum = in.u8();
    const QByteArray data = in.rest();
    uint32_t actual = 0;
    for (char c : data)
        actual += uint8_t(c);
    if (uint8_t(actual) != sum)
        return Writer().u16(Status::BadBlockSum).done();
    if (address < RamStart || uint64_t(address) + uint64_t(data.size()) > uint64_t(RamStart) + RamBytes)
        return Writer().u16(Status::OutsideRam).done();
    for (qsizetype i = 0; i < data.size(); ++i)
        m_ram[address + uint32_t(i)] = uint8_t(data[i]);
    return Writer().u16(Status::Ok).done();
}

QByteArray SimulatedInstrument::start(Reader &in)
{
    const uint32_t load = in.u32();
    const uint32_t length = in.u32();
    const uint32_t entry = in.u32();
    QByteArray image;
    for (uint64_t at = load; at < uint64_t(load) + length; ++at) {
        const auto byte = m_ram.find(uint32_t(at));
        if (byte == m_ram.end())
            return Writer().u32(StartResult::NotLoaded).done();
        image.append(char(byte->second));
    }
    const uint32_t offset = entry - load;
    if (length < 4 || offset > length - 4)
        return Writer().u32(StartResult::NotLoaded).done();
    if (image.mid(qsizetype(offset), 4) != QByteArray(TransferMagic))
        return Writer().u32(StartResult::BadHeader).done();
    m_stage = Stage::TransferProgram;
    m_programCrc = crc32Of(image);
    m_programLength = length;
    m_kept.forget(); // the new stage keeps nothing of the old one's but Start's own answer
    startImage();
    return Writer().u32(StartResult::Running).done();
}

QByteArray SimulatedInstrument::transferProgram(const Frame &request, double &workMs)
{
    if (!knows(request.type))
        return unknown();
    if (!fits(request))
        return malformed(request.type);
    Reader in(request.payload);
    switch (request.type) {
    case Identify: return identify(in);
    case VoltageOn:
        startImage(); // whatever the supply does
        m_voltage = !m_options.refuseVoltage;
        return Writer().u16(m_voltage ? Status::VoltageIsOn : Status::VoltageNotOn).done();
    case VoltageOff:
        m_voltage = false;
        return Writer().u16(Status::VoltageIsOff).done();
    case Erase: return erase(in, workMs);
    case Restart: return restart();
    case Program: return program(in, workMs);
    case ProgramPacked: return programPacked(in, workMs);
    case Abilities: return abilities();
    case SwitchRate: return switchRate(in);
    case Read: return read(in);
    case Checksum: return checksum(in);
    case RangeCrc: return rangeCrc(in, workMs);
    default: // Hello
        return Writer().u16(Status::Ok).u32(m_programCrc).u32(m_programLength).done();
    }
}

bool SimulatedInstrument::knows(uint8_t type) const
{
    const bool ability = std::find(std::begin(AbilityRequests), std::end(AbilityRequests), type) != std::end(AbilityRequests);
    return type >= Identify && type <= RangeCrc && kindOf(type) != m_options.unknownType
           && !(ability && m_options.basicTransferProgram) && !(type == ProgramPacked && !m_options.packedBlocks);
}

QByteArray SimulatedInstrument::abilities() const
{
    // A transfer program names only what it knows.
    const uint32_t rangeCrc = knows(RangeCrc) ? Ability::RangeChecksums : 0;
    return Writer()
        .u16(Status::Ok)
        .u32(uint32_t(m_rate.highestRate()))
        .u32(Ability::SwitchRate | (m_options.packedBlocks ? Ability::PackedBlocks : 0) | rangeCrc)
        .u32(ReceiveBufferBytes)
        .done();
}

// The answer leaves at the old rate; the switch follows it (afterAnswer).
QByteArray SimulatedInstrument::switchRate(Reader &in)
{
    const auto rate = int(std::min<uint32_t>(in.u32(), INT32_MAX));
    return Writer().u16(m_rate.takes(rate) && !m_options.refuseBaud ? Status::Ok : Status::RateNotTaken).done();
}

QByteArray SimulatedInstrument::identify(Reader &in) const
{
    const uint32_t address = in.u32();
    in.u8(); // the architecture: addresses are bytes whatever the bus width
    const FlashChip *chip = m_flash.chipAt(address, in.u8());
    if (!chip)
        return Writer().u16(Status::NoFlash).u32(0).u32(0).done();
    return Writer().u16(Status::Ok).u32(uint32_t(chip->model().manufacturer)).u32(uint32_t(chip->model().device)).done();
}

QByteArray SimulatedInstrument::erase(Reader &in, double &workMs)
{
    in.u8();
    const uint8_t index = in.u8();
    const uint32_t address = in.u32();
    const uint32_t length = in.u32();
    if (m_options.failEraseAt && *m_options.failEraseAt >= address && *m_options.failEraseAt - address < length)
        return Writer().u16(Status::EraseFailed).u32(*m_options.failEraseAt).done();
    const std::vector<std::pair<uint32_t, uint32_t>> units = m_flash.eraseUnits(address, length, index);
    std::vector<QByteArray> before;
    for (const auto &[start, size] : units)
        before.push_back(m_flash.read(start, size).value_or(QByteArray()));
    const std::optional<double> ms = m_voltage ? m_flash.erase(address, length, index) : std::nullopt;
    if (!ms)
        return Writer().u16(Status::EraseFailed).u32(address).done();
    workMs = *ms;
    m_erasing = Erasing{QElapsedTimer(), *ms, units, before};
    m_erasing->since.start();
    return Writer().u16(Status::Ok).u32(address).done();
}

QByteArray SimulatedInstrument::program(Reader &in, double &workMs)
{
    const uint32_t address = in.u32();
    in.u8();
    const uint8_t index = in.u8();
    return program(address, index, in.rest(), workMs);
}

QByteArray SimulatedInstrument::programPacked(Reader &in, double &workMs)
{
    const uint32_t address = in.u32();
    in.u8();
    const uint8_t index = in.u8();
    const uint16_t length = in.u16();
    const std::optional<QByteArray> data = inflated(in.rest(), length);
    if (!data) { // refused as a block that cannot be programmed: nothing of it is written
        m_refusedAt = m_refusedAt.value_or(address);
        return Writer().u16(Status::ProgramFailed).u32(*m_refusedAt).done();
    }
    const QByteArray answer = program(address, index, *data, workMs);
    workMs += data->size() * InflateUsPerByte / 1000.0;
    return answer;
}

QByteArray SimulatedInstrument::program(uint32_t address, uint8_t index, const QByteArray &data, double &workMs)
{
    if (!m_refusedAt) {
        if (m_options.failProgramAt && *m_options.failProgramAt >= address && *m_options.failProgramAt - address < uint32_t(data.size()))
            m_refusedAt = m_options.failProgramAt;
        else if (!m_voltage)
            m_refusedAt = address;
        else
            m_refusedAt = m_flash.refusal(address, data, index);
        if (!m_refusedAt) {
            workMs = m_flash.program(address, data, index) / 1000.0;
            return Writer().u16(Status::Done).u32(address).done();
        }
    }
    return Writer().u16(Status::ProgramFailed).u32(*m_refusedAt).done(); // nothing behind a refusal
}

QByteArray SimulatedInstrument::read(Reader &in)
{
    in.u8();
    const uint32_t address = in.u32();
    const uint32_t count = in.u32();
    std::optional<QByteArray> bytes = count <= uint32_t(LargestBlock) ? m_flash.read(address, count) : std::nullopt;
    if (!bytes)
        return Writer().u16(Status::ReadFailed).done();
    const bool garble = m_options.garbleRead == InstrumentOptions::Garble::Always
                        || (m_options.garbleRead == InstrumentOptions::Garble::Once && !m_readGarbled);
    if (garble && !bytes->isEmpty()) {
        m_readGarbled = true;
        (*bytes)[bytes->size() / 2] = char(uint8_t((*bytes)[bytes->size() / 2]) ^ 0x10);
    }
    return Writer().u16(Status::Ok).bytes(*bytes).done();
}

QByteArray SimulatedInstrument::checksum(Reader &in) const
{
    in.u8();
    const uint32_t address = in.u32();
    const std::optional<QByteArray> bytes = m_flash.read(address, in.u32());
    if (!bytes)
        return Writer().u16(Status::OutsideFlash).u32(0).done();
    uint32_t sum = 0;
    for (char c : *bytes)
        sum += uint8_t(c);
    if (m_options.wrongChecksum)
        ++sum;
    return Writer().u16(Status::Ok).u32(sum & 0xFF).done();
}

QByteArray SimulatedInstrument::rangeCrc(Reader &in, double &workMs) const
{
    in.u8();
    const uint32_t address = in.u32();
    const std::optional<QByteArray> bytes = m_flash.read(address, in.u32());
    if (!bytes)
        return Writer().u16(Status::OutsideFlash).u32(0).done();
    workMs = double(bytes->size()) * RangeCrcUsPerByte / 1000.0;
    return Writer().u16(Status::Ok).u32(crc32Of(*bytes)).done();
}

QByteArray SimulatedInstrument::restart()
{
    m_stage = Stage::BootRom;
    m_voltage = false;
    m_ram.clear();
    m_kept.forget(); // the boot ROM keeps nothing of the program's but Restart's own answer
    startImage();
    return Writer().u16(Status::Done).done();
}

bool SimulatedInstrument::loadFiles(QString *error)
{
    for (const auto &[path, address] : m_options.loads) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return false;
        }
        const QByteArray bytes = file.readAll();
        if (!m_flash.load(address, bytes)) {
            *error = QStringLiteral("%1 does not fit into the chips at 0x%2").arg(path).arg(address, 0, 16);
            return false;
        }
    }
    return true;
}

bool SimulatedInstrument::dump(QString *error) const
{
    if (m_options.dumpFolder.isEmpty())
        return true;
    QDir().mkpath(m_options.dumpFolder);
    for (const FlashChip &chip : m_flash.chips()) {
        const QString path = QStringLiteral("%1/%2@0x%3.bin")
                                 .arg(m_options.dumpFolder, QLatin1String(chip.model().name))
                                 .arg(chip.base(), 0, 16);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(chip.contents()) != chip.contents().size()) {
            *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
            return false;
        }
    }
    return true;
}
