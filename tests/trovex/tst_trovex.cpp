// The application layer's waits for the line: OpenChannel and UploadTransferProgram wait only
// through the engine's wait, so a Cancel ends them at once, says so, and the channel then
// closes with nothing left running.
#include "trovex/Trovex.h"
#include "trovex/TrovexError.h"

#include <QSocketNotifier>
#include <QtTest>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

namespace {
const QString SerialInit = QStringLiteral("clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 COM1:115200,E,8,1");
const QString GpibInit = QStringLiteral("clsid:C18F5D02-6E47-4A3B-8B91-2D7E4F6A9C03 GPIB0");
constexpr int32_t LoadAddress = 0x20000;
constexpr int TransferProgramBytes = 16 * 1024;

// The far end of a line that hears the layer and never answers.
class SilentEnd : public QObject {
    Q_OBJECT
public:
    SilentEnd()
    {
        m_fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        grantpt(m_fd);
        unlockpt(m_fd);
        m_notifier.setSocket(m_fd);
        m_notifier.setEnabled(true);
        connect(&m_notifier, &QSocketNotifier::activated, this, [this] {
            char buffer[4096];
            if (::read(m_fd, buffer, sizeof buffer) > 0)
                emit heard();
        });
    }
    ~SilentEnd() override { ::close(m_fd); }
    QString device() const { return QString::fromLocal8Bit(ptsname(m_fd)); }
    // The layer has closed its end.
    bool hungUp() const
    {
        pollfd fd{m_fd, POLLIN, 0};
        return ::poll(&fd, 1, 0) == 1 && (fd.revents & POLLHUP);
    }

signals:
    void heard();

private:
    int m_fd = -1;
    QSocketNotifier m_notifier{QSocketNotifier::Read};
};
} // namespace

class TrovexTest : public QObject {
    Q_OBJECT
private slots:
    void aCancelEndsTheWaitAtOnce_data()
    {
        QTest::addColumn<QString>("map");
        QTest::addColumn<QString>("init");
        QTest::addColumn<bool>("loading");
        QTest::addColumn<QString>("text");
        // The "++" controller never answers ++ver: the channel would take a second to fail.
        QTest::newRow("while the channel opens") << "GPIB0=%1,6" << GpibInit << false
                                                 << "the update was cancelled while the channel was opening";
        // Nobody answers: the link would try eight times before it gave up.
        QTest::newRow("while the transfer program loads") << "COM1=%1" << SerialInit << true
                                                          << "the update was cancelled while the transfer program was loading";
    }
    void aCancelEndsTheWaitAtOnce()
    {
        QFETCH(QString, map);
        QFETCH(QString, init);
        QFETCH(bool, loading);
        QFETCH(QString, text);
        SilentEnd line;
        bool cancelled = false; // the user cancels as soon as the layer talks to the line
        connect(&line, &SilentEnd::heard, this, [&] { cancelled = true; });
        const EngineWait wait = [&](const std::function<bool()> &done) {
            return QTest::qWaitFor([&] { return done() || cancelled; }, 60000) && done();
        };
        auto layer = std::make_unique<Trovex>(wait, PortMap(map.arg(line.device())));
        layer->OpenChannel(init);
        int16_t code = -1;
        QString said;
        if (loading) {
            layer->GetErrorCode(code);
            QCOMPARE(code, TrovexError::None);
            const std::vector<uint8_t> program(TransferProgramBytes, 0x4B);
            int32_t result = 0;
            layer->UploadTransferProgram(program.data(), TransferProgramBytes, LoadAddress, LoadAddress, result);
            QCOMPARE(result, TransferResult::Cancelled);
        }
        layer->GetErrorCode(code);
        layer->GetErrorText(said);
        QCOMPARE(code, TrovexError::Cancelled);
        QCOMPARE(said, text);
        layer->CloseChannel();
        layer->Shutdown();
        QTRY_VERIFY(line.hungUp());
        layer.reset();
    }
};

QTEST_GUILESS_MAIN(TrovexTest)
#include "tst_trovex.moc"
