// The GPIB pieces: the port map's controller and address, the "++" controller's escaping
// as the emulated controller undoes it, its commands, and linux-gpib not being there.
#include "instrument/GpibControllerEmulation.h"
#include "link/Frame.h"
#include "link/GpibControllerTransport.h"
#include "link/GpibTarget.h"
#include "link/LinuxGpibTransport.h"
#include "link/Protocol.h"

#include <QSignalSpy>
#include <QtTest>

using Controller = GpibTarget::Controller;

class GpibTest : public QObject {
    Q_OBJECT
private slots:
    void targets_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("controller");
        QTest::addColumn<QString>("device");
        QTest::addColumn<int>("tcpPort");
        QTest::addColumn<int>("board");
        QTest::addColumn<int>("address");
        QTest::newRow("usb") << "/dev/ttyUSB0,6" << int(Controller::PlusPlusSerial) << "/dev/ttyUSB0" << 1234 << 0 << 6;
        QTest::newRow("network") << "192.168.1.40:4000, 12" << int(Controller::PlusPlusTcp) << "192.168.1.40" << 4000 << 0 << 12;
        QTest::newRow("network, default port") << "gpib-lan,0" << int(Controller::PlusPlusTcp) << "gpib-lan" << 1234 << 0 << 0;
        QTest::newRow("linux-gpib") << "linux-gpib,30" << int(Controller::LinuxGpib) << "" << 1234 << 0 << 30;
        QTest::newRow("linux-gpib board") << "LINUX-GPIB:1,5" << int(Controller::LinuxGpib) << "" << 1234 << 1 << 5;
    }
    void targets()
    {
        QFETCH(QString, text);
        QString error;
        const std::optional<GpibTarget> target = GpibTarget::parse(text, &error);
        QVERIFY2(target, qPrintable(error));
        QTEST(int(target->controller), "controller");
        QTEST(target->device, "device");
        QTEST(int(target->tcpPort), "tcpPort");
        QTEST(target->board, "board");
        QTEST(target->address, "address");
    }

    void badTargetsSayWhy_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("why");
        QTest::newRow("no address") << "/dev/ttyUSB0" << "no address after a comma";
        QTest::newRow("address too high") << "/dev/ttyUSB0,31" << "the address must be 0 to 30";
        QTest::newRow("address not a number") << "host,six" << "the address must be 0 to 30";
        QTest::newRow("bad tcp port") << "host:99999,6" << "the TCP port must be 1 to 65535";
        QTest::newRow("bad board") << "linux-gpib:x,6" << "the board must be a number";
        QTest::newRow("nothing before the comma") << ",6" << "a host, a host:port or a device path is needed";
    }
    void badTargetsSayWhy()
    {
        QFETCH(QString, text);
        QFETCH(QString, why);
        QString error;
        QVERIFY(!GpibTarget::parse(text, &error));
        QVERIFY2(error.contains(why), qPrintable(error));
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

    void theControllersCommands()
    {
        GpibControllerEmulation controller(6);
        QSignalSpy toHost(&controller, &GpibControllerEmulation::toHost);
        QSignalSpy toInstrument(&controller, &GpibControllerEmulation::toInstrument);
        controller.receive("++mode 1\r\n++ver\n++addr 5\n++addr\n");
        QCOMPARE(toHost.size(), 2);
        QVERIFY(toHost.at(0).at(0).toByteArray().endsWith("\r\n"));
        QCOMPARE(toHost.at(1).at(0).toByteArray(), QByteArray("5\r\n"));

        controller.receive("for nobody\n++read eoi\n"); // no listener, no talker at 5
        QCOMPARE(toInstrument.size(), 0);
        QCOMPARE(toHost.size(), 2);

        controller.receive("++addr 6\n++read eoi\n"); // a talker with nothing to say
        QCOMPARE(toHost.last().at(0).toByteArray(), QByteArray(2, char(Frame::End)));
        const QByteArray answer = Frame{1, Protocol::Reply, "ok"}.encode();
        controller.fromInstrument(answer);
        controller.fromInstrument(answer);
        controller.receive("++read eoi\n");
        QCOMPARE(toHost.last().at(0).toByteArray(), answer + answer); // everything it had, at once
        controller.receive("++read eoi\n");
        QCOMPARE(toHost.last().at(0).toByteArray(), QByteArray(2, char(Frame::End)));
    }

    void withoutLinuxGpibTheChannelSaysSo()
    {
        GpibTarget target;
        target.controller = Controller::LinuxGpib;
        target.address = 6;
        QString error;
        LinuxGpibTransport missing(target, QStringLiteral("libvarnolt-no-such-gpib.so"));
        QVERIFY(!missing.open(&error));
        QCOMPARE(error, QStringLiteral("linux-gpib is not installed (libvarnolt-no-such-gpib.so cannot be loaded); install it, "
                                       "or reach the instrument through a \"++\" controller in TROVEX_PORTS"));
        LinuxGpibTransport another(target, QStringLiteral("libz.so.1")); // a library, but not that one
        QVERIFY(!another.open(&error));
        QCOMPARE(error, QStringLiteral("libz.so.1 is not the linux-gpib library this program knows (a function is missing)"));
    }
};

QTEST_GUILESS_MAIN(GpibTest)
#include "tst_gpib.moc"
