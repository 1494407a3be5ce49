#include "instrument/InstrumentOptions.h"

#include "instrument/FlashChip.h"
#include "link/Protocol.h"

#include <QCommandLineParser>
#include <QMap>

namespace {
// Bounds that keep the timer's milliseconds and the GPIB pacing's bits a second within an int.
constexpr double LargestTimeScale = 1000.0;
constexpr int LargestGpibRate = 10'000'000;

bool number(const QString &text, uint32_t &value)
{
    bool ok = false;
    value = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? text.mid(2).toUInt(&ok, 16) : text.toUInt(&ok, 10);
    return ok;
}

// NAME@ADDRESS or FILE@ADDRESS
bool placed(const QString &text, QPair<QString, uint32_t> &out)
{
    const qsizetype at = text.lastIndexOf(QLatin1Char('@'));
    return at > 0 && number(text.mid(at + 1), out.second) && !(out.first = text.left(at)).isEmpty();
}
// A request type by the name --stall-at gives it.
std::optional<uint8_t> requestType(const QString &name)
{
    static const QMap<QString, uint8_t> types = {
        {QStringLiteral("load"), Protocol::LoadBlock},      {QStringLiteral("start"), Protocol::Start},
        {QStringLiteral("identify"), Protocol::Identify},   {QStringLiteral("voltage-on"), Protocol::VoltageOn},
        {QStringLiteral("voltage-off"), Protocol::VoltageOff}, {QStringLiteral("erase"), Protocol::Erase},
        {QStringLiteral("restart"), Protocol::Restart},     {QStringLiteral("program"), Protocol::Program},
        {QStringLiteral("read"), Protocol::Read},           {QStringLiteral("checksum"), Protocol::Checksum},
        {QStringLiteral("hello"), Protocol::Hello},         {QStringLiteral("abilities"), Protocol::Abilities},
        {QStringLiteral("switch-rate"), Protocol::SwitchRate}, {QStringLiteral("range-crc"), Protocol::RangeCrc}};
    const auto it = types.find(name);
    return it == types.end() ? std::nullopt : std::optional<uint8_t>(it.value());
}
} // namespace

bool InstrumentOptions::parse(const QStringList &arguments, InstrumentOptions &options, QString *error)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A simulated measuring instrument on a pseudo-terminal."));
    parser.addHelpOption();
    const QCommandLineOption flash(QStringLiteral("flash"), QStringLiteral("A flash chip at an address, e.g. AM29F040@0x0."), QStringLiteral("CHIP@ADDRESS"));
    const QCommandLineOption load(QStringLiteral("load"), QStringLiteral("Start with a file's bytes at an address."), QStringLiteral("FILE@ADDRESS"));
    const QCommandLineOption dump(QStringLiteral("dump"), QStringLiteral("Write each chip to FOLDER/CHIP@ADDRESS.bin at exit and on SIGUSR1."), QStringLiteral("FOLDER"));
    const QCommandLineOption baud(QStringLiteral("baud"), QStringLiteral("The line's rate at power-on, the package's (default 115200)."), QStringLiteral("BAUD"));
    const QCommandLineOption maxBaud(QStringLiteral("max-baud"), QStringLiteral("The fastest rate the UART takes once the transfer program switches (default 921600)."),
                                     QStringLiteral("BAUD"));
    const QCommandLineOption noPacing(QStringLiteral("no-pacing"), QStringLiteral("Answer as fast as possible."));
    const QCommandLineOption timeScale(QStringLiteral("time-scale"), QStringLiteral("Factor on erase and program times (0: instant)."), QStringLiteral("FACTOR"));
    const QCommandLineOption tcp(QStringLiteral("tcp"), QStringLiteral("Also listen on this local TCP port."), QStringLiteral("PORT"));
    const QCommandLineOption gpib(QStringLiteral("gpib"), QStringLiteral("Sit behind an emulated \"++\" GPIB controller at this primary address."), QStringLiteral("ADDRESS"));
    const QCommandLineOption gpibRate(QStringLiteral("gpib-rate"), QStringLiteral("Bytes a second through the GPIB controller (default 100000)."), QStringLiteral("RATE"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of the faults."), QStringLiteral("N"));
    const QCommandLineOption corrupt(QStringLiteral("corrupt-rate"), QStringLiteral("Share of bytes sent with a bit flipped."), QStringLiteral("RATE"));
    const QCommandLineOption drop(QStringLiteral("drop-rate"), QStringLiteral("Share of bytes sent that are lost."), QStringLiteral("RATE"));
    const QCommandLineOption disconnect(QStringLiteral("disconnect-after"), QStringLiteral("Vanish after this many bytes received."), QStringLiteral("BYTES"));
    const QCommandLineOption stall(QStringLiteral("stall"), QStringLiteral("Stop answering for MS after FRAMES frames."), QStringLiteral("FRAMES:MS"));
    const QCommandLineOption stallAt(QStringLiteral("stall-at"),
                                     QStringLiteral("Stop answering for MS from the first REQUEST on (load, start, identify, "
                                                    "voltage-on, voltage-off, erase, restart, program (plain or packed), read, checksum, hello, "
                                                    "abilities, switch-rate, range-crc)."),
                                     QStringLiteral("REQUEST:MS"));
    const QCommandLineOption refuseVoltage(QStringLiteral("refuse-voltage"), QStringLiteral("Never switch the programming voltage on."));
    const QCommandLineOption failErase(QStringLiteral("fail-erase"), QStringLiteral("Fail an erase that covers this address."), QStringLiteral("ADDRESS"));
    const QCommandLineOption failProgram(QStringLiteral("fail-program"), QStringLiteral("Fail programming at this address."), QStringLiteral("ADDRESS"));
    const QCommandLineOption wrongChecksum(QStringLiteral("wrong-checksum"), QStringLiteral("Answer every checksum request wrongly."));
    const QCommandLineOption unknown(QStringLiteral("unknown"), QStringLiteral("A transfer program that does not know REQUEST (as --stall-at names it)."),
                                     QStringLiteral("REQUEST"));
    const QCommandLineOption refuseBaud(QStringLiteral("refuse-baud"), QStringLiteral("Decline every faster line rate."));
    const QCommandLineOption loseSwitch(QStringLiteral("lose-switch"),
                                        QStringLiteral("Switch the line's rate, then hear nothing until it falls back."));
    const QCommandLineOption basic(QStringLiteral("basic-transfer-program"),
                                   QStringLiteral("A transfer program that names no abilities: no rate switch, no packed blocks, no range checksums."));
    const QCommandLineOption noPacked(QStringLiteral("no-packed-blocks"),
                                      QStringLiteral("A transfer program that switches rates but takes no packed blocks."));
    const QCommandLineOption cutPowerAfter(QStringLiteral("cut-power-after"),
                                           QStringLiteral("Lose power once this many bytes have been received: the flash keeps what was "
                                                          "programmed, an erase under way leaves its unit half erased, nothing answers."),
                                           QStringLiteral("BYTES"));
    const QCommandLineOption cutPowerIn(QStringLiteral("cut-power-in"),
                                        QStringLiteral("Lose power halfway through the N-th (default the first) erase or program request: "
                                                       "the erase leaves the unit in its middle half erased, the block is half programmed."),
                                        QStringLiteral("REQUEST[:N]"));
    const QCommandLineOption garbleRead(QStringLiteral("garble-read"),
                                        QStringLiteral("Flip a bit in the data of the first (once) or of every (always) Read answer "
                                                       "before its frame is made, a fault the frames' CRC cannot see."),
                                        QStringLiteral("once|always"));
    parser.addOptions({flash, load, dump, baud, maxBaud, noPacing, timeScale, tcp, gpib, gpibRate, seed, corrupt, drop, disconnect, stall,
                       stallAt, refuseVoltage, failErase, failProgram, wrongChecksum, unknown, refuseBaud, loseSwitch, basic,
                       noPacked, cutPowerAfter, cutPowerIn, garbleRead});
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    const auto bad = [&](const QString &what) {
        *error = QStringLiteral("bad %1").arg(what);
        return false;
    };
    for (const QString &value : parser.values(flash)) {
        QPair<QString, uint32_t> chip;
        if (!placed(value, chip) || !FlashChip::part(chip.first))
            return bad(QStringLiteral("--flash %1 (a chip of the flash table @ an address)").arg(value));
        options.flash << chip;
    }
    for (const QString &value : parser.values(load)) {
        QPair<QString, uint32_t> file;
        if (!placed(value, file))
            return bad(QStringLiteral("--load %1").arg(value));
        options.loads << file;
    }
    options.dumpFolder = parser.value(dump);
    if (parser.isSet(baud))
        options.baud = parser.value(baud).toInt();
    if (parser.isSet(maxBaud))
        options.maxBaud = parser.value(maxBaud).toInt();
    options.pacing = !parser.isSet(noPacing);
    if (parser.isSet(timeScale)) {
        bool ok = false;
        options.timeScale = parser.value(timeScale).toDouble(&ok);
        if (!ok || !(options.timeScale >= 0 && options.timeScale <= LargestTimeScale))
            return bad(QStringLiteral("--time-scale (a factor from 0 to %1)").arg(LargestTimeScale));
    }
    if (parser.isSet(tcp))
        options.tcpPort = static_cast<uint16_t>(parser.value(tcp).toUInt());
    if (parser.isSet(gpib)) {
        bool ok = false;
        const int address = parser.value(gpib).toInt(&ok);
        if (!ok || address < 0 || address > 30)
            return bad(QStringLiteral("--gpib (a primary address, 0 to 30)"));
        options.gpibAddress = address;
    }
    if (parser.isSet(gpibRate)) {
        bool ok = false;
        options.gpibRate = parser.value(gpibRate).toInt(&ok);
        if (!ok || options.gpibRate < 1 || options.gpibRate > LargestGpibRate)
            return bad(QStringLiteral("--gpib-rate (1 to %1 bytes a second)").arg(LargestGpibRate));
    }
    if (parser.isSet(seed))
        options.seed = parser.value(seed).toUInt();
    options.corruptRate = parser.value(corrupt).toDouble();
    options.dropRate = parser.value(drop).toDouble();
    if (parser.isSet(disconnect))
        options.disconnectAfterBytes = parser.value(disconnect).toLongLong();
    if (parser.isSet(stall)) {
        const QStringList parts = parser.value(stall).split(QLatin1Char(':'));
        if (parts.size() != 2)
            return bad(QStringLiteral("--stall (FRAMES:MS)"));
        options.stallAfterFrames = parts[0].toInt();
        options.stallMs = parts[1].toInt();
    }
    if (parser.isSet(stallAt)) {
        const QStringList parts = parser.value(stallAt).split(QLatin1Char(':'));
        const std::optional<uint8_t> type = parts.size() == 2 ? requestType(parts[0]) : std::nullopt;
        if (!type)
            return bad(QStringLiteral("--stall-at (REQUEST:MS)"));
        options.stallAtType = type;
        options.stallMs = parts[1].toInt();
    }
    options.refuseVoltage = parser.isSet(refuseVoltage);
    uint32_t address = 0;
    if (parser.isSet(failErase)) {
        if (!number(parser.value(failErase), address))
            return bad(QStringLiteral("--fail-erase"));
        options.failEraseAt = address;
    }
    if (parser.isSet(failProgram)) {
        if (!number(parser.value(failProgram), address))
            return bad(QStringLiteral("--fail-program"));
        options.failProgramAt = address;
    }
    options.wrongChecksum = parser.isSet(wrongChecksum);
    options.refuseBaud = parser.isSet(refuseBaud);
    options.loseSwitch = parser.isSet(loseSwitch);
    options.basicTransferProgram = parser.isSet(basic);
    options.packedBlocks = !parser.isSet(noPacked);
    if (parser.isSet(cutPowerAfter)) {
        bool ok = false;
        options.cutPowerAfterBytes = parser.value(cutPowerAfter).toLongLong(&ok);
        if (!ok || options.cutPowerAfterBytes < 0)
            return bad(QStringLiteral("--cut-power-after (a number of bytes)"));
    }
    if (parser.isSet(cutPowerIn)) {
        const QStringList parts = parser.value(cutPowerIn).split(QLatin1Char(':'));
        bool ok = parts.size() == 1;
        if (parts.size() == 2)
            options.cutPowerInCount = parts[1].toInt(&ok);
        options.cutPowerInType = requestType(parts[0]);
        if (!ok || options.cutPowerInCount < 1
            || !(options.cutPowerInType == Protocol::Erase || options.cutPowerInType == Protocol::Program))
            return bad(QStringLiteral("--cut-power-in (erase or program, and :N for the N-th)"));
    }
    if (parser.isSet(garbleRead)) {
        const QString when = parser.value(garbleRead);
        if (when != QLatin1String("once") && when != QLatin1String("always"))
            return bad(QStringLiteral("--garble-read (once or always)"));
        options.garbleRead = when == QLatin1String("once") ? Garble::Once : Garble::Always;
    }
    if (parser.isSet(unknown) && !(options.unknownType = requestType(parser.value(unknown))))
        return bad(QStringLiteral("--unknown (a request as --stall-at names it)"));
    if (options.baud <= 0 || options.gpibRate <= 0 || options.flash.isEmpty())
        return bad(QStringLiteral("arguments: at least one --flash chip and a positive --baud are needed"));
    if (options.maxBaud < options.baud)
        return bad(QStringLiteral("--max-baud (at least the --baud the line starts at)"));
    return true;
}
