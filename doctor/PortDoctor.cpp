#include "doctor/PortDoctor.h"

#include "link/GpibTarget.h"
#include "link/PortDescription.h"
#include "link/SerialAdapter.h"
#include "link/SerialDevice.h"
#include "link/TransportFactory.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {
const QString MapName = QLatin1String(PortMap::EnvironmentVariable);
// The rule that tells ModemManager to leave an adapter alone, in a file of its own.
const QString UdevRuleFile = QStringLiteral("/etc/udev/rules.d/70-varnolt.rules");
const QString ModemManagerIgnore = QStringLiteral("ID_MM_DEVICE_IGNORE");
// Stands for the instrument's GPIB address in an example entry.
constexpr int ExampleGpibAddress = 6;

// "crw-rw----", as ls shows it.
QString modeText(mode_t mode)
{
    QString text = S_ISCHR(mode) ? QStringLiteral("c") : S_ISDIR(mode) ? QStringLiteral("d") : QStringLiteral("-");
    const char *letters = "rwx";
    for (int bit = 8; bit >= 0; --bit)
        text += (mode & (1u << bit)) ? QLatin1Char(letters[(8 - bit) % 3]) : QLatin1Char('-');
    return text;
}

QString userName(uid_t uid)
{
    const passwd *entry = ::getpwuid(uid);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(uid);
}

QString listOfHolders(const QList<ProcessTable::Process> &holders)
{
    QStringList parts;
    for (const ProcessTable::Process &process : holders)
        parts << QStringLiteral("%1 (PID %2)").arg(process.name).arg(process.pid);
    return parts.join(QStringLiteral(", "));
}

// The udev database entry of the device says ModemManager is to leave it alone.
bool ignoredByModemManager(const QString &udevData, const QString &deviceNumber)
{
    QFile entry(udevData + QStringLiteral("/c") + deviceNumber);
    if (deviceNumber.isEmpty() || !entry.open(QIODevice::ReadOnly))
        return false;
    return entry.readAll().split('\n').contains(QStringLiteral("E:%1=1").arg(ModemManagerIgnore).toLatin1());
}
} // namespace

PortDoctor::PortDoctor(const PortMap &map, const SystemPaths &paths, const UserIdentity &user)
    : m_map(map), m_paths(paths), m_user(user), m_groups(GroupFile::read(paths.groupFile)), m_processes(paths.proc),
      m_sysfs(paths.sys)
{
}

QStringList PortDoctor::defaultPorts() const
{
    QStringList ports = m_map.overrides().keys();
    for (const QString &tty : m_sysfs.usbTtys()) {
        const QString device = QStringLiteral("/dev/") + tty;
        const bool mapped = std::any_of(ports.cbegin(), ports.cend(), [&](const QString &port) {
            const QString opened = PortDescription::deviceFile(port, m_map);
            return opened == device || QFileInfo(opened).canonicalFilePath() == device;
        });
        if (!mapped)
            ports << device;
    }
    if (ports.isEmpty())
        ports << QStringLiteral("COM1");
    return ports;
}

PortDiagnosis PortDoctor::examine(const QString &name) const
{
    PortDiagnosis d;
    d.port = name.contains(QLatin1Char('/')) ? name.trimmed() : name.trimmed().toUpper();
    d.mapped = m_map.overrides().contains(d.port.toUpper());
    if (!TransportFactory::isGpibName(d.port)) {
        d.device = m_map.deviceFor(d.port);
        if (d.device.isEmpty())
            d.findings << DoctorFinding{QStringLiteral("%1 names no device: only COM1, COM2, ... have one without the port map "
                                                       "(/dev/ttyS0, /dev/ttyS1, ...).")
                                            .arg(d.port),
                                        exportCommand(d.port, adapterOrExample()), QString()};
        else
            examineDevice(d);
        return d;
    }
    const QString entry = m_map.deviceFor(d.port);
    QString error;
    const std::optional<GpibTarget> target = GpibTarget::parse(entry, &error);
    if (!target) {
        d.findings << DoctorFinding{entry.isEmpty() ? QStringLiteral("%1 is not in the port map: %2 names its GPIB controller "
                                                                     "and the instrument's address.")
                                                          .arg(d.port, MapName)
                                                    : QStringLiteral("%1 in %2: %3.").arg(d.port, MapName, error),
                                    exportCommand(d.port, QStringLiteral("%1,%2").arg(adapterOrExample()).arg(ExampleGpibAddress)),
                                    QStringLiteral("with the instrument's GPIB address in place of %1").arg(ExampleGpibAddress)};
        return d;
    }
    d.note = QStringLiteral("GPIB address %1 through %2").arg(target->address).arg(target->describe());
    if (target->controller != GpibTarget::Controller::PlusPlusSerial)
        return d; // a network controller or a linux-gpib board: no serial device here
    d.device = target->device;
    examineDevice(d);
    return d;
}

void PortDoctor::examineDevice(PortDiagnosis &d) const
{
    const QFileInfo file(d.device);
    if (!file.exists()) {
        d.findings << mapToAdapter(d, QStringLiteral("%1 does not exist: the adapter is not plugged in, or has another name.")
                                          .arg(d.device));
        return;
    }
    const QString real = file.canonicalFilePath();
    if (real != d.device)
        d.resolved = real;
    const QString tty = QFileInfo(real).fileName();
    d.adapter = m_sysfs.usbIdentity(tty);
    if (d.adapter)
        d.byIdNames = SerialAdapter::linksTo(real, m_paths.byIdFolder);
    const bool permitted = checkPermission(d);
    const QList<ProcessTable::Process> holders = m_processes.holding(real);
    const bool free = checkHolders(d, holders);
    checkModemManager(d, tty, holders);
    if (permitted && free)
        probe(d);
}

bool PortDoctor::checkPermission(PortDiagnosis &d) const
{
    struct stat status {};
    if (::stat(QFile::encodeName(d.device).constData(), &status) != 0 || m_user.uid == 0)
        return true; // root opens any device; a device that went meanwhile shows when opened
    const bool asOwner = status.st_uid == m_user.uid && (status.st_mode & (S_IRUSR | S_IWUSR)) == (S_IRUSR | S_IWUSR);
    const bool groupMay = (status.st_mode & (S_IRGRP | S_IWGRP)) == (S_IRGRP | S_IWGRP);
    const bool asGroup = groupMay && m_user.groups.contains(status.st_gid);
    const bool asOther = (status.st_mode & (S_IROTH | S_IWOTH)) == (S_IROTH | S_IWOTH);
    if (asOwner || asGroup || asOther)
        return true;
    const QString mode = modeText(status.st_mode);
    const QString owner = userName(status.st_uid);
    if (!groupMay) {
        d.findings << DoctorFinding{QStringLiteral("Only %1 may open %2 (%3).").arg(owner, d.device, mode),
                                    QStringLiteral("sudo chown %1 %2").arg(m_user.name, d.device),
                                    QStringLiteral("lasts until the device is plugged in again")};
        return false;
    }
    const QString group = m_groups.nameOf(status.st_gid);
    if (m_groups.lists(group, m_user.name)) {
        d.findings << DoctorFinding{QStringLiteral("%1 was added to the group %2, but this session started before that: its "
                                                   "programs are not in %2 yet, and %3 (%4) opens only for %5 and %2. Log out "
                                                   "and log in again.")
                                        .arg(m_user.name, group, d.device, mode, owner),
                                    QStringLiteral("newgrp %1").arg(group),
                                    QStringLiteral("until then: a shell that is in %1 at once, for the headless tool").arg(group)};
        return false;
    }
    d.findings << DoctorFinding{QStringLiteral("%1 may not open %2: only %3 and the group %4 may (%5), and %1 is not in %4.")
                                    .arg(m_user.name, d.device, owner, group, mode),
                                QStringLiteral("sudo usermod -aG %1 %2").arg(group, m_user.name),
                                QStringLiteral("then log out and log in again")};
    return false;
}

bool PortDoctor::checkHolders(PortDiagnosis &d, QList<ProcessTable::Process> holders) const
{
    const bool held = !holders.isEmpty();
    // ModemManager on an adapter is put right by a udev rule, not by ending it (see there).
    if (d.adapter)
        holders.removeIf([](const ProcessTable::Process &process) { return process.name == QLatin1String(ModemManager); });
    if (holders.isEmpty())
        return !held;
    QStringList pids;
    bool update = false;
    for (const ProcessTable::Process &process : holders) {
        pids << QString::number(process.pid);
        update = update || process.name.startsWith(QLatin1String("varnolt"));
    }
    d.findings << DoctorFinding{QStringLiteral("%1 is in use by %2.").arg(d.device, listOfHolders(holders)),
                                QStringLiteral("kill ") + pids.join(QLatin1Char(' ')),
                                update ? QStringLiteral("only when no update runs there: one stopped while it erases leaves "
                                                        "the instrument without firmware")
                                       : QString()};
    return false;
}

void PortDoctor::checkModemManager(PortDiagnosis &d, const QString &tty, QList<ProcessTable::Process> holders) const
{
    if (!d.adapter || !m_processes.isRunning(QLatin1String(ModemManager)))
        return;
    if (ignoredByModemManager(m_paths.udevData, m_sysfs.deviceNumber(tty)))
        return;
    holders.removeIf([](const ProcessTable::Process &process) { return process.name != QLatin1String(ModemManager); });
    const QString problem =
        holders.isEmpty()
            ? QStringLiteral("ModemManager is running: it opens serial adapters when they are plugged in to look for a "
                             "modem, and sends them commands, which holds %1 for a while and confuses the instrument.")
                  .arg(d.device)
            : QStringLiteral("%1 holds %2: it opens serial adapters to look for a modem, and sends them commands.")
                  .arg(listOfHolders(holders), d.device);
    const QString rule = QStringLiteral("ATTRS{idVendor}==\"%1\", ATTRS{idProduct}==\"%2\", ENV{%3}=\"1\"")
                             .arg(d.adapter->vendorId, d.adapter->productId, ModemManagerIgnore);
    d.findings << DoctorFinding{problem,
                                QStringLiteral("echo '%1' | sudo tee -a %2 && sudo udevadm control --reload").arg(rule, UdevRuleFile),
                                QStringLiteral("then plug the adapter in again")};
}

void PortDoctor::probe(PortDiagnosis &d) const
{
    const int descriptor = ::open(QFile::encodeName(d.device).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        const int number = errno;
        const QString why = QString::fromLocal8Bit(std::strerror(number));
        switch (number) {
        case EBUSY:
            d.findings << DoctorFinding{QStringLiteral("%1 is in use by a program that %2 cannot see (one of another user).")
                                            .arg(d.device, m_user.name),
                                        QStringLiteral("sudo varnolt-cli doctor %1").arg(d.port), QStringLiteral("names it")};
            return;
        case EACCES:
        case EPERM:
            d.findings << DoctorFinding{QStringLiteral("%1 refuses %2 (%3) although its permissions allow it: a security "
                                                       "module or a confined installation stops it.")
                                            .arg(d.device, m_user.name, why),
                                        QStringLiteral("sudo journalctl -k -g DENIED"), QStringLiteral("shows what refused it")};
            return;
        default:
            d.findings << mapToAdapter(d, QStringLiteral("%1 does not open (%2): no serial port is fitted behind it, or the "
                                                         "adapter was unplugged.")
                                              .arg(d.device, why));
            return;
        }
    }
    termios settings{};
    if (::tcgetattr(descriptor, &settings) != 0) {
        ::close(descriptor);
        d.findings << mapToAdapter(d, QStringLiteral("%1 is not a serial port.").arg(d.device));
        return;
    }
    QList<int> rates = SerialDevice::rates();
    std::reverse(rates.begin(), rates.end());
    for (const int baud : rates) {
        if (SerialDevice::takesRate(descriptor, baud)) {
            d.highestRate = baud;
            break;
        }
    }
    ::close(descriptor);
}

DoctorFinding PortDoctor::mapToAdapter(const PortDiagnosis &d, const QString &problem) const
{
    if (d.port.contains(QLatin1Char('/'))) // a device named by its path: no map entry to change
        return {problem, QStringLiteral("varnolt-cli ports"), QStringLiteral("lists the serial adapters that are there")};
    const QString adapter = adapterPresent(d.device);
    if (adapter.isEmpty())
        return {problem + QStringLiteral(" No USB serial adapter is plugged in."), QStringLiteral("varnolt-cli ports"),
                QStringLiteral("lists the adapter, and the name to map %1 to, once it is plugged in").arg(d.port)};
    // A GPIB port's entry keeps the instrument's address behind the controller's device.
    const QString entry = m_map.deviceFor(d.port);
    const QString target = TransportFactory::isGpibName(d.port) ? adapter + entry.mid(entry.lastIndexOf(QLatin1Char(','))) : adapter;
    return {problem, exportCommand(d.port, target),
            QStringLiteral("maps %1 to the adapter that is there (put the line in ~/.profile for the window)").arg(d.port)};
}

QString PortDoctor::adapterPresent(const QString &besides) const
{
    const QString skip = QFileInfo(besides).canonicalFilePath();
    for (const QString &tty : m_sysfs.usbTtys()) {
        const QString device = QStringLiteral("/dev/") + tty;
        if (device == skip)
            continue;
        const QStringList stable = SerialAdapter::linksTo(device, m_paths.byIdFolder);
        return stable.isEmpty() ? device : stable.first();
    }
    return QString();
}

QString PortDoctor::adapterOrExample() const
{
    const QString adapter = adapterPresent(QString());
    return adapter.isEmpty() ? QStringLiteral("/dev/ttyUSB0") : adapter;
}

QString PortDoctor::exportCommand(const QString &port, const QString &target) const
{
    QMap<QString, QString> entries = m_map.overrides();
    entries.insert(port.toUpper(), target);
    QStringList parts;
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        parts << it.key() + QLatin1Char('=') + it.value();
    return QStringLiteral("export %1=\"%2\"").arg(MapName, parts.join(QLatin1Char(';')));
}
