#include "cli/RunReporter.h"

#include "Version.h"
#include "cli/ConsoleText.h"
#include "cli/JsonLine.h"
#include "config/ErrorCodes.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "link/PortMap.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QTextStream>
#include <unistd.h>

namespace {
constexpr int RedrawMs = 250; // often enough to look alive, rarely enough to cost nothing
constexpr int BarWidth = 24;
constexpr qint64 RateWindowMs = 5000; // long enough to smooth erases and block turnarounds

QString duration(double seconds)
{
    const int s = int(seconds + 0.5);
    return QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

QString sha256Of(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return QString();
    return QString::fromLatin1(hash.result().toHex());
}

QString hexText(uint32_t value)
{
    return QStringLiteral("H") + QString::number(value, 16).toUpper();
}

// "MAIN207.BIN at H10000, 98304 bytes: sum HD4 (instrument HD4), CRC-32 H1A2B3C4D (instrument
// H1A2B3C4D)"
QString imageCheckLine(const QX_UploadProcess::ImageCheck &check)
{
    const QString crc = check.targetCrc ? QStringLiteral("instrument %1").arg(hexText(*check.targetCrc))
                                        : QStringLiteral("the transfer program does not answer range checksums");
    return QStringLiteral("Image %1 at %2, %3 bytes: sum %4 (instrument %5), CRC-32 %6 (%7)")
        .arg(check.file, hexText(uint32_t(check.address)))
        .arg(check.length)
        .arg(hexText(uint32_t(check.hostSum)), hexText(uint32_t(check.targetSum)), hexText(check.hostCrc), crc);
}

QString outcomeName(bool succeeded, int32_t code)
{
    if (succeeded)
        return QStringLiteral("success");
    return code == ErrorCode::Cancelled ? QStringLiteral("cancelled") : QStringLiteral("failed");
}
} // namespace

RunReporter::RunReporter(const CliOptions &options, const QX_UploadProcess &engine, std::function<int64_t()> payloadBytes)
    : m_options(options), m_engine(engine), m_payloadBytes(std::move(payloadBytes))
{
    m_showBar = !options.json && !options.quiet && isatty(STDERR_FILENO);
    connect(&m_redraw, &QTimer::timeout, this, &RunReporter::drawBar);
    m_clock.start();
}

bool RunReporter::open(QString *error)
{
    return m_options.logFile.isEmpty() || m_log.open(m_options.logFile, error);
}

void RunReporter::begin()
{
    m_packageSha256 = sha256Of(m_engine.package().path());
    m_log.write(QStringLiteral("varnolt-cli %1 %2\nPackage: %3\nPackage SHA-256: %4\nPort: %5 (%6)\nLanguage: %7")
                    .arg(QLatin1String(Version::Text), CliOptions::name(m_options.command), m_engine.package().path(), m_packageSha256,
                         m_engine.ComPort, device(), m_engine.FirmwareLanguage));
    if (!serialPort())
        return;
    const int highest = m_options.maxBaud.value_or(0);
    m_log.write(highest > m_engine.BaudRate
                    ? QStringLiteral("Line rate: %1 baud, then up to %2 where the instrument and the port take it")
                          .arg(m_engine.BaudRate)
                          .arg(highest)
                    : QStringLiteral("Line rate: %1 baud").arg(m_engine.BaudRate));
}

bool RunReporter::serialPort() const
{
    return m_engine.ComPort.contains(QStringLiteral("COM"), Qt::CaseInsensitive);
}

void RunReporter::lineSettled(int rate, bool packedBlocks, const QString &note)
{
    m_line = LineUse{rate, packedBlocks, note};
}

// "921600 baud, compressed program blocks", "115200 baud (the instrument declined 921600
// baud), plain program blocks", "GPIB, ..."
QString RunReporter::lineUsed() const
{
    const QString rate = m_line->rate > 0 ? QStringLiteral("%1 baud").arg(m_line->rate) : QStringLiteral("GPIB");
    const QString note = m_line->note.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(m_line->note);
    return rate + note + (m_line->packedBlocks ? QStringLiteral(", compressed program blocks") : QStringLiteral(", plain program blocks"));
}

QString RunReporter::device() const
{
    const QString where = PortMap::fromEnvironment().deviceFor(m_engine.ComPort);
    return where.isEmpty() ? QStringLiteral("not in the port map") : where;
}

void RunReporter::logLine(const QString &line)
{
    m_log.write(line);
    if (m_options.json) {
        emitJson({{QStringLiteral("type"), QStringLiteral("log")}, {QStringLiteral("line"), line}});
        return;
    }
    if (m_options.quiet)
        return;
    clearBar();
    QTextStream(stdout) << forConsole(line) << Qt::endl;
    drawBar();
}

void RunReporter::progress(const QString &action, int16_t percent)
{
    m_action = action;
    m_percent = percent;
    if (m_options.json)
        emitProgress(overall());
    if (m_showBar && !m_redraw.isActive())
        m_redraw.start(RedrawMs);
    drawBar();
}

void RunReporter::emitProgress(double overall)
{
    emitJson({{QStringLiteral("type"), QStringLiteral("progress")},
              {QStringLiteral("action"), m_action},
              {QStringLiteral("percent"), m_percent},
              {QStringLiteral("overall"), overall},
              {QStringLiteral("bytes"), qint64(m_payloadBytes())}});
}

void RunReporter::warning(const QString &text)
{
    m_log.write(QStringLiteral("Warning: ") + text);
    if (m_options.json) {
        emitJson({{QStringLiteral("type"), QStringLiteral("warning")}, {QStringLiteral("message"), text}});
        return;
    }
    clearBar();
    QTextStream(stderr) << "varnolt-cli: " << text << Qt::endl;
    drawBar();
}

double RunReporter::overall() const
{
    return m_engine.ProgressTotal > 0 ? std::clamp(double(m_engine.ProgressCount) / m_engine.ProgressTotal, 0.0, 1.0) : 0.0;
}

double RunReporter::recentRate()
{
    const qint64 now = m_clock.elapsed();
    m_samples.emplace_back(now, m_payloadBytes());
    while (m_samples.size() > 2 && now - m_samples[1].first >= RateWindowMs)
        m_samples.pop_front();
    const auto &[then, bytesThen] = m_samples.front();
    return now > then ? double(m_samples.back().second - bytesThen) * 1000.0 / double(now - then) : 0.0;
}

void RunReporter::drawBar()
{
    if (!m_showBar || m_action.isEmpty())
        return;
    const double share = overall();
    const double rate = recentRate();
    const std::optional<double> left = m_timeLeft.update(share, m_clock.elapsed() / 1000.0);
    const int filled = int(share * BarWidth);
    const QString line = QStringLiteral("\r%1 %2% [%3%4] %5% %6 B/s, %7 left")
                             .arg(m_action.left(36), -36)
                             .arg(std::clamp(m_percent, 0, 100), 3)
                             .arg(QString(filled, QLatin1Char('#')), QString(BarWidth - filled, QLatin1Char('.')))
                             .arg(int(share * 100), 3)
                             .arg(qint64(rate))
                             .arg(left ? duration(*left) : QStringLiteral("-:--"));
    QTextStream(stderr) << line << "\x1b[K" << Qt::flush;
    m_barShown = true;
}

void RunReporter::clearBar()
{
    if (!m_barShown)
        return;
    QTextStream(stderr) << "\r\x1b[K" << Qt::flush;
    m_barShown = false;
}

void RunReporter::result(bool succeeded, const QString &text, int exitStatus, const QJsonObject &commandFields)
{
    m_redraw.stop();
    clearBar();
    const int32_t code = m_engine.QX_Error_GetLastError();
    const QString message = ResultText::message(m_engine, succeeded);
    if (m_line)
        m_log.write(QStringLiteral("Line used: ") + lineUsed());
    for (const QX_UploadProcess::ImageCheck &check : m_engine.imageChecks())
        m_log.write(imageCheckLine(check));
    for (const QString &notice : m_engine.notices())
        m_log.write(QStringLiteral("Notice: ") + notice);
    if (m_engine.readBackRereads() > 0)
        m_log.write(QStringLiteral("Read back again: %1 time(s), when the instrument's CRC-32 of a range did not match what arrived")
                        .arg(m_engine.readBackRereads()));
    m_log.write(QStringLiteral("Result: %1, code %2: %3\nExit status: %4")
                    .arg(outcomeName(succeeded, code))
                    .arg(code)
                    .arg(message)
                    .arg(exitStatus));
    if (m_options.json) {
        if (succeeded)
            emitProgress(1.0); // the budget is an estimate: a run that completed is all done
        QJsonObject object = resultObject(succeeded, text, exitStatus);
        for (auto field = commandFields.begin(); field != commandFields.end(); ++field)
            object.insert(field.key(), field.value());
        emitJson(object);
        return;
    }
    for (const QString &notice : m_engine.notices())
        QTextStream(stderr) << "varnolt-cli: " << forConsole(notice) << Qt::endl;
    QTextStream out(stdout);
    if (!m_options.quiet)
        out << Qt::endl;
    out << forConsole(text) << Qt::endl;
}

QJsonObject RunReporter::resultObject(bool succeeded, const QString &text, int exitStatus) const
{
    QJsonArray chips;
    for (const QX_UploadProcess::ChipCodes &chip : m_engine.identifiedChips())
        chips.append(QJsonObject{{QStringLiteral("flash"), chip.flashName},
                                 {QStringLiteral("manufacturer"), chip.manufacturer},
                                 {QStringLiteral("device"), chip.device}});
    QJsonObject object{{QStringLiteral("type"), QStringLiteral("result")},
                       {QStringLiteral("success"), succeeded},
                       {QStringLiteral("code"), m_engine.QX_Error_GetLastError()},
                       {QStringLiteral("message"), ResultText::message(m_engine, succeeded)},
                       {QStringLiteral("text"), text},
                       {QStringLiteral("exitStatus"), exitStatus},
                       {QStringLiteral("elapsedSeconds"), m_clock.elapsed() / 1000.0},
                       {QStringLiteral("package"), m_engine.package().path()},
                       {QStringLiteral("packageSha256"), m_packageSha256},
                       {QStringLiteral("port"), m_engine.ComPort},
                       {QStringLiteral("device"), device()},
                       {QStringLiteral("language"), m_engine.FirmwareLanguage},
                       {QStringLiteral("chips"), chips},
                       {QStringLiteral("bytesWritten"), qint64(m_engine.BytesWritten - m_bytesAlreadyRight)},
                       {QStringLiteral("bytesAlreadyRight"), qint64(m_bytesAlreadyRight)},
                       {QStringLiteral("bytesVerified"), qint64(m_engine.BytesVerified)},
                       {QStringLiteral("images"), imageChecks()},
                       {QStringLiteral("readBackRereads"), m_engine.readBackRereads()},
                       {QStringLiteral("notices"), QJsonArray::fromStringList(m_engine.notices())}};
    if (m_line) {
        if (m_line->rate > 0)
            object.insert(QStringLiteral("lineRate"), m_line->rate);
        object.insert(QStringLiteral("compressedBlocks"), m_line->packedBlocks);
    }
    if (const QString why = m_engine.openFailureReason(); !why.isEmpty())
        object.insert(QStringLiteral("channelError"), why);
    return object;
}

QJsonArray RunReporter::imageChecks() const
{
    QJsonArray images;
    for (const QX_UploadProcess::ImageCheck &check : m_engine.imageChecks()) {
        QJsonObject image{{QStringLiteral("file"), check.file},
                          {QStringLiteral("address"), qint64(uint32_t(check.address))},
                          {QStringLiteral("length"), check.length},
                          {QStringLiteral("sum"), check.hostSum},
                          {QStringLiteral("instrumentSum"), check.targetSum},
                          {QStringLiteral("crc32"), qint64(check.hostCrc)}};
        if (check.targetCrc)
            image.insert(QStringLiteral("instrumentCrc32"), qint64(*check.targetCrc));
        images.append(image);
    }
    return images;
}

void RunReporter::error(const QString &text, int exitStatus)
{
    m_log.write(QStringLiteral("Error: %1\nExit status: %2").arg(text).arg(exitStatus));
    if (m_options.json)
        emitJson({{QStringLiteral("type"), QStringLiteral("error")}, {QStringLiteral("message"), text}});
    else
        QTextStream(stderr) << "varnolt-cli: " << forConsole(text) << Qt::endl;
}

void RunReporter::emitJson(const QJsonObject &object)
{
    printJsonLine(object);
}
