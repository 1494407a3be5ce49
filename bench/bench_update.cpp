// One whole update through the real stack, measured: varnolt-cli (engine, application layer,
// serial transport) updates the simulated instrument over a pseudo-terminal. Prints one line
// of key=value figures:
//   program_Bps / read_Bps  image bytes per second of the program and read-back passes
//   program_share / read_share  the same as a share of the package line's limit (115200 / 11,
//                               or the GPIB controller's 100,000 bytes a second with --gpib)
//   line_rate  the rate the line ran at once the transfer program ran (the log's "Line used")
//   packed     1 when program blocks went compressed
//   ratio      image bytes over the bytes of block data the line carries for them (packed, or
//              plain where a block does not shrink); 1 without packing
//   flash_Bps  what the flash part programs a second
//   program_physical_Bps / read_physical_Bps  the physical limit: the slower of the line (at
//              the rate used, times ratio for programming) and the flash (programming only)
//   cpu_share  the tool's CPU seconds over its wall seconds for the whole update
//   wakeups_per_s  the tool's context switches a second: each time the kernel woke it, even
//                  when it went back to sleep without returning from poll. CPU time on a
//                  shared virtual machine varies by a factor of two between identical runs;
//                  this count repeats, and each switch costs about the same.
//   peak_rss_kib  the tool's peak resident memory
//   load_s     seconds from reading the transfer program to its running
//   flash_exact  1 when the instrument's flash holds the image byte for byte afterwards
//
//   bench_update --cli PATH --instrument PATH --image-kib N --block N [--read-back] [--unpaced] [--gpib] [--log FILE]
//                [--image FILE]... [--max-baud N] [--noise RATE [--seed N]] [--instrument-option OPTION]...
// --gpib updates through the emulated GPIB controller instead of the serial line; --unpaced
// also makes the flash instant, for memory figures that need no line; --log keeps the tool's
// timestamped log, to see where the time goes. The image is random bytes, or the --image files
// one after the other, again and again, until it is N KiB (the last copy cut short); never
// padded. --max-baud goes to the tool, each --instrument-option to the instrument. --noise
// flips a bit in that share of the bytes in both directions (the instrument's --corrupt-rate),
// where the seed (1 unless given) picks which.
#include "instrument/FlashChip.h"
#include "link/BlockCompressor.h"
#include "link/Protocol.h"
#include "tools/package-builder/PackageBuilder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char **environ;

namespace {
constexpr int Baud = 115200;
constexpr double SerialLimit = Baud / 11.0; // 8E1: 11 bit times per byte
constexpr int GpibRate = 100000;           // bytes a second through the emulated GPIB controller
constexpr int GpibAddress = 6;

struct Settings {
    QString cli;
    QString instrument;
    int imageKib = 512;
    int block = 240;
    bool readBack = false;
    bool paced = true;
    bool gpib = false;
    QString noiseRate; // the share of bytes damaged, as given
    QString seed = QStringLiteral("1");
    QString log;
    QStringList images;
    QString maxBaud;
    QStringList instrumentOptions;
};

struct ChipLayout {
    QString part;
    int count;
    uint32_t size;
};

// The smallest bank of one real part that holds the image.
ChipLayout chipsFor(int imageKib)
{
    if (imageKib <= 512)
        return {QStringLiteral("AM29F040"), 1, 512 * 1024};
    if (imageKib <= 1024)
        return {QStringLiteral("AM29LV800"), 1, 1024 * 1024};
    const int chips = (imageKib + 2047) / 2048;
    return {QStringLiteral("I28F016"), chips, 2 * 1024 * 1024};
}

QByteArray noise(qsizetype size, uint32_t seed)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i) {
        seed = seed * 1664525u + 1013904223u;
        bytes[i] = char(seed >> 24);
    }
    return bytes;
}

// The --image files one after the other, again and again, cut at size; random bytes without.
QByteArray imageBytes(const Settings &s, qsizetype size)
{
    if (s.images.isEmpty())
        return noise(size, 2);
    QByteArray corpus;
    for (const QString &path : s.images) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            corpus += file.readAll();
    }
    if (corpus.isEmpty())
        return {};
    QByteArray bytes;
    while (bytes.size() < size)
        bytes += corpus;
    return bytes.left(size);
}

// Image bytes over the block data the line carries for them, blocks packed as the layer packs
// them (a block that does not shrink goes plain).
double packedRatio(const QByteArray &image, int block)
{
    BlockCompressor compressor;
    qsizetype carried = 0;
    for (qsizetype at = 0; at < image.size(); at += block) {
        const QByteArray program = Protocol::Writer().u32(uint32_t(at)).u8(2).u8(22).bytes(image.mid(at, block)).done();
        const BlockCompressor::Request request = compressor.pack(program);
        carried += request.payload.size() - (request.type == Protocol::ProgramPacked ? 8 : 6);
    }
    return carried > 0 ? double(image.size()) / double(carried) : 1.0;
}

bool writePackage(const Settings &s, const ChipLayout &chips, const QByteArray &imageData, const QString &folder, QString *error)
{
    const qsizetype image = imageData.size();
    QString ini = QStringLiteral("[HOST]\r\nMAXPROGLEN=%1\r\nPORTS=COM1,GPIB0\r\nUART=COM1\r\nBAUD=%2\r\nCONTINUE=NO\r\n"
                                 "TRANSFER=TP.BIN,0X20000,0X20000\r\n[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
                                 "MEMORY=0X0,0X%3,%4\r\n[FILES]\r\nPROGRAM=0X0,IMAGE.BIN\r\n")
                      .arg(s.block)
                      .arg(Baud)
                      .arg(QString::number(qulonglong(chips.size) * uint32_t(chips.count), 16).toUpper(), chips.part);
    if (s.readBack)
        ini += QStringLiteral("UPLOAD=0X0,0X%1,READBACK.BIN\r\n").arg(QString::number(image, 16).toUpper()); // in the tool's folder
    PackageBuilder builder;
    builder.addMember(QStringLiteral("KDCONFIG.INI"), ini.toLatin1());
    builder.addMember(QStringLiteral("TP.BIN"), QByteArray("KDTP") + noise(2044, 1));
    builder.addMember(QStringLiteral("IMAGE.BIN"), imageData);
    return builder.write(folder + QStringLiteral("/bench.KDPKG"), error);
}

// Whether the chips the instrument dumped at its end hold the image from address 0 on.
bool flashHolds(const QString &dump, const ChipLayout &chips, const QByteArray &image)
{
    QByteArray flash;
    for (int i = 0; i < chips.count; ++i) {
        QFile chip(QStringLiteral("%1/%2@0x%3.bin").arg(dump, chips.part).arg(chips.size * uint32_t(i), 0, 16));
        if (!chip.open(QIODevice::ReadOnly))
            return false;
        flash += chip.readAll();
    }
    return flash.startsWith(image);
}

struct ToolRun {
    int status = -1;
    double wallSeconds = 0;
    double cpuSeconds = 0;
    long contextSwitches = 0;
    long peakRssKib = 0;
};

// posix_spawn and wait4, for the child's own CPU time and peak memory. The tool runs in
// folder, its working folder; arguments name files absolutely.
ToolRun runTool(const QStringList &arguments, const QString &folder, const QString &outputFile)
{
    QList<QByteArray> storage;
    std::vector<char *> argv;
    for (const QString &a : arguments)
        storage << a.toLocal8Bit();
    for (QByteArray &a : storage)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    ToolRun run;
    const qint64 started = QDateTime::currentMSecsSinceEpoch();
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const QByteArray output = outputFile.toLocal8Bit();
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const QByteArray workingFolder = folder.toLocal8Bit();
    posix_spawn_file_actions_addchdir_np(&actions, workingFolder.constData());
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        return run;
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    run.wallSeconds = double(QDateTime::currentMSecsSinceEpoch() - started) / 1000.0;
    run.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    run.contextSwitches = usage.ru_nvcsw + usage.ru_nivcsw;
    run.peakRssKib = usage.ru_maxrss;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// Seconds between the first log line starting with from and the next one starting with to.
double between(const QStringList &log, const QString &from, const QString &to)
{
    QDateTime start;
    for (const QString &line : log) {
        const QDateTime stamp = QDateTime::fromString(line.section(QLatin1Char(' '), 0, 0), Qt::ISODateWithMs);
        const QString text = line.section(QLatin1Char(' '), 1);
        if (!start.isValid() && text.startsWith(from))
            start = stamp;
        else if (start.isValid() && text.startsWith(to))
            return double(start.msecsTo(stamp)) / 1000.0;
    }
    return 0;
}

bool parse(const QStringList &args, Settings &s)
{
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString &a = args[i];
        if (a == QLatin1String("--cli"))
            s.cli = args.value(++i);
        else if (a == QLatin1String("--instrument"))
            s.instrument = args.value(++i);
        else if (a == QLatin1String("--image-kib"))
            s.imageKib = args.value(++i).toInt();
        else if (a == QLatin1String("--block"))
            s.block = args.value(++i).toInt();
        else if (a == QLatin1String("--read-back"))
            s.readBack = true;
        else if (a == QLatin1String("--unpaced"))
            s.paced = false;
        else if (a == QLatin1String("--gpib"))
            s.gpib = true;
        else if (a == QLatin1String("--noise"))
            s.noiseRate = args.value(++i);
        else if (a == QLatin1String("--seed"))
            s.seed = args.value(++i);
        else if (a == QLatin1String("--log"))
            s.log = args.value(++i);
        else if (a == QLatin1String("--image"))
            s.images << args.value(++i);
        else if (a == QLatin1String("--max-baud"))
            s.maxBaud = args.value(++i);
        else if (a == QLatin1String("--instrument-option"))
            s.instrumentOptions << args.value(++i);
        else
            return false;
    }
    return !s.cli.isEmpty() && !s.instrument.isEmpty() && s.imageKib > 0 && s.block > 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Settings s;
    if (!parse(app.arguments(), s)) {
        std::fprintf(stderr, "usage: bench_update --cli PATH --instrument PATH --image-kib N --block N [--read-back] [--unpaced] [--gpib] "
                             "[--log FILE] [--image FILE]... [--max-baud N] [--noise RATE [--seed N]] [--instrument-option OPTION]...\n");
        return 2;
    }
    QTemporaryDir folder;
    const ChipLayout chips = chipsFor(s.imageKib);
    const QByteArray image = imageBytes(s, qsizetype(s.imageKib) * 1024);
    QString error = image.isEmpty() ? QStringLiteral("no image bytes in %1").arg(s.images.join(QStringLiteral(", "))) : QString();
    if (!error.isEmpty() || !writePackage(s, chips, image, folder.path(), &error)) {
        std::fprintf(stderr, "bench_update: %s\n", qPrintable(error));
        return 1;
    }

    QStringList instrumentArgs;
    for (int i = 0; i < chips.count; ++i)
        instrumentArgs << QStringLiteral("--flash") << QStringLiteral("%1@0x%2").arg(chips.part).arg(chips.size * uint32_t(i), 0, 16);
    if (s.gpib)
        instrumentArgs << QStringLiteral("--gpib") << QString::number(GpibAddress) << QStringLiteral("--gpib-rate") << QString::number(GpibRate);
    if (!s.noiseRate.isEmpty())
        instrumentArgs << QStringLiteral("--corrupt-rate") << s.noiseRate << QStringLiteral("--seed") << s.seed;
    const QString dump = folder.filePath(QStringLiteral("flash")); // written when the instrument ends
    instrumentArgs << QStringLiteral("--dump") << dump;
    if (!s.paced)
        instrumentArgs << QStringLiteral("--no-pacing") << QStringLiteral("--time-scale") << QStringLiteral("0");
    instrumentArgs << s.instrumentOptions;
    QProcess instrument;
    instrument.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    instrument.start(s.instrument, instrumentArgs);
    if (!instrument.waitForReadyRead(5000)) {
        std::fprintf(stderr, "bench_update: the instrument did not start\n");
        return 1;
    }
    const QString device = QString::fromLocal8Bit(instrument.readLine()).trimmed();
    qputenv("TROVEX_PORTS", (s.gpib ? QStringLiteral("GPIB0=%1,%2").arg(device).arg(GpibAddress) : QStringLiteral("COM1=%1").arg(device)).toLocal8Bit());

    const QString logFile = QFileInfo(s.log.isEmpty() ? folder.filePath(QStringLiteral("update.log")) : s.log).absoluteFilePath();
    QFile::remove(logFile);
    QStringList toolArgs{QFileInfo(s.cli).absoluteFilePath(), QStringLiteral("update"), folder.filePath(QStringLiteral("bench.KDPKG")),
                         QStringLiteral("--overwrite"), QStringLiteral("--log"), logFile, QStringLiteral("--quiet"),
                         QStringLiteral("--port"), s.gpib ? QStringLiteral("GPIB0") : QStringLiteral("COM1")};
    if (!s.maxBaud.isEmpty())
        toolArgs << QStringLiteral("--max-baud") << s.maxBaud;
    const ToolRun run = runTool(toolArgs, folder.path(), folder.filePath(QStringLiteral("output.txt")));
    instrument.terminate();
    instrument.waitForFinished();
    QFile logText(logFile);
    const QStringList log = logText.open(QIODevice::ReadOnly) ? QString::fromUtf8(logText.readAll()).split(QLatin1Char('\n')) : QStringList();
    if (run.status != 0) {
        QFile output(folder.filePath(QStringLiteral("output.txt")));
        const QByteArray said = output.open(QIODevice::ReadOnly) ? output.readAll() : QByteArray();
        std::fprintf(stderr, "bench_update: the update failed (status %d):\n%s\nlog:\n%s\n", run.status, said.constData(),
                     qPrintable(log.join(QLatin1Char('\n'))));
        return 1;
    }
    const double bytes = double(s.imageKib) * 1024;
    const double loadSeconds = between(log, QStringLiteral("Transfer Program Read"), QStringLiteral("Transfer Program Running"));
    const double programSeconds = between(log, QStringLiteral("Program File = "), QStringLiteral("Programming Voltage Off"));
    const double readSeconds = s.readBack ? between(log, QStringLiteral("Read File = "), QStringLiteral("Download Flash Memories Completed")) : 0;
    const auto rate = [&](double seconds) { return seconds > 0 ? bytes / seconds : 0.0; };
    const double lineLimit = s.gpib ? GpibRate : SerialLimit;
    // "Line used: 921600 baud, compressed program blocks" (or "GPIB, ...")
    const QString lineUsed = log.filter(QStringLiteral(" Line used: ")).value(0);
    const int lineRate = QRegularExpression(QStringLiteral("Line used: (\\d+) baud")).match(lineUsed).captured(1).toInt();
    const bool packed = lineUsed.contains(QStringLiteral("compressed program blocks"));
    const double ratio = packed ? packedRatio(image, s.block) : 1.0;
    const double usedLineLimit = s.gpib ? GpibRate : (lineRate > 0 ? lineRate : Baud) / 11.0;
    const double flashBps = 1e6 / FlashChip::part(chips.part)->programUsPerByte;
    std::printf("image_kib=%d block=%d paced=%d gpib=%d noise=%s program_Bps=%.0f program_share=%.3f read_Bps=%.0f read_share=%.3f "
                "wall_s=%.2f cpu_s=%.3f cpu_share=%.4f wakeups_per_s=%.0f peak_rss_kib=%ld line_rate=%d packed=%d ratio=%.3f "
                "flash_Bps=%.0f program_physical_Bps=%.0f read_physical_Bps=%.0f load_s=%.2f flash_exact=%d\n",
                s.imageKib, s.block, s.paced ? 1 : 0, s.gpib ? 1 : 0, s.noiseRate.isEmpty() ? "0" : qPrintable(s.noiseRate),
                rate(programSeconds), rate(programSeconds) / lineLimit, rate(readSeconds), rate(readSeconds) / lineLimit,
                run.wallSeconds, run.cpuSeconds, run.cpuSeconds / run.wallSeconds, double(run.contextSwitches) / run.wallSeconds,
                run.peakRssKib, lineRate, packed ? 1 : 0, ratio, flashBps, std::min(usedLineLimit * ratio, flashBps), usedLineLimit,
                loadSeconds, flashHolds(dump, chips, image) ? 1 : 0);
    return 0;
}
