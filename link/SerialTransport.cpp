#include "link/SerialTransport.h"

#include "link/LinkTimeouts.h"
#include "link/SerialDevice.h"

#include <QPointer>
#include <cerrno>
#include <cmath>
#include <unistd.h>

namespace {
// The most a tty hands over in one read (its line discipline's buffer).
constexpr qsizetype ReadChunk = 4096;
} // namespace

SerialTransport::SerialTransport(const QString &device, int baud, QObject *parent)
    : Transport(parent), m_device(device), m_baud(baud)
{
    connect(&m_reader, &QSocketNotifier::activated, this, &SerialTransport::onReadable);
    connect(&m_writer, &QSocketNotifier::activated, this, &SerialTransport::onWritable);
    m_pauseTimer.setSingleShot(true);
    m_pauseTimer.setTimerType(Qt::PreciseTimer); // the link's estimate, not a few ms more
    connect(&m_pauseTimer, &QTimer::timeout, this, &SerialTransport::resumeReading);
}

SerialTransport::~SerialTransport()
{
    close();
}

void SerialTransport::open()
{
    close();
    QString error;
    m_descriptor = SerialDevice::open(m_device, m_baud, &error);
    if (m_descriptor < 0) {
        reportFailed(error);
        return;
    }
    m_reader.setSocket(m_descriptor);
    m_writer.setSocket(m_descriptor);
    m_reader.setEnabled(true);
    reportOpened();
}

void SerialTransport::write(const QByteArray &bytes)
{
    if (m_descriptor < 0)
        return;
    if (!m_unwritten.isEmpty()) {
        m_unwritten += bytes; // behind what the driver has not taken yet
        return;
    }
    // Straight to the driver: the bytes leave now instead of on the event loop's next turn.
    const qsizetype taken = writeNow(bytes.constData(), bytes.size());
    if (taken < 0 || taken == bytes.size())
        return;
    m_unwritten = bytes.mid(taken);
    m_writer.setEnabled(true);
}

void SerialTransport::onWritable()
{
    const qsizetype taken = writeNow(m_unwritten.constData(), m_unwritten.size());
    if (taken < 0)
        return;
    m_unwritten.remove(0, taken);
    if (m_unwritten.isEmpty())
        m_writer.setEnabled(false);
}

qsizetype SerialTransport::writeNow(const char *bytes, qsizetype count)
{
    const ssize_t n = ::write(m_descriptor, bytes, size_t(count));
    if (n >= 0)
        return qsizetype(n);
    if (errno == EAGAIN || errno == EINTR)
        return 0; // the driver's buffer is full: the write notifier says when it has room
    lost();
    return -1;
}

void SerialTransport::onReadable()
{
    QByteArray bytes;
    ssize_t n = 0;
    do {
        const qsizetype had = bytes.size();
        bytes.resize(had + ReadChunk);
        n = ::read(m_descriptor, bytes.data() + had, size_t(ReadChunk));
        bytes.resize(had + std::max<qsizetype>(n, 0));
    } while (n == ReadChunk); // a full chunk: there may be more
    const QPointer<SerialTransport> alive(this);
    if (!bytes.isEmpty())
        emit received(bytes);
    if (!alive)
        return; // whoever took the bytes closed the channel
    // End of file is a hang-up; EIO a port whose device or other end is gone.
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
        lost();
}

// Every piece the line delivers wakes the program, even when it is not read yet: the kernel
// wakes whoever watches the tty. While the link knows that nothing it needs can be there yet,
// nobody needs to watch, so the read notifier rests and the program sleeps through the pause;
// then one read takes all that came. A short pause is not worth a timer.
void SerialTransport::pauseReading(double ms)
{
    if (ms < double(LinkTimeouts::ShortestReadPause.count()) || m_descriptor < 0) {
        resumeReading();
        return;
    }
    m_reader.setEnabled(false);
    m_pauseTimer.start(int(std::ceil(ms)));
}

void SerialTransport::resumeReading()
{
    m_pauseTimer.stop();
    if (m_descriptor >= 0 && !m_reader.isEnabled())
        m_reader.setEnabled(true); // what came in the meantime is read on the loop's next turn
}

void SerialTransport::close()
{
    dropReports();
    m_pauseTimer.stop();
    m_unwritten.clear();
    if (m_descriptor < 0)
        return;
    m_reader.setEnabled(false);
    m_writer.setEnabled(false);
    SerialDevice::close(m_descriptor);
    m_descriptor = -1;
}

bool SerialTransport::takesRate(int baud)
{
    return m_descriptor >= 0 && m_unwritten.isEmpty() && SerialDevice::takesRate(m_descriptor, baud);
}

bool SerialTransport::setLineRate(int baud)
{
    if (m_descriptor < 0 || !m_unwritten.isEmpty() || !SerialDevice::setRate(m_descriptor, baud).isEmpty())
        return false;
    m_baud = baud;
    return true;
}

double SerialTransport::wireTimeMs(int count) const
{
    return 1000.0 * count * BitsPerByte / m_baud;
}

void SerialTransport::lost()
{
    close();
    reportFailed(QStringLiteral("the serial port %1 went away; check the cable and the USB adapter").arg(m_device));
}
