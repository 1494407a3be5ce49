// The serial transport on a real pseudo-terminal: while reading pauses the transport does
// not look at the line, then takes all that came in one read; resuming ends the pause at
// once, and a hang-up is still seen.
#include "link/SerialTransport.h"

#include <QSignalSpy>
#include <QtTest>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

// The far end of the line: the test writes what the instrument would send.
class FarEnd {
public:
    FarEnd()
    {
        m_fd = posix_openpt(O_RDWR | O_NOCTTY);
        if (m_fd >= 0 && grantpt(m_fd) == 0 && unlockpt(m_fd) == 0)
            m_device = QString::fromLocal8Bit(ptsname(m_fd));
    }
    ~FarEnd() { hangUp(); }
    QString device() const { return m_device; }
    void send(const QByteArray &bytes) const { QCOMPARE(::write(m_fd, bytes.constData(), size_t(bytes.size())), ssize_t(bytes.size())); }
    void hangUp()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd = -1;
    QString m_device;
};

// A serial transport open on the near end of a fresh line.
struct OpenLine {
    FarEnd far;
    SerialTransport transport{far.device(), 115200};
    QString error;
    bool opened = transport.open(&error);
    QSignalSpy received{&transport, &Transport::received};
    QSignalSpy failed{&transport, &Transport::failed};
};

// Long enough for the event loop to have taken any bytes it was going to take.
constexpr int SettleMs = 60;
// Far shorter than the pauses the tests take, long enough for a loaded machine.
constexpr int PromptlyMs = 300;

} // namespace

class SerialTransportTest : public QObject {
    Q_OBJECT
private slots:
    void whatCameDuringAPauseIsTakenInOnePiece()
    {
        OpenLine line;
        QVERIFY2(line.opened, qPrintable(line.error));

        line.far.send("ab");
        QTRY_COMPARE(line.received.size(), 1); // no pause: every piece comes as it arrives

        line.transport.pauseReading(400);
        for (int piece = 0; piece < 4; ++piece) {
            line.far.send("0123456789");
            QTest::qWait(SettleMs / 2);
            QCOMPARE(line.received.size(), 1);
        }
        QTRY_COMPARE(line.received.size(), 2);
        QCOMPARE(line.received.at(1).at(0).toByteArray(), QByteArray("0123456789").repeated(4));
    }

    void resumingHandsOverWhatCame()
    {
        OpenLine line;
        QVERIFY2(line.opened, qPrintable(line.error));
        line.transport.pauseReading(4000);
        line.far.send("cut short");
        QTest::qWait(SettleMs);
        QCOMPARE(line.received.size(), 0);
        line.transport.pauseReading(0);
        QTRY_COMPARE_WITH_TIMEOUT(line.received.size(), 1, PromptlyMs);
        QCOMPARE(line.received.at(0).at(0).toByteArray(), QByteArray("cut short"));
    }

    void aShortPauseEndsALongerOne()
    {
        OpenLine line;
        QVERIFY2(line.opened, qPrintable(line.error));
        line.transport.pauseReading(4000);
        line.transport.pauseReading(1.5); // not worth a timer: read as it comes
        line.far.send("x");
        QTRY_COMPARE_WITH_TIMEOUT(line.received.size(), 1, PromptlyMs);
    }

    void aHangUpIsSeenAfterAPause()
    {
        OpenLine line;
        QVERIFY2(line.opened, qPrintable(line.error));
        line.transport.pauseReading(300);
        line.far.send("partial");
        line.far.hangUp();
        QTRY_COMPARE(line.failed.size(), 1);
        QVERIFY(line.failed.at(0).at(0).toString().contains(QStringLiteral("went away")));
    }
};

QTEST_GUILESS_MAIN(SerialTransportTest)
#include "tst_serial_transport.moc"
