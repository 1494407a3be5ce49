#pragma once
// What the headless tool shows of a run: every log line (with a timestamp in the log file),
// a progress bar on a terminal (the current action and its percent, the whole run, bytes per
// second and time left), or one JSON object per line for machines; and the result.
#include "cli/CliOptions.h"

#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QTimer>
#include <deque>
#include <functional>

class QX_UploadProcess;

class RunReporter : public QObject {
    Q_OBJECT
public:
    // payloadBytes: bytes moved so far, for the rate.
    RunReporter(const CliOptions &options, const QX_UploadProcess &engine, std::function<int64_t()> payloadBytes);

    // Opens the log file when one was asked for; false with a reason.
    bool open(QString *error);
    void logLine(const QString &line);
    void progress(const QString &action, int16_t percent);
    void result(bool succeeded, int32_t code, const QString &message, const QString &text);
    // An error before any run (bad package, unknown port).
    void error(const QString &text);

private:
    void drawBar();
    void clearBar();
    void emitJson(const QJsonObject &object);
    double overall() const;
    double recentRate();

    const CliOptions &m_options;
    const QX_UploadProcess &m_engine;
    std::function<int64_t()> m_payloadBytes;
    QFile m_log;
    QElapsedTimer m_clock;
    QTimer m_redraw;
    bool m_showBar = false;
    bool m_barShown = false;
    QString m_action;
    int m_percent = 0;
    // (milliseconds, bytes) over the last few seconds, for a rate that follows the line.
    std::deque<std::pair<qint64, int64_t>> m_samples;
};
