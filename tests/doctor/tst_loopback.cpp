// The loopback byte test over a pseudo-terminal whose far end plays the plug: it sends back
// what it gets, or nothing, or changes or loses bytes from some rate on, as a cable or an
// adapter that does not carry a rate does.
#include "tests/doctor/FakeSystem.h"

#include "doctor/LoopbackTest.h"

#include <QSocketNotifier>
#include <QtTest>
#include <termios.h>

namespace {
enum class Plug { Echo, Silent, ChangesAbove115200, LosesAbove921600 };

// The plug: the far end of the terminal, which hands every byte back as plug says.
class FarEnd {
public:
    FarEnd(int master, Plug plug) : m_master(master), m_plug(plug)
    {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, [this] { echo(); });
        m_notifier.setSocket(master);
        m_notifier.setEnabled(true);
    }

private:
    void echo()
    {
        char bytes[256];
        const ssize_t count = ::read(m_master, bytes, sizeof bytes);
        if (count <= 0 || m_plug == Plug::Silent)
            return;
        // A master's settings are its terminal's: the rate the test set.
        termios settings{};
        ::tcgetattr(m_master, &settings);
        const speed_t speed = ::cfgetospeed(&settings);
        QByteArray back(bytes, count);
        if (m_plug == Plug::ChangesAbove115200 && speed > B115200)
            back[0] = char(back[0] ^ 0x10);
        if (m_plug == Plug::LosesAbove921600 && speed > B921600)
            back.chop(1);
        [[maybe_unused]] const ssize_t written = ::write(m_master, back.constData(), size_t(back.size()));
    }

    int m_master;
    Plug m_plug;
    QSocketNotifier m_notifier{QSocketNotifier::Read};
};
} // namespace

class LoopbackTestTest : public QObject {
    Q_OBJECT
private slots:
    void rates_data()
    {
        QTest::addColumn<Plug>("plug");
        QTest::addColumn<int>("highestRate");
        QTest::addColumn<int>("ratesTested");
        QTest::addColumn<int>("lastPassed"); // the highest rate up to which every rate passed; 0 for none
        // 1200 to 4000000: the 22 rates Linux names from 1200 baud on.
        QTest::newRow("a plug at every rate") << Plug::Echo << 4000000 << 22 << 4000000;
        QTest::newRow("up to a lower highest rate") << Plug::Echo << 115200 << 9 << 115200;
        QTest::newRow("no plug: ends at the lowest rate") << Plug::Silent << 4000000 << 1 << 0;
        QTest::newRow("bytes changed above 115200") << Plug::ChangesAbove115200 << 4000000 << 22 << 115200;
        QTest::newRow("bytes lost above 921600") << Plug::LosesAbove921600 << 4000000 << 22 << 921600;
    }
    void rates()
    {
        QFETCH(Plug, plug);
        QFETCH(int, highestRate);
        QFETCH(int, lastPassed);
        PseudoTerminal terminal;
        QVERIFY(!terminal.device.isEmpty());
        // Kept open as the simulated instrument keeps its own: between two rates the test's
        // side is closed, and a terminal nobody holds hangs its master up.
        const int keep = ::open(QFile::encodeName(terminal.device).constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        QVERIFY(keep >= 0);
        FarEnd farEnd(terminal.master, plug);
        LoopbackTest test(terminal.device, highestRate);
        QSignalSpy finished(&test, &LoopbackTest::finished);
        test.start();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
        ::close(keep);

        const QList<LoopbackTest::RateResult> results = test.results();
        QTEST(int(results.size()), "ratesTested");
        QCOMPARE(results.first().baud, LoopbackTest::LowestRate);
        int passedUpTo = 0;
        for (const LoopbackTest::RateResult &result : results) {
            QVERIFY2(result.failure.isEmpty(), qPrintable(result.failure));
            QCOMPARE(result.sent, int(LoopbackTest::pattern().size()));
            if (!result.passed())
                break;
            passedUpTo = result.baud;
        }
        QCOMPARE(passedUpTo, lastPassed);
        // Past the first failure every rate fails the same way: nothing passes by chance.
        for (const LoopbackTest::RateResult &result : results)
            QCOMPARE(result.passed(), result.baud <= lastPassed);
        if (plug == Plug::ChangesAbove115200)
            QCOMPARE(results.last().changed, 1);
        if (plug == Plug::LosesAbove921600)
            QCOMPARE(results.last().returned, results.last().sent - 1);
    }
};

QTEST_GUILESS_MAIN(LoopbackTestTest)
#include "tst_loopback.moc"
