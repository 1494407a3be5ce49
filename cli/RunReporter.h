#pragma once
// What the headless tool shows of a run: every log line, a progress bar on a terminal (the
// current action and its percent, the whole run, bytes per second and time left), or one
// JSON object per line for machines; and the result. With --log the log file also gets a
// header (tool, package and its SHA-256, port and device, language, the line rate to try),
// every line and, last, the line as it was used, each image's checksums, the ranges read back
// again, the result and the exit status.
#include "cli/CliOptions.h"
#include "cli/RunLog.h"
#include "cli/TimeLeft.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QTimer>
#include <deque>
#include <functional>
#include <optional>

class QX_UploadProcess;

class RunReporter : public QObject {
    Q_OBJECT
public:
    // payloadBytes: bytes moved so far, for the rate.
    RunReporter(const CliOptions &options, const QX_UploadProcess &engine, std::function<int64_t()> payloadBytes);

    // Opens the log file when one was asked for; false with a reason.
    bool open(QString *error);
    // Once the package is loaded and port and language are chosen: heads the log file.
    void begin();
    void logLine(const QString &line);
    void progress(const QString &action, int16_t percent);
    // The line once the transfer program runs: its rate (0 on GPIB), whether program blocks
    // go compressed, and why the rate is not faster.
    void lineSettled(int rate, bool packedBlocks, const QString &note);
    // A block of an image that the flash held already, so it was not sent.
    void blockAlreadyRight(int bytes) { m_bytesAlreadyRight += bytes; }
    // A notice during the run that is not one of its log lines.
    void warning(const QString &text);
    // The run's outcome: text is the Finished text.
    void result(bool succeeded, const QString &text, int exitStatus, const QJsonObject &commandFields = {});
    // An error before any run (bad package, unknown port).
    void error(const QString &text, int exitStatus);

private:
    void drawBar();
    void clearBar();
    void emitJson(const QJsonObject &object);
    void emitProgress(double overall);
    QJsonObject resultObject(bool succeeded, const QString &text, int exitStatus) const;
    // Each image's checksums: the 8-bit sum and the CRC-32, the host's and the instrument's.
    QJsonArray imageChecks() const;
    QString device() const;
    bool serialPort() const;
    QString lineUsed() const;
    double overall() const;
    double recentRate();

    const CliOptions &m_options;
    const QX_UploadProcess &m_engine;
    std::function<int64_t()> m_payloadBytes;
    RunLog m_log;
    QString m_packageSha256;
    QElapsedTimer m_clock;
    QTimer m_redraw;
    TimeLeft m_timeLeft;
    bool m_showBar = false;
    bool m_barShown = false;
    QString m_action;
    int m_percent = 0;
    struct LineUse {
        int rate;
        bool packedBlocks;
        QString note;
    };
    std::optional<LineUse> m_line; // once the transfer program runs
    int64_t m_bytesAlreadyRight = 0;
    // (milliseconds, bytes) over the last few seconds, for a rate that follows the line.
    std::deque<std::pair<qint64, int64_t>> m_samples;
};
