#include "instrument/PtyPort.h"

#include "link/SerialDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {
constexpr int BitsPerByte = 11;   // 8E1: start, 8 data, parity, stop
constexpr int PacerIntervalMs = 2; // fine enough that replies leave without bunching
}

PtyPort::PtyPort(Line line, int baud, bool paced, QObject *parent) : QObject(parent), m_line(line), m_baud(baud), m_paced(paced)
{
    m_pacer.setTimerType(Qt::PreciseTimer); // the line rate must not depend on timer slack
    connect(&m_pacer, &QTimer::timeout, this, &PtyPort::pump);
}

PtyPort::~PtyPort()
{
    vanish();
}

bool PtyPort::open(QString *error)
{
    m_master = posix_openpt(O_RDWR | O_NOCTTY);
    if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0) {
        *error = QStringLiteral("no pseudo-terminal: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    m_devicePath = QString::fromLocal8Bit(ptsname(m_master));
    m_device = ::open(ptsname(m_master), O_RDWR | O_NOCTTY);
    if (m_device < 0) {
        *error = QStringLiteral("cannot open %1: %2").arg(m_devicePath, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    termios raw{};
    tcgetattr(m_device, &raw);
    cfmakeraw(&raw);
    tcsetattr(m_device, TCSANOW, &raw);
    fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
    m_notifier = std::make_unique<QSocketNotifier>(m_master, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &PtyPort::onReadable);
    return true;
}

qsizetype PtyPort::Direction::due(bool paced)
{
    qsizetype waiting = 0;
    for (const Piece &piece : pending)
        waiting += piece.bytes.size();
    if (!paced)
        return waiting;
    if (!clock.isValid())
        clock.start();
    // Nanoseconds: whole milliseconds would drop a fraction of every 2 ms tick, and the line
    // would run some 8% slow.
    creditSeconds += double(clock.nsecsElapsed()) / 1e9;
    clock.restart();
    qsizetype n = 0;
    for (const Piece &piece : pending) {
        const double secondsPerByte = double(BitsPerByte) / piece.baud;
        const qsizetype carried = std::min(qsizetype(creditSeconds / secondsPerByte), piece.bytes.size());
        creditSeconds -= double(carried) * secondsPerByte;
        n += carried;
        if (carried < piece.bytes.size())
            break;
    }
    if (n == waiting)
        creditSeconds = 0; // an idle line saves up nothing
    return n;
}

QByteArray PtyPort::Direction::front(qsizetype count, int listeningBaud, bool ratesMatter) const
{
    QByteArray bytes;
    for (auto piece = pending.begin(); piece != pending.end() && bytes.size() < count; ++piece) {
        const qsizetype n = std::min(count - bytes.size(), piece->bytes.size());
        bytes += ratesMatter && piece->baud != listeningBaud ? QByteArray(n, '\0') : piece->bytes.left(n);
    }
    return bytes;
}

void PtyPort::Direction::drop(qsizetype count)
{
    while (count > 0 && !pending.empty()) {
        const qsizetype n = std::min(count, pending.front().bytes.size());
        pending.front().bytes.remove(0, n);
        if (pending.front().bytes.isEmpty())
            pending.pop_front();
        count -= n;
    }
}

void PtyPort::Direction::add(const QByteArray &bytes, int baud)
{
    if (pending.empty())
        clock.restart();
    if (!pending.empty() && pending.back().baud == baud)
        pending.back().bytes += bytes;
    else
        pending.push_back({bytes, baud});
}

int PtyPort::hostRate() const
{
    return m_line == Line::Serial ? SerialDevice::rateOf(m_master) : m_baud;
}

void PtyPort::onReadable()
{
    char buffer[4096];
    const ssize_t n = ::read(m_master, buffer, sizeof buffer);
    if (n <= 0)
        return;
    m_in.add(QByteArray(buffer, qsizetype(n)), hostRate());
    pump();
}

void PtyPort::write(const QByteArray &bytes)
{
    if (m_master < 0)
        return;
    m_out.add(bytes, m_nextBaud.value_or(m_baud));
    // Only outward: what the instrument says while it takes in the host's bytes must not hand
    // it the next ones before it has finished with those.
    send();
    keepPacing();
}

void PtyPort::setLineRate(int baud)
{
    if (m_out.isEmpty())
        m_baud = baud;
    else
        m_nextBaud = baud;
}

void PtyPort::pump()
{
    deliver();
    send();
    keepPacing();
}

void PtyPort::deliver()
{
    const qsizetype arrived = m_in.due(m_paced);
    if (arrived <= 0)
        return;
    const QByteArray bytes = m_in.front(arrived, m_baud, m_line == Line::Serial);
    m_in.drop(arrived);
    emit received(bytes);
}

void PtyPort::send()
{
    const qsizetype allowed = m_out.due(m_paced);
    const QByteArray bytes = m_out.front(allowed, hostRate(), m_line == Line::Serial);
    qsizetype written = 0;
    while (m_master >= 0 && written < bytes.size()) {
        const ssize_t n = ::write(m_master, bytes.constData() + written, size_t(bytes.size() - written));
        if (n <= 0)
            break; // the host's input queue is full: try again on the next tick
        written += n;
    }
    m_out.drop(written);
    if (m_out.isEmpty() && m_nextBaud) // what was sent at the old rate has left
        m_baud = *std::exchange(m_nextBaud, std::nullopt);
}

void PtyPort::keepPacing()
{
    if (m_in.isEmpty() && m_out.isEmpty())
        m_pacer.stop();
    else if (!m_pacer.isActive())
        m_pacer.start(PacerIntervalMs);
}

void PtyPort::vanish()
{
    m_pacer.stop();
    m_notifier.reset();
    if (m_device >= 0)
        ::close(m_device);
    if (m_master >= 0)
        ::close(m_master);
    m_device = m_master = -1;
}
