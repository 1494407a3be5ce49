#include "link/SerialTransport.h"

#include "link/LinkTimeouts.h"

#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <unistd.h>

SerialTransport::SerialTransport(const QString &device, int baud, QObject *parent)
    : Transport(parent), m_device(device), m_baud(baud)
{
    connect(&m_port, &QSerialPort::readyRead, this, [this] { emit received(m_port.readAll()); });
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialTransport::onError);
    m_pauseTimer.setSingleShot(true);
    m_pauseTimer.setTimerType(Qt::PreciseTimer); // the link's estimate, not a few ms more
    connect(&m_pauseTimer, &QTimer::timeout, this, &SerialTransport::resumeReading);
}

bool SerialTransport::open(QString *error)
{
    m_port.setPortName(m_device);
    const auto fail = [&](const QString &reason) {
        *error = reason;
        return false;
    };
    if (!QFileInfo::exists(m_device))
        return fail(QStringLiteral("the serial device %1 does not exist; check the port name and the TROVEX_PORTS map")
                        .arg(m_device));
    if (!m_port.open(QIODevice::ReadWrite)) {
        switch (m_port.error()) {
        case QSerialPort::PermissionError:
            return fail(QStringLiteral("no permission to open %1: join the dialout group (sudo usermod -aG dialout $USER) "
                                       "and log in again, or check that no other program holds the port")
                            .arg(m_device));
        case QSerialPort::DeviceNotFoundError:
            return fail(QStringLiteral("the serial device %1 does not exist; check the port name and the TROVEX_PORTS map")
                            .arg(m_device));
        default:
            return fail(QStringLiteral("%1 cannot be opened (%2); check that no other program uses it")
                            .arg(m_device, m_port.errorString()));
        }
    }
    // A pseudo-terminal (the simulated instrument) has no line to carry a parity bit and
    // refuses the setting; every real port must take it.
    const bool pseudoTerminal = QFileInfo(m_device).canonicalFilePath().startsWith(QStringLiteral("/dev/pts/"));
    const bool configured = m_port.setBaudRate(m_baud) && m_port.setDataBits(QSerialPort::Data8)
                            && (m_port.setParity(QSerialPort::EvenParity) || pseudoTerminal)
                            && m_port.setStopBits(QSerialPort::OneStop) && m_port.setFlowControl(QSerialPort::NoFlowControl);
    if (!configured) {
        const QString reason = m_port.errorString();
        m_port.close();
        return fail(QStringLiteral("%1 does not accept %2 baud, 8 data bits, even parity, 1 stop bit (%3)")
                        .arg(m_device).arg(m_baud).arg(reason));
    }
    m_port.clear();
    m_readNotifier = readNotifier();
    return true;
}

QSocketNotifier *SerialTransport::readNotifier() const
{
    // The port watches the tty with a notifier of its own; without one found, answers are
    // simply taken piece by piece.
    const QList<QSocketNotifier *> notifiers = m_port.findChildren<QSocketNotifier *>();
    const auto it = std::find_if(notifiers.begin(), notifiers.end(),
                                 [](const QSocketNotifier *n) { return n->type() == QSocketNotifier::Read; });
    return it == notifiers.end() ? nullptr : *it;
}

void SerialTransport::write(const QByteArray &bytes)
{
    if (!m_port.isOpen())
        return;
    // Straight to the driver when nothing waits in the port's own buffer: the bytes leave now
    // instead of on the event loop's next turn, one wake-up less per request. What the driver
    // cannot take yet (or an error) goes through the port, which writes when there is room and
    // reports errors. (Its flush() would instead report a full driver buffer as a lost port.)
    qsizetype sent = 0;
    if (m_port.bytesToWrite() == 0) {
        const ssize_t n = ::write(int(m_port.handle()), bytes.constData(), size_t(bytes.size()));
        sent = n > 0 ? qsizetype(n) : 0;
    }
    if (sent < bytes.size())
        m_port.write(bytes.constData() + sent, bytes.size() - sent);
}

// Every piece the line delivers wakes the program, even when it is not read yet: the kernel
// wakes whoever watches the tty. While the link knows that nothing it needs can be there yet,
// nobody needs to watch, so the port's read notifier rests and the program sleeps through the
// pause; then one read takes all that came. A short pause is not worth a timer.
void SerialTransport::pauseReading(double ms)
{
    if (ms < double(LinkTimeouts::ShortestReadPause.count()) || !m_readNotifier || !m_port.isOpen()) {
        resumeReading();
        return;
    }
    m_readNotifier->setEnabled(false);
    m_pauseTimer.start(int(std::ceil(ms)));
}

void SerialTransport::resumeReading()
{
    m_pauseTimer.stop();
    if (m_readNotifier && !m_readNotifier->isEnabled())
        m_readNotifier->setEnabled(true);
}

void SerialTransport::close()
{
    resumeReading();
    if (m_port.isOpen())
        m_port.close();
}

double SerialTransport::wireTimeMs(int count) const
{
    return 1000.0 * count * BitsPerByte / m_baud;
}

void SerialTransport::onError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_port.isOpen())
        return;
    if (error == QSerialPort::ResourceError || error == QSerialPort::WriteError || error == QSerialPort::ReadError) {
        const QString reason = QStringLiteral("the serial port %1 went away; check the cable and the USB adapter").arg(m_device);
        m_port.close();
        emit failed(reason);
    }
}
