// The time left on the progress bar: drawn four times a second over runs whose share grows
// steadily, settles after a slow start, or stalls near the end (the checksums, the restart).
// It never jumps up from one drawing to the next, and on a steady run it is right.
#include "cli/TimeLeft.h"

#include <QtTest>
#include <cmath>
#include <functional>

namespace {
constexpr double RedrawSeconds = 0.25;
using Share = std::function<double(double seconds)>;
}

class TimeLeftTest : public QObject {
    Q_OBJECT
private slots:
    void drawnAlongARun_data()
    {
        QTest::addColumn<Share>("share");
        QTest::addColumn<double>("runSeconds");
        QTest::addColumn<double>("endTolerance"); // seconds off the truth at 90% of the run; < 0: not checked
        QTest::newRow("steady") << Share([](double t) { return t / 100; }) << 100.0 << 2.0;
        // While the rate settles the share comes in steps: 2% every 2 s (identification, the
        // first blocks), then steadily; from a small share a pause moves the plain estimate a lot.
        QTest::newRow("steps at the start")
            << Share([](double t) { return t < 20 ? 0.02 * std::floor(t / 2) : 0.2 + (t - 20) / 100; }) << 100.0 << 3.0;
        // 90% after 90 s, 20 s without progress, then the rest: the reported 0:09 to 0:16.
        QTest::newRow("a stall near the end")
            << Share([](double t) { return t < 90 ? t / 100 : t < 110 ? 0.9 : std::min(1.0, 0.9 + (t - 110) / 100); }) << 120.0
            << -1.0;
    }
    void drawnAlongARun()
    {
        QFETCH(Share, share);
        QFETCH(double, runSeconds);
        QFETCH(double, endTolerance);
        TimeLeft timeLeft;
        std::optional<int> shown; // whole seconds, as drawn
        for (double t = RedrawSeconds; t < runSeconds; t += RedrawSeconds) {
            const std::optional<double> left = timeLeft.update(share(t), t);
            if (!left)
                continue;
            const int seconds = int(std::lround(*left));
            if (shown)
                QVERIFY2(seconds <= *shown + 1, qPrintable(QStringLiteral("at %1 s: %2 after %3").arg(t).arg(seconds).arg(*shown)));
            shown = seconds;
            if (endTolerance >= 0 && std::abs(t - 0.9 * runSeconds) < RedrawSeconds / 2)
                QVERIFY2(std::abs(*left - (runSeconds - t)) <= endTolerance, qPrintable(QString::number(*left)));
        }
        QVERIFY(shown);
    }

    void nothingWhileTooLittleIsDone()
    {
        TimeLeft timeLeft;
        QVERIFY(!timeLeft.update(0.01, 5));
        QVERIFY(timeLeft.update(0.5, 10));
    }
};

QTEST_GUILESS_MAIN(TimeLeftTest)
#include "tst_time_left.moc"
