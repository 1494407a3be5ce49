#include "trovex/SerialTransport.h"

#include <QFileInfo>
#include <unistd.h>

SerialTransport::SerialTransport(const QString &device, int baud, QObject *parent)
    : Transport(parent), m_device(device), m_baud(baud)
{
    connect(&m_port, &QSerialPort::readyRead, this, [this] { emit received(m_port.readAll()); });
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialTransport::onError);
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
    return true;
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

void SerialTransport::close()
{
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
