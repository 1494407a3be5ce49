// Reruns through the real stack: varnolt-cli updates varnolt-instrument over a pseudo-terminal.
//
//   bench_rerun speed --cli PATH --instrument PATH
// A 512 KiB image at 115200 baud with the flash's own times: the update of an instrument that
// holds an older firmware, the same update run again, and the rerun with --full. Prints
// full_s, rerun_s, full_again_s and speedup (full_s / rerun_s).
//
//   bench_rerun cuts --cli PATH --instrument PATH [--points N]
// The demo package on an instrument with an older boot loader beside its calibration data
// (so the calibration data's sector is erased and written back), fast line and flash: an
// update cut at each of N evenly spaced points of the bytes the instrument receives (20 by
// default), by a power cut and by a lost port; the instrument is switched on again with the
// flash it was left with and the update run again (--same-instrument). Prints, per kind, the
// reruns whose flash is byte for byte that of an uncut update and whose calibration file is
// the one the first run saved, and one line per point that is not; then the same for cuts in
// the stages that take few bytes (the transfer program's load, each erase, the calibration
// data's write-back).
#include "tests/e2e/ToolOutput.h"
#include "tools/demo-package/DemoPackage.h"
#include "tools/package-builder/PackageBuilder.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <memory>

namespace {
constexpr int StartLimitMs = 5000;
constexpr int RunLimitMs = 600000; // a full update of 512 KiB at 115200 baud takes about a minute
constexpr int MainChip = 512 * 1024;
constexpr uint32_t LanguageBase = 0x100000;
using DemoPackage::noise;

struct Tools {
    QString cli;
    QString instrument;
};

// The simulated instrument as a child process: its chips loaded from files, stopped with
// SIGTERM so that it writes them to its dump folder and says how many bytes it received.
class Instrument {
public:
    Instrument(const Tools &tools, const QString &folder, const QList<QPair<QString, uint32_t>> &chips, const QStringList &options)
        : m_dumps(folder + QStringLiteral("/dump"))
    {
        QDir(m_dumps).removeRecursively();
        QStringList args{"--dump", m_dumps};
        for (const auto &[file, base] : chips)
            args << "--load" << QStringLiteral("%1@0x%2").arg(file).arg(base, 0, 16);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(tools.instrument, args + options);
        if (m_process.waitForReadyRead(StartLimitMs))
            m_device = QString::fromLocal8Bit(m_process.readLine()).trimmed();
    }
    ~Instrument() { stop(); }
    QString device() const { return m_device; }
    // Stops it (it may have quit already, its port gone); the bytes it received.
    qint64 stop()
    {
        if (m_process.state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process.processId()), SIGTERM);
            m_process.waitForFinished(StartLimitMs);
        }
        const QByteArray said = m_process.readAllStandardOutput();
        const qsizetype at = said.lastIndexOf("received ");
        return at < 0 ? m_received : (m_received = said.mid(at + 9).split(' ').first().toLongLong());
    }
    QByteArray chip(const QString &name, uint32_t base) const
    {
        return bytesOf(QStringLiteral("%1/%2@0x%3.bin").arg(m_dumps, name).arg(base, 0, 16));
    }

private:
    QProcess m_process;
    QString m_dumps;
    QString m_device;
    qint64 m_received = -1;
};

int runTool(const Tools &tools, const QString &folder, const QString &device, const QStringList &arguments)
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TROVEX_PORTS"), QStringLiteral("COM1=") + device);
    tool.setProcessEnvironment(env);
    tool.setWorkingDirectory(folder);
    tool.setStandardOutputFile(QProcess::nullDevice());
    tool.setStandardErrorFile(QProcess::nullDevice());
    tool.start(tools.cli, arguments);
    if (!tool.waitForFinished(RunLimitMs))
        tool.kill();
    tool.waitForFinished();
    return tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
}

// --- speed ---------------------------------------------------------------------------------

int speed(const Tools &tools)
{
    QTemporaryDir folder;
    const QByteArray image = noise(MainChip, 2);
    const QString ini = QStringLiteral("[HOST]\r\nMAXPROGLEN=240\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nCONTINUE=NO\r\n"
                                       "TRANSFER=TP.BIN,0X20000,0X20000\r\n[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
                                       "MEMORY=0X0,0X80000,AM29F040\r\nERASE=0X0,0X80000\r\n[FILES]\r\nPROGRAM=0X0,IMAGE.BIN\r\n");
    PackageBuilder builder;
    builder.addMember(QStringLiteral("KDCONFIG.INI"), ini.toLatin1());
    builder.addMember(QStringLiteral("TP.BIN"), QByteArray("KDTP") + noise(2044, 1));
    builder.addMember(QStringLiteral("IMAGE.BIN"), image);
    const QString package = folder.filePath(QStringLiteral("bench.KDPKG"));
    QString error;
    const QString older = folder.filePath(QStringLiteral("older.bin"));
    if (!builder.write(package, &error) || !writeFile(older, noise(MainChip, 3))) {
        std::fprintf(stderr, "bench_rerun: %s\n", qPrintable(error));
        return 1;
    }
    Instrument instrument(tools, folder.path(), {{older, 0}}, {"--flash", "AM29F040@0x0"});
    const auto timed = [&](const QStringList &extra) {
        QElapsedTimer clock;
        clock.start();
        const int status = runTool(tools, folder.path(), instrument.device(),
                                   QStringList{"update", package, "--max-baud", "0", "--quiet"} + extra);
        return status == 0 ? double(clock.elapsed()) / 1000.0 : -1.0;
    };
    const double full = timed({});
    const double rerun = timed({});
    const double fullAgain = timed({"--full"});
    instrument.stop();
    if (full < 0 || rerun < 0 || fullAgain < 0 || instrument.chip(QStringLiteral("AM29F040"), 0) != image) {
        std::fprintf(stderr, "bench_rerun: an update failed or the flash is not the image\n");
        return 1;
    }
    std::printf("full_s=%.2f rerun_s=%.2f full_again_s=%.2f speedup=%.1f\n", full, rerun, fullAgain, full / rerun);
    return 0;
}

// --- cuts ----------------------------------------------------------------------------------

struct Demo {
    QString package;
    QByteArray calibration = noise(0x400, 3);
    DemoPackage::Flash before = DemoPackage::olderFlash(calibration);
    DemoPackage::Flash after = DemoPackage::updatedFlash(calibration);
};

// One update cut at a point and run again; "" when the rerun ends exactly as an uncut update.
QString cutAndRerun(const Tools &tools, const Demo &demo, const QStringList &cut, const QString &work)
{
    QDir(work).removeRecursively();
    QDir().mkpath(work);
    const QStringList chips{"--flash", "AM29F040@0x0", "--flash", "AM29LV800@0x100000", "--no-pacing", "--time-scale", "0"};
    const QString main = work + QStringLiteral("/main.bin");
    const QString language = work + QStringLiteral("/language.bin");
    if (!writeFile(main, demo.before.main) || !writeFile(language, demo.before.language))
        return QStringLiteral("cannot write the flash files");
    QByteArray leftMain;
    QByteArray leftLanguage;
    {
        Instrument first(tools, work, {{main, 0}, {language, LanguageBase}}, chips + cut);
        const int status = runTool(tools, work, first.device(), {"update", demo.package, "--overwrite"});
        first.stop();
        if (status == 0)
            return QStringLiteral("the first update was not cut short");
        leftMain = first.chip(QStringLiteral("AM29F040"), 0);
        leftLanguage = first.chip(QStringLiteral("AM29LV800"), LanguageBase);
    }
    const QString calibrationFile = work + QLatin1Char('/') + DemoPackage::CalibrationFile;
    const QByteArray savedByTheFirstRun = bytesOf(calibrationFile);
    if (!writeFile(main, leftMain) || !writeFile(language, leftLanguage))
        return QStringLiteral("no flash left by the first run");
    Instrument again(tools, work, {{main, 0}, {language, LanguageBase}}, chips);
    const int status = runTool(tools, work, again.device(), {"update", demo.package, "--overwrite", "--same-instrument"});
    again.stop();
    if (status != 0)
        return QStringLiteral("the rerun ended with %1").arg(status);
    if (again.chip(QStringLiteral("AM29F040"), 0) != demo.after.main || again.chip(QStringLiteral("AM29LV800"), LanguageBase) != demo.after.language)
        return QStringLiteral("the flash is not that of an uncut update");
    const QByteArray calibrationNow = bytesOf(calibrationFile);
    if ((!savedByTheFirstRun.isEmpty() && calibrationNow != savedByTheFirstRun) || calibrationNow != demo.calibration)
        return QStringLiteral("the calibration file changed");
    return QString();
}

int cuts(const Tools &tools, int points)
{
    QTemporaryDir folder;
    Demo demo;
    QString error;
    demo.package = DemoPackage::write(folder.path(), &error);
    if (demo.package.isEmpty()) {
        std::fprintf(stderr, "bench_rerun: %s\n", qPrintable(error));
        return 1;
    }
    // The bytes an uncut update sends the instrument: the scale of the points.
    const QString work = folder.filePath(QStringLiteral("run"));
    QDir().mkpath(work);
    const QString main = work + QStringLiteral("/main.bin");
    const QString language = work + QStringLiteral("/language.bin");
    qint64 total = 0;
    if (writeFile(main, demo.before.main) && writeFile(language, demo.before.language)) {
        Instrument uncut(tools, work, {{main, 0}, {language, LanguageBase}},
                         {"--flash", "AM29F040@0x0", "--flash", "AM29LV800@0x100000", "--no-pacing", "--time-scale", "0"});
        if (runTool(tools, work, uncut.device(), {"update", demo.package, "--overwrite"}) == 0)
            total = uncut.stop();
    }
    if (total <= 0) {
        std::fprintf(stderr, "bench_rerun: the uncut update failed\n");
        return 1;
    }
    std::printf("bytes_received_uncut=%lld\n", static_cast<long long>(total));
    for (const QString &cut : {QStringLiteral("--cut-power-after"), QStringLiteral("--disconnect-after")}) {
        int exact = 0;
        for (int k = 1; k <= points; ++k) {
            const qint64 at = total * k / (points + 1);
            const QString failure = cutAndRerun(tools, demo, {cut, QString::number(at)}, work);
            if (failure.isEmpty())
                ++exact;
            else
                std::printf("%s %lld: %s\n", qPrintable(cut.mid(2)), static_cast<long long>(at), qPrintable(failure));
            std::fflush(stdout);
        }
        std::printf("%s exact=%d of %d\n", qPrintable(cut.mid(2)), exact, points);
    }
    // The points above fall into the programming, which is most of what the host sends. The
    // stages that take few bytes: the transfer program's load, halfway through each of the
    // two erases, and the calibration data's write-back (the demo's main image is 410 blocks).
    const QList<QStringList> stages = {{"--cut-power-after", "1000"},
                                       {"--cut-power-in", "erase:1"},
                                       {"--cut-power-in", "erase:2"},
                                       {"--cut-power-in", "program:412"}};
    int exact = 0;
    for (const QStringList &cut : stages) {
        const QString failure = cutAndRerun(tools, demo, cut, work);
        if (failure.isEmpty())
            ++exact;
        else
            std::printf("%s: %s\n", qPrintable(cut.join(QLatin1Char(' '))), qPrintable(failure));
    }
    std::printf("stages exact=%d of %d\n", exact, int(stages.size()));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    Tools tools;
    int points = 20;
    for (qsizetype i = 2; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--cli"))
            tools.cli = args[i + 1];
        else if (args[i] == QLatin1String("--instrument"))
            tools.instrument = args[i + 1];
        else if (args[i] == QLatin1String("--points"))
            points = args[i + 1].toInt();
    }
    const QString mode = args.value(1);
    if (tools.cli.isEmpty() || tools.instrument.isEmpty() || points < 1 || (mode != QLatin1String("speed") && mode != QLatin1String("cuts"))) {
        std::fprintf(stderr, "usage: bench_rerun speed|cuts --cli PATH --instrument PATH [--points N]\n");
        return 2;
    }
    tools.cli = QFileInfo(tools.cli).absoluteFilePath();
    tools.instrument = QFileInfo(tools.instrument).absoluteFilePath();
    return mode == QLatin1String("speed") ? speed(tools) : cuts(tools, points);
}
