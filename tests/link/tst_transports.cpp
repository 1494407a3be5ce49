// The transports: what opening each says; the serial transport on a real pseudo-terminal
// (writes the driver cannot take at once, pauses in reading, hang-ups); the GPIB port map
// entries and the "++" controller's escaping as the emulated controller undoes it; requests
// and answers through the GPIB transports; the simulated instrument's paced line; and
// linux-gpib's blocking calls kept off the program's thread, with a stand-in library.
#include "instrument/GpibControllerEmulation.h"
#include "instrument/PtyPort.h"
#include "link/GpibControllerTransport.h"
#include "link/Link.h"
#include "link/LinuxGpibTransport.h"
#include "link/PortDescription.h"
#include "link/SerialTransport.h"
#include "tests/link/ScriptedTransport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {
using Controller = GpibTarget::Controller;
constexpr int Address = 6;
constexpr int NoListener = 2; // linux-gpib's ENOL
constexpr int NoBoard = 7;    // ENEB
constexpr int LongPauseMs = 4000;
constexpr int PromptlyMs = 300; // far shorter than the long pause, long enough for a loaded machine

// The far end of a serial line: the test writes what the instrument would send.
struct FarEnd {
    int fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    QString device = grantpt(fd) == 0 && unlockpt(fd) == 0 ? QString::fromLocal8Bit(ptsname(fd)) : QString();
    ~FarEnd() { hangUp(); }
    void send(const QByteArray &bytes) const { QCOMPARE(::write(fd, bytes.constData(), size_t(bytes.size())), ssize_t(bytes.size())); }
    QByteArray take() const // all that has come so far
    {
        QByteArray bytes;
        char buffer[4096];
        for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
            bytes.append(buffer, n);
        return bytes;
    }
    void hangUp()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
};

// linux-gpib's stand-in and its controls.
struct FakeGpib {
    void *library = dlopen(VARNOLT_FAKE_GPIB, RTLD_NOW | RTLD_LOCAL);
    void (*script)(int ibdevFails, int ibwrtFails) = reinterpret_cast<decltype(script)>(dlsym(library, "fakeGpibScript"));
    int (*callsOn)(pthread_t) = reinterpret_cast<decltype(callsOn)>(dlsym(library, "fakeGpibCallsOn"));
    int (*reads)() = reinterpret_cast<decltype(reads)>(dlsym(library, "fakeGpibReads"));
    void (*answer)(std::string (*)(const std::string &)) = reinterpret_cast<decltype(answer)>(dlsym(library, "fakeGpibAnswer"));
    ~FakeGpib()
    {
        answer(nullptr);
        dlclose(library);
    }
};

// A "++" controller on a local TCP port: the emulated one, or one that never answers.
struct NetworkController : QObject {
    QTcpServer server;
    GpibControllerEmulation emulation{Address};
    explicit NetworkController(bool answers)
    {
        server.listen(QHostAddress::LocalHost);
        connect(&server, &QTcpServer::newConnection, this, [this, answers] {
            QTcpSocket *host = server.nextPendingConnection();
            if (answers) {
                connect(host, &QTcpSocket::readyRead, this, [this, host] { emulation.receive(host->readAll()); });
                connect(&emulation, &GpibControllerEmulation::toHost, host, [host](const QByteArray &b) { host->write(b); });
            }
        });
    }
};

// An instrument that answers each request with its payload.
QByteArray echoes(FrameDecoder &decoder, const QByteArray &bytes)
{
    QByteArray answers;
    for (const Frame &request : decoder.feed(bytes))
        answers += Frame{request.sequence, Protocol::Reply, request.payload}.encode();
    return answers;
}

// ... on linux-gpib's stand-in, which asks on the worker's thread.
std::string echoesOnTheBus(const std::string &written)
{
    static FrameDecoder decoder;
    return echoes(decoder, QByteArray::fromStdString(written)).toStdString();
}

// ... behind the emulated controller, on a line paced at a USB controller's rate.
struct EchoingInstrument : QObject {
    PtyPort line{PtyPort::Line::GpibController, 100000 * 11, true};
    GpibControllerEmulation controller;
    FrameDecoder decoder;
    explicit EchoingInstrument(GpibControllerEmulation::EndMark endMark) : controller(Address, endMark)
    {
        QString error;
        line.open(&error);
        connect(&line, &PtyPort::received, &controller, &GpibControllerEmulation::receive);
        connect(&controller, &GpibControllerEmulation::toHost, &line, &PtyPort::write);
        connect(&controller, &GpibControllerEmulation::toInstrument, this,
                [this](const QByteArray &bytes) { controller.fromInstrument(echoes(decoder, bytes)); });
    }
};

GpibTarget target(Controller controller, const QString &device = {}, quint16 tcpPort = 0)
{
    return GpibTarget{controller, device, tcpPort, 0, Address};
}

// A serial transport on the near end of a fresh line, opened.
struct Line {
    FarEnd far;
    SerialTransport transport{far.device, 115200};
    QSignalSpy received{&transport, &Transport::received};
    QSignalSpy failed{&transport, &Transport::failed};
    Line() { transport.open(); }
    void later(int ms, const std::function<void()> &step) { QTimer::singleShot(ms, &transport, step); }
};

enum class Kind { Scripted, Serial, Network, Usb, LinuxGpib };
enum class Before { Nothing, OpenedAndClosed, Held, Silent, NobodyListens, ClosedAtOnce };
} // namespace

class TransportsTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_folder;

private slots:
    // Exactly one of opened or failed, from the event loop, with a reason that says what to
    // check; nothing once the transport is closed.
    void openingSaysWhy_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("where"); // the device or library; "": the test's own
        QTest::addColumn<int>("setting");   // the baud rate, or the iberr that ibdev fails with
        QTest::addColumn<Before>("before");
        QTest::addColumn<QString>("outcome");
        const auto row = [](const char *name, Kind kind, const QString &where, int setting, Before before, const QString &outcome) {
            QTest::newRow(name) << kind << where << setting << before << outcome;
        };
        row("a scripted transport that cannot open", Kind::Scripted, "not today", 0, Before::Nothing, "not today");
        row("a serial line", Kind::Serial, "", 4000000, Before::Nothing, "opened");
        row("a serial line closed at once", Kind::Serial, "", 115200, Before::ClosedAtOnce, "");
        row("a serial line again", Kind::Serial, "", 115200, Before::OpenedAndClosed, "opened");
        row("no such device", Kind::Serial, "/dev/varnolt-no-such-tty", 115200, Before::Nothing, "does not exist; check the port name");
        row("not a serial port", Kind::Serial, "/dev/null", 115200, Before::Nothing, "/dev/null is not a serial port");
        row("a rate no port offers", Kind::Serial, "", 12345, Before::Nothing, "12345 baud is not a rate a serial port offers");
        row("a port in use", Kind::Serial, "", 115200, Before::Held, "is busy: another program uses it");
        if (geteuid() != 0) { // the superuser may open anything
            const QString locked = m_folder.filePath(QStringLiteral("locked"));
            QFile(locked).open(QIODevice::WriteOnly);
            QFile::setPermissions(locked, QFileDevice::Permissions());
            row("no permission", Kind::Serial, locked, 115200, Before::Nothing, "no permission to open " + locked + ": join the dialout group");
        }
        row("a network controller", Kind::Network, "", 0, Before::Nothing, "opened");
        row("a network controller that does not answer", Kind::Network, "", 0, Before::Silent, "does not answer (no reply to ++ver)");
        row("nobody at the address", Kind::Network, "", 0, Before::NobodyListens, "cannot be reached (Connection refused)");
        row("a USB controller that is not there", Kind::Usb, "/dev/varnolt-no-such-tty", 0, Before::Nothing, "cannot be opened");
        row("a linux-gpib board", Kind::LinuxGpib, "", 0, Before::Nothing, "opened");
        row("a linux-gpib board closed at once", Kind::LinuxGpib, "", 0, Before::ClosedAtOnce, "");
        row("no such board", Kind::LinuxGpib, "", NoBoard, Before::Nothing, "GPIB board 0 is not there; check gpib.conf");
        row("no linux-gpib", Kind::LinuxGpib, "libvarnolt-no-gpib.so", 0, Before::Nothing, "linux-gpib is not installed");
        row("a library, but not linux-gpib", Kind::LinuxGpib, "libz.so.1", 0, Before::Nothing, "is not the linux-gpib library");
    }
    void openingSaysWhy()
    {
        QFETCH(Kind, kind);
        QFETCH(QString, where);
        QFETCH(int, setting);
        QFETCH(Before, before);
        QFETCH(QString, outcome);
        FarEnd far;
        FakeGpib fake;
        fake.script(kind == Kind::LinuxGpib ? setting : 0, 0);
        NetworkController controller(before != Before::Silent);
        quint16 port = controller.server.serverPort();
        if (before == Before::NobodyListens)
            controller.server.close();
        SerialTransport other(far.device, 115200);
        if (before == Before::Held || before == Before::OpenedAndClosed)
            other.open();
        if (before == Before::OpenedAndClosed)
            other.close();
        std::unique_ptr<Transport> transport;
        if (kind == Kind::Scripted) {
            auto scripted = std::make_unique<ScriptedTransport>();
            scripted->openFailure = where;
            transport = std::move(scripted);
        } else if (kind == Kind::Serial)
            transport = std::make_unique<SerialTransport>(where.isEmpty() ? far.device : where, setting);
        else if (kind == Kind::LinuxGpib)
            transport = std::make_unique<LinuxGpibTransport>(target(Controller::LinuxGpib), where.isEmpty() ? VARNOLT_FAKE_GPIB : where);
        else
            transport = std::make_unique<GpibControllerTransport>(kind == Kind::Network ? target(Controller::PlusPlusTcp, "127.0.0.1", port)
                                                                                        : target(Controller::PlusPlusSerial, where));
        QStringList said;
        connect(transport.get(), &Transport::opened, this, [&] { said << QStringLiteral("opened"); });
        connect(transport.get(), &Transport::failed, this, [&](const QString &reason) { said << reason; });
        transport->open();
        QVERIFY(said.isEmpty());
        if (before == Before::ClosedAtOnce)
            transport->close();
        QTRY_COMPARE(said.size(), outcome.isEmpty() ? 0 : 1);
        settle();
        QCOMPARE(said.size(), outcome.isEmpty() ? 0 : 1);
        QVERIFY2(said.value(0).contains(outcome), qPrintable(said.value(0)));
    }

    void whatTheDriverCannotTakeAtOnceFollows()
    {
        Line line;
        QByteArray sent(256 * 1024, '\0'); // far more than a tty holds
        for (int i = 0; i < sent.size(); ++i)
            sent[i] = char(i * 7);
        line.transport.write(sent.left(1000));
        line.transport.write(sent.mid(1000));
        QByteArray arrived;
        QTRY_VERIFY_WITH_TIMEOUT((arrived += line.far.take()).size() >= sent.size(), 10000);
        QCOMPARE(arrived, sent);
    }

    // What comes during a pause is taken in one piece after it, however it came; a resume or
    // a pause too short for a timer ends a pause at once.
    void pausesInReading_data()
    {
        QTest::addColumn<int>("pause");
        QTest::addColumn<int>("pieces"); // 30 ms apart, while the event loop runs
        QTest::addColumn<double>("next"); // 100 ms after the pause; -1: none
        QTest::newRow("pieces during a pause") << 400 << 4 << -1.0;
        QTest::newRow("a resume") << LongPauseMs << 1 << 0.0;
        QTest::newRow("a pause too short for a timer") << LongPauseMs << 1 << 1.5;
    }
    void pausesInReading()
    {
        QFETCH(int, pause);
        QFETCH(int, pieces);
        QFETCH(double, next);
        Line line;
        line.transport.pauseReading(pause);
        for (int piece = 0; piece < pieces; ++piece)
            line.later(piece * 30, [&] { line.far.send("0123456789"); });
        bool ended = next < 0;
        bool cameAfterTheEnd = false;
        connect(&line.transport, &Transport::received, this, [&] { cameAfterTheEnd = ended; });
        if (next >= 0)
            line.later(100, [&] {
                ended = true;
                line.transport.pauseReading(next);
            });
        QTRY_COMPARE_WITH_TIMEOUT(line.received.size(), 1, (next < 0 ? pause : 100) + PromptlyMs);
        QVERIFY(cameAfterTheEnd);
        QCOMPARE(line.received.at(0).at(0).toByteArray(), QByteArray("0123456789").repeated(pieces));
    }

    void aHangUpIsSeenWithOrWithoutAPause_data()
    {
        QTest::addColumn<double>("pause");
        QTest::newRow("while reading") << 0.0;
        QTest::newRow("after a pause") << 300.0;
    }
    void aHangUpIsSeenWithOrWithoutAPause()
    {
        QFETCH(double, pause);
        Line line;
        line.transport.pauseReading(pause);
        line.far.send("partial");
        line.far.hangUp();
        QTRY_COMPARE(line.failed.size(), 1);
        QCOMPARE(line.failed.at(0).at(0).toString(),
                 QStringLiteral("the serial port %1 went away; check the cable and the USB adapter").arg(line.far.device));
        line.transport.write("after"); // nothing more is said
        settle();
        QCOMPARE(line.failed.size(), 1);
    }

    void gpibTargets_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("target"); // controller, device, TCP port, board, address; or "- " and why not
        QTest::newRow("usb") << "/dev/ttyUSB0,6" << "0 /dev/ttyUSB0 1234 0 6";
        QTest::newRow("network") << "192.168.1.40:4000, 12" << "1 192.168.1.40 4000 0 12";
        QTest::newRow("network, default port") << "gpib-lan,0" << "1 gpib-lan 1234 0 0";
        QTest::newRow("linux-gpib") << "linux-gpib,30" << "2  1234 0 30";
        QTest::newRow("linux-gpib board") << "LINUX-GPIB:1,5" << "2  1234 1 5";
        QTest::newRow("no address") << "/dev/ttyUSB0" << "- no address after a comma";
        QTest::newRow("address too high") << "/dev/ttyUSB0,31" << "- the address must be 0 to 30";
        QTest::newRow("address not a number") << "host,six" << "- the address must be 0 to 30";
        QTest::newRow("bad tcp port") << "host:99999,6" << "- the TCP port must be 1 to 65535";
        QTest::newRow("bad board") << "linux-gpib:x,6" << "- the board must be a number";
        QTest::newRow("nothing before the comma") << ",6" << "- a host, a host:port or a device path is needed";
    }
    void gpibTargets()
    {
        QFETCH(QString, text);
        QFETCH(QString, target);
        QString error;
        const std::optional<GpibTarget> t = GpibTarget::parse(text, &error);
        const QString parsed = t ? QStringLiteral("%1 %2 %3 %4 %5").arg(int(t->controller)).arg(t->device).arg(t->tcpPort).arg(t->board).arg(t->address)
                                 : QStringLiteral("- ") + error;
        QVERIFY2(target.startsWith(QLatin1Char('-')) ? parsed.contains(target.mid(2)) : parsed == target, qPrintable(parsed));
    }

    // What a port name opens, as the Settings step and the headless tool's ports say it: an
    // adapter known by its by-id link (which lists no other device's links), the adapters
    // offered when the device is not there, a GPIB controller on an adapter, no map entry.
    // DIR stands for a folder with a stand-in device file and its by-id folder.
    void portDescriptions_data()
    {
        QTest::addColumn<QString>("map");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("description");
        const QString adapter = QStringLiteral("FTDI FT232R USB UART, serial A9XYZ");
        QTest::newRow("an adapter by its by-id name") << "COM1=DIR/by-id/usb-FTDI-if00" << "COM1"
                                                      << "COM1 opens DIR/by-id/usb-FTDI-if00 (DIR/ttyUSB0): " + adapter + ".";
        QTest::newRow("a device that is not there") << "COM2=DIR/ttyS1" << "com2"
                                                    << "COM2 opens DIR/ttyS1, which is not there. USB serial adapters here: "
                                                       "DIR/ttyUSB0 (" + adapter + "). TROVEX_PORTS maps the port to one, e.g. "
                                                       "COM2=DIR/ttyUSB0.";
        QTest::newRow("a GPIB controller on an adapter") << "GPIB0=DIR/ttyUSB0,6" << "GPIB0"
                                                         << "GPIB0 reaches the instrument at GPIB address 6 through the GPIB "
                                                            "controller on DIR/ttyUSB0: " + adapter + ".";
        QTest::newRow("a GPIB port not in the map") << "" << "GPIB0"
                                                    << "GPIB0 is not in the port map: TROVEX_PORTS names its GPIB controller and "
                                                       "the instrument's address, e.g. GPIB0=/dev/ttyUSB0,6.";
    }
    void portDescriptions()
    {
        QFETCH(QString, map);
        QFETCH(QString, name);
        QFETCH(QString, description);
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("by-id")));
        for (const char *device : {"ttyUSB0", "ttyUSB1"}) {
            QFile file(dir.filePath(QLatin1String(device)));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("ttyUSB0")), dir.filePath(QStringLiteral("by-id/usb-FTDI-if00"))));
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("ttyUSB1")), dir.filePath(QStringLiteral("by-id/usb-other-if00"))));
        SerialAdapter adapter{dir.filePath(QStringLiteral("ttyUSB0")), {}, QStringLiteral("FTDI"), QStringLiteral("FT232R USB UART"),
                              QStringLiteral("A9XYZ")};
        adapter.byIdNames = SerialAdapter::linksTo(adapter.device, dir.filePath(QStringLiteral("by-id")));
        QCOMPARE(adapter.byIdNames, QStringList{dir.filePath(QStringLiteral("by-id/usb-FTDI-if00"))});
        const PortMap ports(map.replace(QStringLiteral("DIR"), dir.path()));
        QCOMPARE(PortDescription::of(name, ports, {adapter}), description.replace(QStringLiteral("DIR"), dir.path()));
    }

    // Every byte value, the controller's own special ones and "++" at the start of the data
    // reach the instrument unchanged, however the line is cut up on its way.
    void dataSurvivesTheControllersEscaping()
    {
        QByteArray payload("++addr 3\r\n\x1b+");
        for (int i = 0; i < 256; ++i)
            payload.append(char(i));
        const QByteArray frame = Frame{7, Protocol::Program, payload}.encode();
        const QByteArray line = GpibControllerTransport::escaped(frame) + '\n';
        for (int piece : {1, 3, int(line.size())}) {
            GpibControllerEmulation controller(6);
            QSignalSpy toInstrument(&controller, &GpibControllerEmulation::toInstrument);
            controller.receive("++addr 6\n");
            for (qsizetype at = 0; at < line.size(); at += piece)
                controller.receive(line.mid(at, piece));
            QCOMPARE(toInstrument.size(), 1);
            QCOMPARE(toInstrument.at(0).at(0).toByteArray(), frame);
        }
    }

    // Requests and answers full of the bytes that the controller and the frames treat
    // specially, with the link's window full, reach the other end whole and once: no request
    // sent again.
    void gpibRequestsAndAnswers_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<GpibControllerEmulation::EndMark>("endMark");
        QTest::newRow("a USB controller") << Kind::Usb << GpibControllerEmulation::EndMark::OnRequest;
        QTest::newRow("a controller that cannot mark where a message ends") << Kind::Usb << GpibControllerEmulation::EndMark::Never;
        QTest::newRow("linux-gpib") << Kind::LinuxGpib << GpibControllerEmulation::EndMark::Never;
    }
    void gpibRequestsAndAnswers()
    {
        QFETCH(Kind, kind);
        QFETCH(GpibControllerEmulation::EndMark, endMark);
        constexpr int Requests = 60;
        FakeGpib fake;
        fake.script(0, 0);
        fake.answer(echoesOnTheBus);
        EchoingInstrument instrument(endMark);
        std::unique_ptr<Transport> transport;
        if (kind == Kind::LinuxGpib)
            transport = std::make_unique<LinuxGpibTransport>(target(Controller::LinuxGpib), QStringLiteral(VARNOLT_FAKE_GPIB));
        else
            transport = std::make_unique<GpibControllerTransport>(target(Controller::PlusPlusSerial, instrument.line.devicePath()));
        QSignalSpy opened(transport.get(), &Transport::opened);
        transport->open();
        QTRY_COMPARE(opened.size(), 1);
        Link link(*transport);
        QList<QByteArray> sent, answered;
        const auto next = [&] {
            while (sent.size() < Requests && link.hasRoom()) {
                sent << QByteArray("\n\r\x1b+\xc0\xdb\n++read eoi\n").repeated(sent.size() % 40 + 1);
                link.request(Protocol::Program, sent.last(), int(sent.last().size()));
            }
        };
        connect(&link, &Link::replied, this, [&](uint8_t, const QByteArray &payload) {
            answered << payload;
            next();
        });
        next();
        QTRY_COMPARE_WITH_TIMEOUT(answered.size(), Requests, 20000);
        QCOMPARE(answered, sent);
        QCOMPARE(link.retransmissions(), 0);
    }

    // The simulated line hands the instrument the host's bytes in order, also when the
    // instrument writes part-way through a piece it was handed (the emulated controller answers
    // a read in the middle of a line), however fast the line.
    void theSimulatedLineKeepsTheHostsOrder()
    {
        PtyPort line(PtyPort::Line::GpibController, std::numeric_limits<int>::max(), true);
        QString error;
        QVERIFY2(line.open(&error), qPrintable(error));
        const int host = ::open(qPrintable(line.devicePath()), O_RDWR | O_NOCTTY | O_NONBLOCK);
        QByteArray sent(4000, '\0');
        for (int i = 0; i < sent.size(); ++i)
            sent[i] = char(i * 7);
        QByteArray arrived;
        connect(&line, &PtyPort::received, this, [&](const QByteArray &bytes) {
            line.write("answer");
            arrived += bytes;
        });
        QCOMPARE(::write(host, sent.constData(), size_t(sent.size())), ssize_t(sent.size()));
        QTRY_COMPARE(arrived.size(), sent.size());
        QCOMPARE(arrived, sent);
        ::close(host);
    }

    // ibrd waits for the device's timeout while no instrument talks, and ibwrt fails at once
    // without a listener: neither on the program's thread, and the failure reaches the link
    // from the event loop with its cause.
    void linuxGpibNeverBlocksTheProgram()
    {
        FakeGpib fake;
        fake.script(0, 0);
        fake.callsOn(pthread_self());
        LinuxGpibTransport transport(target(Controller::LinuxGpib), QStringLiteral(VARNOLT_FAKE_GPIB));
        QSignalSpy opened(&transport, &Transport::opened);
        transport.open();
        QTRY_COMPARE(opened.size(), 1);
        Link link(transport);
        QSignalSpy failed(&link, &Link::failed);
        link.request(Protocol::Restart, {}, 2);
        QTRY_VERIFY(fake.reads() >= 1); // waiting for a talker
        fake.script(0, NoListener);     // the instrument goes: the resend finds no listener
        QTRY_COMPARE(failed.size(), 1);
        QCOMPARE(failed.at(0).at(1).toString(),
                 QStringLiteral("no instrument listens at GPIB address 6 on board 0; check the address and the GPIB cable"));
        transport.close(); // waits for the read on its way
        QCOMPARE(fake.callsOn(pthread_self()), 0);
    }
};

QTEST_GUILESS_MAIN(TransportsTest)
#include "tst_transports.moc"
