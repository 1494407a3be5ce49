#include "instrument/SimulatedInstrument.h"

#include "link/Protocol.h"

#include <QDir>
#include <QFile>

using namespace Protocol;

SimulatedInstrument::SimulatedInstrument(const InstrumentOptions &options, QObject *parent)
    : QObject(parent), m_options(options), m_random(options.seed)
{
    for (const auto &[name, base] : options.flash)
        m_flash.add(FlashChip(*FlashChip::part(name), base));
    m_busy.setInterval(BusyIntervalMs);
    connect(&m_busy, &QTimer::timeout, this, [this] { emitFrame(Frame{m_workingSequence, Busy, {}}); });
    m_stallEnd.setSingleShot(true);
    connect(&m_stallEnd, &QTimer::timeout, this, [this] { m_stalled = false; });
}

void SimulatedInstrument::receive(const QByteArray &received)
{
    m_bytesReceived += received.size();
    const QByteArray bytes = damaged(received);
    if (m_options.disconnectAfterBytes >= 0 && m_bytesReceived > m_options.disconnectAfterBytes) {
        emit vanished();
        return;
    }
    for (const Frame &frame : m_decoder.feed(bytes))
        handle(frame);
    if (m_decoder.corruptFrames() > m_corruptSeen) {
        m_corruptSeen = m_decoder.corruptFrames();
        emitFrame(Frame{0, Nak, {}});
    }
}

void SimulatedInstrument::handle(const Frame &request)
{
    if (m_stalled)
        return;
    const bool firstOfStalledType = m_options.stallAtType == request.type && !m_stalledAtType;
    m_stalledAtType = m_stalledAtType || firstOfStalledType;
    if (++m_framesSeen == m_options.stallAfterFrames || firstOfStalledType) {
        m_stalled = true;
        m_stallEnd.start(m_options.stallMs);
        return;
    }
    if (answeredFromCache(request))
        return; // done already: answer again, act once
    noteSequence(request.sequence);
    if (m_working && request.sequence == m_workingSequence)
        return; // sent again while we work on it: the busy frames answer it
    if (std::any_of(m_queue.begin(), m_queue.end(), [&](const Frame &f) { return f.sequence == request.sequence; }))
        return; // sent again while it waits its turn
    m_queue.push_back(request);
    workThroughQueue();
}

bool SimulatedInstrument::answeredFromCache(const Frame &request)
{
    for (const Answered &answered : m_answered)
        if (answered.request == request) {
            emitFrame(Frame{request.sequence, Reply, answered.reply});
            return true;
        }
    return false;
}

void SimulatedInstrument::noteSequence(uint8_t sequence)
{
    // Numbers run 1..255: how far one lies past another.
    const auto past = [](uint8_t a, uint8_t b) { return (int(a) - int(b) + 255) % 255; };
    const int ahead = past(sequence, m_newestSequence);
    const int behind = past(m_newestSequence, sequence);
    if (m_newestSequence != 0 && behind >= 1 && behind <= int(AnswersKept))
        return; // an earlier request that never arrived intact, sent again
    if (m_newestSequence == 0 || ahead == 0 || ahead > SequenceHalf)
        m_answered.clear(); // a host that started counting afresh
    m_newestSequence = sequence;
    std::erase_if(m_answered, [&](const Answered &a) {
        const int distance = past(sequence, a.request.sequence);
        return distance == 0 || distance > int(AnswersKept);
    });
}

void SimulatedInstrument::workThroughQueue()
{
    while (!m_working && !m_queue.empty()) {
        const Frame request = m_queue.front();
        m_queue.pop_front();
        double workMs = 0;
        const QByteArray answer = execute(request, workMs);
        const double scaled = workMs * m_options.timeScale;
        if (scaled < 1) {
            reply(request, answer);
            continue;
        }
        m_working = true;
        m_workingSequence = request.sequence;
        m_workingReply = answer;
        m_busy.start();
        QTimer::singleShot(int(scaled), this, [this, request] {
            m_busy.stop();
            m_working = false;
            reply(request, m_workingReply);
            workThroughQueue();
        });
    }
}

void SimulatedInstrument::reply(const Frame &request, const QByteArray &payload)
{
    m_answered.push_back({request, payload});
    if (m_answered.size() > AnswersKept)
        m_answered.pop_front();
    emitFrame(Frame{request.sequence, Reply, payload});
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

void SimulatedInstrument::emitFrame(const Frame &frame)
{
    emit send(damaged(frame.encode()));
}

QByteArray SimulatedInstrument::execute(const Frame &request, double &workMs)
{
    return m_stage == Stage::BootRom ? bootRom(request) : transferProgram(request, workMs);
}

QByteArray SimulatedInstrument::bootRom(const Frame &request)
{
    Reader in(request.payload);
    if (request.type == LoadBlock) {
        const uint32_t address = in.u32();
        const uint8_t sum = in.u8();
        const QByteArray data = in.rest();
        uint32_t actual = 0;
        for (char c : data)
            actual += uint8_t(c);
        if (!in.complete() || uint8_t(actual) != sum)
            return Writer().u16(Status::BadBlockSum).done();
        for (qsizetype i = 0; i < data.size(); ++i)
            m_ram[address + uint32_t(i)] = uint8_t(data[i]);
        return Writer().u16(Status::Ok).done();
    }
    if (request.type == Start) {
        in.u32();
        in.u32();
        const uint32_t start = in.u32();
        QByteArray header;
        for (uint32_t i = 0; i < 4; ++i) {
            const auto byte = m_ram.find(start + i);
            if (byte == m_ram.end())
                return Writer().u32(StartResult::NotLoaded).done();
            header.append(char(byte->second));
        }
        if (header != QByteArray(TransferMagic))
            return Writer().u32(StartResult::BadHeader).done();
        m_stage = Stage::TransferProgram;
        m_answered.clear();
        return Writer().u32(StartResult::Running).done();
    }
    return Writer().u16(Status::Unknown).done();
}

QByteArray SimulatedInstrument::transferProgram(const Frame &request, double &workMs)
{
    Reader in(request.payload);
    switch (request.type) {
    case Identify: {
        const uint32_t address = in.u32();
        in.u8();
        const uint8_t index = in.u8();
        const FlashChip *chip = m_flash.chipAt(address, index);
        if (!chip)
            return Writer().u16(Status::NoFlash).u32(0).u32(0).done();
        return Writer().u16(Status::Ok).u32(uint32_t(chip->model().manufacturer)).u32(uint32_t(chip->model().device)).done();
    }
    case VoltageOn:
        if (m_options.refuseVoltage)
            return Writer().u16(Status::Ok).done(); // anything but "on"
        m_voltage = true;
        return Writer().u16(Status::VoltageIsOn).done();
    case VoltageOff:
        m_voltage = false;
        return Writer().u16(Status::VoltageIsOff).done();
    case Erase: {
        in.u8();
        const uint8_t index = in.u8();
        const uint32_t address = in.u32();
        const uint32_t length = in.u32();
        if (m_options.failEraseAt && *m_options.failEraseAt >= address && *m_options.failEraseAt - address < length)
            return Writer().u16(Status::EraseFailed).u32(*m_options.failEraseAt).done();
        const std::optional<double> ms = m_voltage ? m_flash.erase(address, length, index) : std::nullopt;
        if (!ms)
            return Writer().u16(Status::EraseFailed).u32(address).done();
        workMs = *ms;
        return Writer().u16(Status::Ok).u32(address).done();
    }
    case Restart:
        m_stage = Stage::BootRom;
        m_answered.clear();
        m_voltage = false;
        m_ram.clear();
        return Writer().u16(Status::Done).done();
    case Program: {
        const uint32_t address = in.u32();
        in.u8();
        const uint8_t index = in.u8();
        const QByteArray data = in.rest();
        if (m_options.failProgramAt && *m_options.failProgramAt >= address
            && *m_options.failProgramAt - address < uint32_t(data.size()))
            return Writer().u16(Status::ProgramFailed).u32(*m_options.failProgramAt).done();
        const std::optional<double> us = m_voltage ? m_flash.program(address, data, index) : std::nullopt;
        if (!us)
            return Writer().u16(Status::ProgramFailed).u32(address).done();
        workMs = *us / 1000.0;
        return Writer().u16(Status::Done).u32(address).done();
    }
    case Read: {
        in.u8();
        const uint32_t address = in.u32();
        const uint32_t count = in.u32();
        const std::optional<QByteArray> bytes = count <= uint32_t(Frame::MaxPayload - 2) ? m_flash.read(address, count) : std::nullopt;
        if (!bytes)
            return Writer().u16(Status::ReadFailed).done();
        return Writer().u16(Status::Ok).bytes(*bytes).done();
    }
    case Checksum: {
        in.u8();
        const uint32_t address = in.u32();
        const uint32_t length = in.u32();
        const std::optional<QByteArray> bytes = m_flash.read(address, length);
        if (!bytes)
            return Writer().u16(Status::OutsideFlash).u32(0).done();
        uint32_t sum = 0;
        for (char c : *bytes)
            sum += uint8_t(c);
        sum &= 0xFF;
        if (m_options.wrongChecksum)
            sum = (sum + 1) & 0xFF;
        return Writer().u16(Status::Ok).u32(sum).done();
    }
    default:
        return Writer().u16(Status::Unknown).done();
    }
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
