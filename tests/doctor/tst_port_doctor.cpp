// The port doctor's findings and advice, exactly as the technician reads them, on
// pseudo-terminals and files made to look like each case: a missing device, no permission, a
// group joined but not logged in again, a port held by another process, ModemManager probing
// an adapter, not a serial port at all.
#include "tests/doctor/FakeSystem.h"

#include "doctor/DoctorText.h"
#include "doctor/PortDoctor.h"

#include <QProcess>
#include <QtTest>
#include <sys/stat.h>

namespace {
enum class Setup {
    Plain,              // nothing else
    OwnerOnly,          // the terminal rw for its owner alone, the user someone else
    GroupNotJoined,     // rw for the group dialout, the user not in it
    GroupNotInSession,  // the group file lists the user, the session does not have the group
    GroupInSession,     // the session has the group
    HeldByTestProcess,  // a real process has the terminal open
    HeldByUpdate,       // varnolt-cli has it open
    OtherEnd,           // the simulated instrument holds the master and the terminal
    ModemManagerRuns,   // the terminal is a USB adapter, ModemManager runs
    ModemManagerHolds,  // ...and has it open
    ModemManagerTold,   // ...and udev tells ModemManager to leave it alone
    AdapterElsewhere,   // a USB adapter is present, not the one mapped
};

const QString Rule = QStringLiteral("echo 'ATTRS{idVendor}==\"0403\", ATTRS{idProduct}==\"6001\", ENV{ID_MM_DEVICE_IGNORE}=\"1\"' "
                                    "| sudo tee -a /etc/udev/rules.d/70-varnolt.rules && sudo udevadm control --reload");
const QString Adapter = QStringLiteral("  Adapter: FTDI FT232R USB UART, serial A9XYZ (USB ID 0403:6001)");
constexpr unsigned OtherUser = 4321; // not the terminal's owner, not root
} // namespace

class PortDoctorTest : public QObject {
    Q_OBJECT
private slots:
    // The map names <dev> (the terminal), <missing> (no such file) or <file> (a plain file); the
    // expected lines also name <owner> (the terminal's owner) and <pid> (the holder's).
    void findings_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<QString>("map");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QStringList>("expected");
        const QString dev = QStringLiteral("COM1 opens <dev>, as TROVEX_PORTS says");
        const QString rate = QStringLiteral("  Highest rate: 4000000 baud");
        const QString fine = QStringLiteral("  No problem found.");

        QTest::newRow("a port that opens") << Setup::Plain << "COM1=<dev>" << "COM1" << QStringList{dev, rate, fine};
        QTest::newRow("missing device, no adapter present")
            << Setup::Plain << "COM1=<missing>" << "com1"
            << QStringList{"COM1 opens <missing>, as TROVEX_PORTS says",
                           "  Problem: <missing> does not exist: the adapter is not plugged in, or has another name. No USB "
                           "serial adapter is plugged in.",
                           "  Fix: varnolt-cli ports",
                           "       lists the adapter, and the name to map COM1 to, once it is plugged in."};
        QTest::newRow("missing device, an adapter present")
            << Setup::AdapterElsewhere << "COM1=<missing>;COM2=/dev/ttyS1" << "COM1"
            << QStringList{"COM1 opens <missing>, as TROVEX_PORTS says",
                           "  Problem: <missing> does not exist: the adapter is not plugged in, or has another name.",
                           "  Fix: export TROVEX_PORTS=\"COM1=/dev/ttyUSB0;COM2=/dev/ttyS1\"",
                           "       maps COM1 to the adapter that is there (put the line in ~/.profile for the window)."};
        QTest::newRow("a missing device named by its path")
            << Setup::Plain << "" << "<missing>"
            << QStringList{"<missing>", "  Problem: <missing> does not exist: the adapter is not plugged in, or has another name.",
                           "  Fix: varnolt-cli ports", "       lists the serial adapters that are there."};
        QTest::newRow("a plain file") << Setup::Plain << "COM1=<file>" << "COM1"
                                      << QStringList{"COM1 opens <file>, as TROVEX_PORTS says",
                                                     "  Problem: <file> is not a serial port. No USB serial adapter is plugged in.",
                                                     "  Fix: varnolt-cli ports",
                                                     "       lists the adapter, and the name to map COM1 to, once it is plugged in."};
        QTest::newRow("only the owner may open it")
            << Setup::OwnerOnly << "COM1=<dev>" << "COM1"
            << QStringList{dev, "  Problem: Only <owner> may open <dev> (crw-------).", "  Fix: sudo chown tech <dev>",
                           "       lasts until the device is plugged in again."};
        QTest::newRow("not in the group")
            << Setup::GroupNotJoined << "COM1=<dev>" << "COM1"
            << QStringList{dev,
                           "  Problem: tech may not open <dev>: only <owner> and the group dialout may (crw-rw----), and tech is "
                           "not in dialout.",
                           "  Fix: sudo usermod -aG dialout tech", "       then log out and log in again."};
        QTest::newRow("added to the group, not logged in again")
            << Setup::GroupNotInSession << "COM1=<dev>" << "COM1"
            << QStringList{dev,
                           "  Problem: tech was added to the group dialout, but this session started before that: its "
                           "programs are not in dialout yet, and <dev> (crw-rw----) opens only for <owner> and dialout. Log out "
                           "and log in again.",
                           "  Fix: newgrp dialout", "       until then: a shell that is in dialout at once, for the headless tool."};
        QTest::newRow("in the group since logging in") << Setup::GroupInSession << "COM1=<dev>" << "COM1" << QStringList{dev, rate, fine};
        QTest::newRow("held by a test process")
            << Setup::HeldByTestProcess << "COM1=<dev>" << "COM1"
            << QStringList{dev, "  Problem: <dev> is in use by sleep (PID <pid>).", "  Fix: kill <pid>"};
        QTest::newRow("held by an update")
            << Setup::HeldByUpdate << "COM1=<dev>" << "COM1"
            << QStringList{dev, "  Problem: <dev> is in use by varnolt-cli (PID 4242).", "  Fix: kill 4242",
                           "       only when no update runs there: one stopped while it erases leaves the instrument without "
                           "firmware."};
        QTest::newRow("the terminal's other end is the line") << Setup::OtherEnd << "COM1=<dev>" << "COM1" << QStringList{dev, rate, fine};
        QTest::newRow("ModemManager runs")
            << Setup::ModemManagerRuns << "COM1=<dev>" << "COM1"
            << QStringList{dev, Adapter, rate,
                           "  Problem: ModemManager is running: it opens serial adapters when they are plugged in to look for "
                           "a modem, and sends them commands, which holds <dev> for a while and confuses the instrument.",
                           "  Fix: " + Rule, "       then plug the adapter in again."};
        QTest::newRow("ModemManager holds the adapter")
            << Setup::ModemManagerHolds << "COM1=<dev>" << "COM1"
            << QStringList{dev, Adapter,
                           "  Problem: ModemManager (PID 812) holds <dev>: it opens serial adapters to look for a modem, and "
                           "sends them commands.",
                           "  Fix: " + Rule, "       then plug the adapter in again."};
        QTest::newRow("ModemManager told to leave the adapter alone")
            << Setup::ModemManagerTold << "COM1=<dev>" << "COM1" << QStringList{dev, Adapter, rate, fine};
        QTest::newRow("a name without a device")
            << Setup::Plain << "" << "USB"
            << QStringList{"USB:",
                           "  Problem: USB names no device: only COM1, COM2, ... have one without the port map (/dev/ttyS0, "
                           "/dev/ttyS1, ...).",
                           "  Fix: export TROVEX_PORTS=\"USB=/dev/ttyUSB0\""};
        QTest::newRow("a GPIB port not in the map")
            << Setup::Plain << "COM2=/dev/ttyS1" << "GPIB0"
            << QStringList{"GPIB0:",
                           "  Problem: GPIB0 is not in the port map: TROVEX_PORTS names its GPIB controller and the "
                           "instrument's address.",
                           "  Fix: export TROVEX_PORTS=\"COM2=/dev/ttyS1;GPIB0=/dev/ttyUSB0,6\"",
                           "       with the instrument's GPIB address in place of 6."};
        QTest::newRow("a GPIB controller on a serial port")
            << Setup::Plain << "GPIB0=<dev>,9" << "GPIB0"
            << QStringList{"GPIB0: GPIB address 9 through the GPIB controller on <dev>", rate, fine};
        QTest::newRow("a GPIB controller on a missing device, an adapter present")
            << Setup::AdapterElsewhere << "GPIB0=<missing>,9" << "GPIB0"
            << QStringList{"GPIB0: GPIB address 9 through the GPIB controller on <missing>",
                           "  Problem: <missing> does not exist: the adapter is not plugged in, or has another name.",
                           "  Fix: export TROVEX_PORTS=\"GPIB0=/dev/ttyUSB0,9\"",
                           "       maps GPIB0 to the adapter that is there (put the line in ~/.profile for the window)."};
        QTest::newRow("a GPIB controller on the network")
            << Setup::Plain << "GPIB0=192.168.1.40,9" << "GPIB0"
            << QStringList{"GPIB0: GPIB address 9 through the GPIB controller at 192.168.1.40:1234"};
    }
    void findings()
    {
        QFETCH(Setup, setup);
        QFETCH(QString, map);
        QFETCH(QString, port);
        QFETCH(QStringList, expected);
        FakeSystem system;
        PseudoTerminal terminal;
        QVERIFY(!terminal.device.isEmpty());
        const QString missing = system.path(QStringLiteral("ttyUSB7"));
        const QString file = system.path(QStringLiteral("notes.txt"));
        system.write(file, "not a port\n");
        UserIdentity user = UserIdentity::current();
        struct stat status {};
        QCOMPARE(::stat(QFile::encodeName(terminal.device).constData(), &status), 0);
        const QByteArray gid = QByteArray::number(status.st_gid);
        const auto otherUser = [&](mode_t mode, const QByteArray &groupLine) {
            QCOMPARE(::chmod(QFile::encodeName(terminal.device).constData(), mode), 0);
            // The terminal's group first: on some systems it is root's.
            system.write(system.paths.groupFile, groupLine + "\nroot:x:0:\nplugdev:x:46:tech\n");
            user = UserIdentity{OtherUser, QStringLiteral("tech"), {OtherUser}};
        };
        QProcess holder;
        QString pid = QStringLiteral("none");
        switch (setup) {
        case Setup::Plain:
            break;
        case Setup::OwnerOnly:
            otherUser(0600, "dialout:x:" + gid + ":tech");
            break;
        case Setup::GroupNotJoined:
            otherUser(0660, "dialout:x:" + gid + ":someone");
            break;
        case Setup::GroupNotInSession:
            otherUser(0660, "dialout:x:" + gid + ":someone,tech");
            break;
        case Setup::GroupInSession:
            otherUser(0660, "dialout:x:" + gid + ":tech");
            user.groups << status.st_gid;
            break;
        case Setup::HeldByTestProcess:
            system.paths.proc = QStringLiteral("/proc");
            holder.setStandardInputFile(terminal.device);
            holder.start(QStringLiteral("sleep"), {QStringLiteral("30")});
            QVERIFY(holder.waitForStarted());
            pid = QString::number(holder.processId());
            QTRY_VERIFY(QFileInfo(QStringLiteral("/proc/%1/fd/0").arg(pid)).symLinkTarget() == terminal.device);
            break;
        case Setup::HeldByUpdate:
            system.addProcess(4242, "varnolt-cli", {QStringLiteral("/dev/null"), terminal.device});
            break;
        case Setup::OtherEnd:
            system.addProcess(4343, "varnolt-instrum", {QStringLiteral("/dev/ptmx"), terminal.device},
                              {"pos:\t0\nflags:\t02\ntty-index:\t" + terminal.number().toLatin1() + "\n"});
            break;
        case Setup::ModemManagerRuns:
        case Setup::ModemManagerHolds:
        case Setup::ModemManagerTold:
            system.addUsbTty(terminal.number(), "136:" + terminal.number().toLatin1());
            system.addProcess(812, "ModemManager", setup == Setup::ModemManagerHolds ? QStringList{terminal.device} : QStringList{});
            if (setup == Setup::ModemManagerTold)
                system.write(system.paths.udevData + QStringLiteral("/c136:") + terminal.number(),
                             "I:123\nE:ID_MM_CANDIDATE=1\nE:ID_MM_DEVICE_IGNORE=1\nG:systemd\n");
            break;
        case Setup::AdapterElsewhere:
            system.addUsbTty(QStringLiteral("ttyUSB0"), "188:0");
            break;
        }
        const auto place = [&](QString text) {
            return text.replace(QStringLiteral("<missing>"), missing)
                .replace(QStringLiteral("<file>"), file)
                .replace(QStringLiteral("<dev>"), terminal.device)
                .replace(QStringLiteral("<owner>"), QFileInfo(terminal.device).owner())
                .replace(QStringLiteral("<pid>"), pid);
        };
        const PortDoctor doctor(PortMap(place(map)), system.paths, user);
        const QStringList lines = DoctorText::lines(doctor.examine(place(port)));
        QStringList wanted;
        for (const QString &line : expected)
            wanted << place(line);
        QCOMPARE(lines, wanted);
        if (holder.state() != QProcess::NotRunning) {
            holder.kill();
            holder.waitForFinished();
        }
    }

    // Without a port named: the map's ports, then each adapter that none of them opens.
    void defaultPorts_data()
    {
        QTest::addColumn<QString>("map");
        QTest::addColumn<QStringList>("ttys");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("nothing") << "" << QStringList{} << QStringList{"COM1"};
        QTest::newRow("adapters only") << "" << QStringList{"ttyACM0", "ttyUSB0"} << QStringList{"/dev/ttyACM0", "/dev/ttyUSB0"};
        QTest::newRow("mapped adapters once")
            << "GPIB0=/dev/ttyUSB1,6;COM2=/dev/ttyUSB0" << QStringList{"ttyUSB0", "ttyACM0", "ttyUSB1"}
            << QStringList{"COM2", "GPIB0", "/dev/ttyACM0"};
    }
    void defaultPorts()
    {
        QFETCH(QString, map);
        QFETCH(QStringList, ttys);
        FakeSystem system;
        for (const QString &tty : ttys)
            system.addUsbTty(tty, "188:0");
        const PortDoctor doctor(PortMap(map), system.paths, UserIdentity::current());
        QTEST(doctor.defaultPorts(), "expected");
    }
};

QTEST_GUILESS_MAIN(PortDoctorTest)
#include "tst_port_doctor.moc"
