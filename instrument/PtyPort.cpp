#include "instrument/PtyPort.h"

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

PtyPort::PtyPort(int baud, QObject *parent) : QObject(parent), m_baud(baud)
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

qsizetype PtyPort::Direction::due(int baud)
{
    if (baud <= 0)
        return pending.size();
    if (!clock.isValid())
        clock.start();
    // Nanoseconds: whole milliseconds would drop a fraction of every 2 ms tick, and the line
    // would run some 8% slow.
    const qint64 nanoseconds = clock.nsecsElapsed();
    clock.restart();
    credit += double(nanoseconds) / 1e9 * baud / BitsPerByte;
    const qsizetype n = std::min(pending.size(), qsizetype(credit));
    credit = pending.isEmpty() ? 0 : credit - double(n); // an idle line saves up nothing
    return n;
}

void PtyPort::onReadable()
{
    char buffer[4096];
    const ssize_t n = ::read(m_master, buffer, sizeof buffer);
    if (n <= 0)
        return;
    if (m_in.pending.isEmpty())
        m_in.clock.restart();
    m_in.pending.append(buffer, qsizetype(n));
    pump();
}

void PtyPort::write(const QByteArray &bytes)
{
    if (m_master < 0)
        return;
    if (m_out.pending.isEmpty())
        m_out.clock.restart();
    m_out.pending.append(bytes);
    // Only outward: what the instrument says while it takes in the host's bytes must not hand
    // it the next ones before it has finished with those.
    send();
    keepPacing();
}

void PtyPort::pump()
{
    deliver();
    send();
    keepPacing();
}

void PtyPort::deliver()
{
    const qsizetype arrived = m_in.due(m_baud);
    if (arrived <= 0)
        return;
    const QByteArray bytes = m_in.pending.left(arrived);
    m_in.pending.remove(0, arrived);
    emit received(bytes);
}

void PtyPort::send()
{
    const qsizetype allowed = m_out.due(m_baud);
    qsizetype written = 0;
    while (m_master >= 0 && written < allowed) {
        const ssize_t n = ::write(m_master, m_out.pending.constData() + written, size_t(allowed - written));
        if (n <= 0)
            break; // the host's input queue is full: try again on the next tick
        written += n;
    }
    m_out.pending.remove(0, written);
}

void PtyPort::keepPacing()
{
    if (m_in.pending.isEmpty() && m_out.pending.isEmpty())
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
