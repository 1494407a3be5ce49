#include "doctor/LoopbackTest.h"

#include "link/LinkTimeouts.h"
#include "link/SerialDevice.h"
#include "link/SerialTransport.h"

#include <array>
#include <chrono>

namespace {
constexpr std::array<uint8_t, 32> PatternBytes = {
    0x00, 0xFF, 0x55, 0xAA,                         // all off, all on, alternating
    0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, // one bit on
    0xFE, 0xFD, 0xFB, 0xF7, 0xEF, 0xDF, 0xBF, 0x7F, // one bit off
    0x11, 0x13, 0x0D, 0x0A, 0x03, 0x1A, 0x1C, 0x15, // XON, XOFF, CR, LF, ^C, ^Z, ^\, ^U
    0x7E, 0x7D, 0x5A, 0xA5,
};
// Twice the bytes' time on the wire: the way out and the way back.
constexpr double WireTimeFactor = 2.0;
} // namespace

LoopbackTest::LoopbackTest(const QString &device, int highestRate, QObject *parent) : QObject(parent), m_device(device)
{
    for (const int baud : SerialDevice::rates())
        if (baud >= LowestRate && baud <= highestRate)
            m_rates << baud;
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &LoopbackTest::concludeRate);
}

LoopbackTest::~LoopbackTest() = default;

QByteArray LoopbackTest::pattern()
{
    return QByteArray(reinterpret_cast<const char *>(PatternBytes.data()), qsizetype(PatternBytes.size()));
}

void LoopbackTest::start()
{
    m_next = 0;
    m_results.clear();
    testNextRate();
}

void LoopbackTest::testNextRate()
{
    const bool nothingAtTheLowest = m_results.size() == 1 && m_results.first().returned == 0;
    const bool failedToOpen = !m_results.isEmpty() && !m_results.last().failure.isEmpty();
    if (m_next >= m_rates.size() || nothingAtTheLowest || failedToOpen) {
        m_transport.reset();
        emit finished();
        return;
    }
    m_current = RateResult{m_rates[m_next++], int(PatternBytes.size()), 0, 0, QString()};
    m_back.clear();
    m_transport = std::make_unique<SerialTransport>(m_device, m_current.baud);
    connect(m_transport.get(), &Transport::received, this, &LoopbackTest::onReceived);
    connect(m_transport.get(), &Transport::failed, this, [this](const QString &reason) {
        m_current.failure = reason;
        concludeRate();
    });
    connect(m_transport.get(), &Transport::opened, this, [this] {
        m_transport->write(pattern());
        const auto wait = std::chrono::duration<double, std::milli>(WireTimeFactor * m_transport->wireTimeMs(m_current.sent))
                          + LinkTimeouts::LoopbackMargin;
        m_deadline.start(std::chrono::ceil<std::chrono::milliseconds>(wait));
    });
    m_transport->open();
}

void LoopbackTest::onReceived(const QByteArray &bytes)
{
    m_back += bytes;
    if (m_back.size() >= m_current.sent)
        concludeRate();
}

void LoopbackTest::concludeRate()
{
    m_deadline.stop();
    m_transport->close(); // nothing more from it, not even what was already posted
    const QByteArray sent = pattern();
    m_current.returned = int(qMin(m_back.size(), sent.size()));
    for (int i = 0; i < m_current.returned; ++i)
        if (m_back[i] != sent[i])
            ++m_current.changed;
    m_results << m_current;
    emit rateTested(m_current);
    // The transport goes on the next turn: this may run inside one of its reports.
    QMetaObject::invokeMethod(this, &LoopbackTest::testNextRate, Qt::QueuedConnection);
}
