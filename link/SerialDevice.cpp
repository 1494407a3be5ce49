#include "link/SerialDevice.h"

#include <QFile>
#include <QFileInfo>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {
struct Rate {
    int baud;
    speed_t speed;
};
// Every rate Linux names, up to its highest.
constexpr std::array<Rate, 30> Rates = {{
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
}};
// The character size, parity and stop bits of the line: 8E1.
constexpr tcflag_t FrameBits = CSIZE | PARENB | PARODD | CSTOPB;
constexpr tcflag_t EightEvenOne = CS8 | PARENB;

std::optional<speed_t> speedFor(int baud)
{
    for (const Rate &rate : Rates)
        if (rate.baud == baud)
            return rate.speed;
    return std::nullopt;
}

int baudOf(speed_t speed)
{
    for (const Rate &rate : Rates)
        if (rate.speed == speed)
            return rate.baud;
    return 0;
}

QString systemError(int number)
{
    return QString::fromLocal8Bit(std::strerror(number));
}

QString whyNotOpened(const QString &device, int number)
{
    switch (number) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return QStringLiteral("the serial device %1 does not exist; check the port name and the TROVEX_PORTS map").arg(device);
    case EACCES:
    case EPERM:
        return QStringLiteral("no permission to open %1: join the dialout group (sudo usermod -aG dialout $USER) and log "
                              "in again")
            .arg(device);
    case EBUSY:
        return QStringLiteral("%1 is busy: another program uses it; close that program (a terminal, a modem manager) "
                              "and try again")
            .arg(device);
    default:
        return QStringLiteral("%1 cannot be opened (%2); check that no other program uses it").arg(device, systemError(number));
    }
}

// Raw 8E1 at speed without flow control; "" or why the line refuses it.
QString setUpLine(int descriptor, const QString &device, int baud, speed_t speed)
{
    termios settings{};
    if (::tcgetattr(descriptor, &settings) != 0)
        return QStringLiteral("%1 is not a serial port (%2)").arg(device, systemError(errno));
    // A pseudo-terminal (the simulated instrument) has no line to carry a parity bit and
    // refuses the setting; every real port must take it.
    const bool pseudoTerminal = QFileInfo(device).canonicalFilePath().startsWith(QStringLiteral("/dev/pts/"));
    const tcflag_t frame = pseudoTerminal ? CS8 : EightEvenOne;
    ::cfmakeraw(&settings);
    settings.c_cflag = (settings.c_cflag & ~(FrameBits | CRTSCTS)) | frame | CREAD | CLOCAL;
    settings.c_iflag &= ~(IXON | IXOFF | IXANY | INPCK); // a damaged byte is the frame's CRC's business
    ::cfsetispeed(&settings, speed);
    ::cfsetospeed(&settings, speed);
    if (::tcsetattr(descriptor, TCSANOW, &settings) != 0)
        return QStringLiteral("%1 does not accept %2 baud, 8 data bits, even parity, 1 stop bit (%3)")
            .arg(device)
            .arg(baud)
            .arg(systemError(errno));
    // tcsetattr succeeds when any of the settings took: read back what the driver kept.
    termios kept{};
    ::tcgetattr(descriptor, &kept);
    if (::cfgetospeed(&kept) != speed)
        return QStringLiteral("%1 does not accept %2 baud: its driver refuses the rate").arg(device).arg(baud);
    if ((kept.c_cflag & FrameBits) != frame)
        return QStringLiteral("%1 does not accept 8 data bits, even parity, 1 stop bit").arg(device);
    return QString();
}
} // namespace

namespace SerialDevice {

int open(const QString &device, int baud, QString *error)
{
    const std::optional<speed_t> speed = speedFor(baud);
    if (!speed) {
        *error = QStringLiteral("%1 baud is not a rate a serial port offers; the package's BAUD must be a standard rate "
                                "such as 9600, 19200, 38400, 57600 or 115200")
                     .arg(baud);
        return -1;
    }
    const int descriptor = ::open(QFile::encodeName(device).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        *error = whyNotOpened(device, errno);
        return -1;
    }
    // This program alone: a second update on the same port is refused here, and TIOCEXCL
    // refuses every other program's open while the port is in use.
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        *error = whyNotOpened(device, EBUSY);
        return -1;
    }
    if (const QString why = setUpLine(descriptor, device, baud, *speed); !why.isEmpty()) {
        ::close(descriptor);
        *error = why;
        return -1;
    }
    ::ioctl(descriptor, TIOCEXCL);
    ::tcflush(descriptor, TCIOFLUSH); // nothing from before the update
    return descriptor;
}

QString setRate(int descriptor, int baud)
{
    const std::optional<speed_t> speed = speedFor(baud);
    termios settings{};
    if (!speed || ::tcgetattr(descriptor, &settings) != 0)
        return QStringLiteral("%1 baud is not a rate a serial port offers").arg(baud);
    const termios before = settings;
    ::cfsetispeed(&settings, *speed);
    ::cfsetospeed(&settings, *speed);
    if (::tcsetattr(descriptor, TCSADRAIN, &settings) != 0)
        return QStringLiteral("the port does not take %1 baud (%2)").arg(baud).arg(systemError(errno));
    // tcsetattr succeeds when any of the settings took: read back what the driver kept.
    termios kept{};
    if (::tcgetattr(descriptor, &kept) != 0 || ::cfgetospeed(&kept) != *speed) {
        ::tcsetattr(descriptor, TCSANOW, &before);
        return QStringLiteral("the port's driver refuses %1 baud").arg(baud);
    }
    return QString();
}

bool takesRate(int descriptor, int baud)
{
    termios before{};
    if (::tcgetattr(descriptor, &before) != 0 || !setRate(descriptor, baud).isEmpty())
        return false;
    ::tcsetattr(descriptor, TCSANOW, &before);
    return true;
}

int rateOf(int descriptor)
{
    termios settings{};
    return ::tcgetattr(descriptor, &settings) == 0 ? baudOf(::cfgetospeed(&settings)) : 0;
}

QList<int> rates()
{
    QList<int> bauds;
    for (const Rate &rate : Rates)
        bauds << rate.baud;
    return bauds;
}

void close(int descriptor)
{
    // A pseudo-terminal outlives the descriptor (the other end keeps it): without this, the
    // next open of it would be refused.
    ::ioctl(descriptor, TIOCNXCL);
    ::close(descriptor);
}

} // namespace SerialDevice
