#include "cli/RunReporter.h"

#include "cli/ConsoleText.h"
#include "engine/QX_UploadProcess.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <cstdio>
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
    if (m_options.logFile.isEmpty())
        return true;
    m_log.setFileName(m_options.logFile);
    if (!m_log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        *error = QStringLiteral("cannot write the log file %1: %2").arg(m_options.logFile, m_log.errorString());
        return false;
    }
    return true;
}

void RunReporter::logLine(const QString &line)
{
    if (m_log.isOpen()) {
        // Every line of the file carries the stamp, so it can be sorted and searched by time.
        const QString stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs);
        QTextStream log(&m_log);
        for (const QString &part : forConsole(line).split(QLatin1Char('\n')))
            log << stamp << ' ' << part << '\n';
        log.flush();
        m_log.flush();
    }
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
        emitJson({{QStringLiteral("type"), QStringLiteral("progress")},
                  {QStringLiteral("action"), action},
                  {QStringLiteral("percent"), percent},
                  {QStringLiteral("overall"), overall()},
                  {QStringLiteral("bytes"), qint64(m_payloadBytes())}});
    if (m_showBar && !m_redraw.isActive())
        m_redraw.start(RedrawMs);
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
    const double seconds = m_clock.elapsed() / 1000.0;
    const double rate = recentRate();
    const int filled = int(share * BarWidth);
    const QString left = share > 0.02 ? duration(seconds * (1 - share) / share) : QStringLiteral("-:--");
    const QString line = QStringLiteral("\r%1 %2% [%3%4] %5% %6 B/s, %7 left")
                             .arg(m_action.left(36), -36)
                             .arg(std::clamp(m_percent, 0, 100), 3)
                             .arg(QString(filled, QLatin1Char('#')), QString(BarWidth - filled, QLatin1Char('.')))
                             .arg(int(share * 100), 3)
                             .arg(qint64(rate))
                             .arg(left);
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

void RunReporter::result(bool succeeded, int32_t code, const QString &message, const QString &text)
{
    m_redraw.stop();
    clearBar();
    const double seconds = m_clock.elapsed() / 1000.0;
    if (m_options.json) {
        emitJson({{QStringLiteral("type"), QStringLiteral("result")},
                  {QStringLiteral("success"), succeeded},
                  {QStringLiteral("code"), code},
                  {QStringLiteral("message"), message},
                  {QStringLiteral("text"), text},
                  {QStringLiteral("elapsedSeconds"), seconds}});
        return;
    }
    QTextStream out(stdout);
    if (!m_options.quiet)
        out << Qt::endl;
    out << forConsole(text) << Qt::endl;
}

void RunReporter::error(const QString &text)
{
    if (m_options.json)
        emitJson({{QStringLiteral("type"), QStringLiteral("error")}, {QStringLiteral("message"), text}});
    else
        QTextStream(stderr) << "varnolt-cli: " << forConsole(text) << Qt::endl;
}

void RunReporter::emitJson(const QJsonObject &object)
{
    QTextStream(stdout) << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
}
