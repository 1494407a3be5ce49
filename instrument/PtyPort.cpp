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
    connect(&m_pacer, &QTimer::timeout, this, &PtyPort::drain);
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
    m_clock.start();
    return true;
}

void PtyPort::onReadable()
{
    char buffer[4096];
    const ssize_t n = ::read(m_master, buffer, sizeof buffer);
    if (n > 0)
        emit received(QByteArray(buffer, qsizetype(n)));
}

void PtyPort::write(const QByteArray &bytes)
{
    if (m_master < 0)
        return;
    m_pending.append(bytes);
    if (m_baud <= 0) {
        drain();
        return;
    }
    if (!m_pacer.isActive()) {
        m_clock.restart();
        m_credit = 0;
        m_pacer.start(PacerIntervalMs);
    }
}

void PtyPort::drain()
{
    qsizetype allowed = m_pending.size();
    if (m_baud > 0) {
        m_credit += m_clock.restart() / 1000.0 * m_baud / BitsPerByte;
        allowed = std::min(m_pending.size(), qsizetype(m_credit));
        m_credit -= double(allowed);
    }
    qsizetype written = 0;
    while (written < allowed) {
        const ssize_t n = ::write(m_master, m_pending.constData() + written, size_t(allowed - written));
        if (n <= 0)
            break; // the host's input queue is full: try again on the next tick
        written += n;
    }
    m_pending.remove(0, written);
    if (m_pending.isEmpty())
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
