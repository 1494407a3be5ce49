#pragma once
// The byte test of a port whose TX is bridged to RX (a loopback plug, or pins 2 and 3 of a
// 9-pin connector joined): at each rate from the lowest a package uses up to the highest the
// port takes, a pattern of bytes goes out as an update sends them (8 data bits, even parity)
// and must come back unchanged. It runs on the event loop; each rate waits at most twice the
// bytes' time on the wire and a margin (LinkTimeouts::LoopbackMargin). Nothing coming back at
// the lowest rate ends the test there: there is no loop.
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTimer>
#include <memory>

class Transport;

class LoopbackTest : public QObject {
    Q_OBJECT
public:
    struct RateResult {
        int baud = 0;
        int sent = 0;
        int returned = 0;  // bytes that came back, at most sent
        int changed = 0;   // of those, the ones that differ from what was sent
        QString failure;   // the port did not open at this rate

        bool passed() const { return failure.isEmpty() && returned == sent && changed == 0; }
    };

    LoopbackTest(const QString &device, int highestRate, QObject *parent = nullptr);
    ~LoopbackTest() override;

    void start();
    QList<RateResult> results() const { return m_results; }

    // Every bit on and off alone, alternating bits, and the characters a terminal that is not
    // raw would act on (flow control, line ends, interrupt).
    static QByteArray pattern();
    // The lowest rate tested: the lowest a package's BAUD uses.
    static constexpr int LowestRate = 1200;

signals:
    void rateTested(const LoopbackTest::RateResult &result);
    void finished();

private:
    void testNextRate();
    void onReceived(const QByteArray &bytes);
    void concludeRate();

    QString m_device;
    QList<int> m_rates;
    qsizetype m_next = 0;
    std::unique_ptr<Transport> m_transport;
    QByteArray m_back;
    QTimer m_deadline;
    RateResult m_current;
    QList<RateResult> m_results;
};
