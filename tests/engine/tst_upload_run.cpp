// A whole run against the scripted instrument: the exact requests and log lines of a
// successful run, the start and end of the run, transfer-only runs, init strings, time.
#include "tests/support/RunFixture.h"

#include <QFile>
#include <QtTest>

namespace {

const QString FullConfig = QStringLiteral(
    "[HOST]\r\nMAXPROGLEN=240\r\nPORTS=COM1,COM2,GPIB0\r\nUART=COM2\r\nBAUD=57600\r\nCONTINUE=NO\r\n"
    "TRANSFER=TP.BIN,0X20000,0X20100\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
    "MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=0X80000,0X100000,AM29LV800\r\nERASE=0X10000,0X10000\r\n"
    "[FILES]\r\nUPLOAD=0X0,0X1E0,CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X90000,TEXT_EN.BIN\r\n");

int checksumOf(const QByteArray &bytes)
{
    uint32_t sum = 0;
    for (char c : bytes)
        sum += static_cast<uint8_t>(c);
    return static_cast<int>(sum & 0xFF);
}

QString hexOf(int value)
{
    return QString::number(value, 16).toUpper();
}

} // namespace

class UploadRunTest : public QObject {
    Q_OBJECT
private slots:
    void successfulRunSendsEveryRequestInOrder()
    {
        RunFixture r(FullConfig);
        QCOMPARE(r.f->engine.QX_Error_GetLastError(), 0);
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            ScriptedAppLayer::Reply first = ScriptedAppLayer::response(161);
            first.manufacturerCode = 0x01;
            first.deviceCode = 0xA4;
            ScriptedAppLayer::Reply second = first;
            second.manufacturerCode = 0x89;
            second.deviceCode = 0xA2;
            layer.queueReply(first);
            layer.queueReply(second);
        };
        QVERIFY(r.f->engine.Upload());

        const QStringList expectedRequests = {
            "OpenChannel(clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 COM2:57600,E,8,1)",
            "UploadTransferProgram(3000 bytes,131072,131328)",
            "QueryManufacturerCode(0,2,22)",
            "QueryManufacturerCode(524288,2,24)",
            "ReadMemory(2,0,240)",
            "ReadMemory(2,240,240)",
            "ProgrammingVoltageOn()",
            "FlashDelete(2,22,65536,65536)",
            "ProgrammingVoltageOff()",
            "ProgrammingVoltageOn()",
            "ProgramBlock(65536,240,2,22,240 bytes)",
            "ProgramBlock(65776,240,2,22,240 bytes)",
            "ProgramBlock(66016,240,2,22,240 bytes)",
            "ProgramBlock(66256,240,2,22,240 bytes)",
            "ProgramBlock(66496,40,2,22,40 bytes)",
            "ProgrammingVoltageOff()",
            "RequestChecksum(2,65536,1000)",
            "ProgrammingVoltageOn()",
            "ProgramBlock(589824,240,2,24,240 bytes)",
            "ProgramBlock(590064,240,2,24,240 bytes)",
            "ProgrammingVoltageOff()",
            "RequestChecksum(2,589824,480)",
            "Restart()",
            "CloseChannel()",
            "Shutdown()",
        };
        QCOMPARE(r.requests(), expectedRequests);

        const QString mainSum = hexOf(checksumOf(TestPackage::pattern(1000)));
        const QString textSum = hexOf(checksumOf(TestPackage::pattern(480)));
        const QStringList expectedLog = {
            "UPLOAD FIRMWARE STARTED",
            "Transfer Program Read (TP.BIN)",
            "Transfer Program Running",
            "Manufacturer H1, Device HA4",
            "Manufacturer H89, Device HA2",
            "Download Flash Memories Started",
            "Read File = CAL.BIN",
            "Download Flash Memories Completed",
            "Erase Flash Memories Started",
            "Programming Voltage On",
            "FlashDelete Started",
            "FlashDelete OK",
            "Programming Voltage Off",
            "Erase Flash Memories Completed",
            "Program Flash Memories Started",
            "Program File = MAIN.BIN",
            "Programming Voltage On",
            "Programming Voltage Off",
            "Checksum( H2 , H10000 , H3E8 )",
            "Checksum, Target = H" + mainSum,
            "Checksum Matches, Host = H" + mainSum,
            "Block Count = 5",
            "Program File = TEXT_EN.BIN",
            "Programming Voltage On",
            "Programming Voltage Off",
            "Checksum( H2 , H90000 , H1E0 )",
            "Checksum, Target = H" + textSum,
            "Checksum Matches, Host = H" + textSum,
            "Block Count = 2",
            "Program Flash Memories Completed",
            "Instrument Restarted",
            "Close Communication Channel",
            "Shutdown Application Layer",
            "Shutdown Complete",
            "Firmware Upload Process completed in 0 Minutes 0 Seconds",
        };
        QCOMPARE(r.log(), expectedLog);
        QCOMPARE(r.f->engine.QX_Error_GetLastError(), 0);
        QCOMPARE(r.f->display.backNextEnabled, (QList<bool>{false, true}));
        QCOMPARE(r.f->display.nextPresses, 1);
        QVERIFY(r.f->engine.appLayer() == nullptr);

        // The transfer program went out whole, the images reached flash byte for byte.
        const auto transfer = r.f->calls->at(2);
        QCOMPARE(transfer.name, QStringLiteral("UploadTransferProgram"));
        QCOMPARE(transfer.args.at(0).toByteArray(), TestPackage::pattern(3000));
    }

    void readBackFileIsExactAndReplacesALongerOne()
    {
        RunFixture r(FullConfig);
        const QString cal = r.outPath(QStringLiteral("CAL.BIN"));
        QFile old(cal);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(5000, 'o'));
        old.close();
        r.f->prompt.answers = {true};
        QVERIFY(r.f->engine.Upload());
        QFile saved(cal);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QByteArray expected(480, '\0');
        for (int i = 0; i < 480; ++i)
            expected[i] = static_cast<char>(i & 0xFF);
        QCOMPARE(saved.readAll(), expected);
    }

    void progressBudgetAndBars()
    {
        RunFixture r(FullConfig);
        QVERIFY(r.f->engine.Upload());
        // 10 transfer + 2 x 10 identification + 2 read blocks, then the erase ends at
        // ProgressAfterErase and 7 program blocks follow.
        QCOMPARE(r.f->engine.ProgressCount, r.f->engine.ProgressAfterErase + 7);
        QVERIFY(!r.f->display.entireBar.isEmpty());
        QCOMPARE(r.f->display.entireBar.last().second, r.f->engine.ProgressTotal);
    }

    void initStrings_data()
    {
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("init");
        QTest::newRow("serial as written") << "com3" << "clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 com3:57600,E,8,1";
        QTest::newRow("blanks trimmed") << " COM1 " << "clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 COM1:57600,E,8,1";
        QTest::newRow("GPIB board is always 0") << "gpib1" << "clsid:C18F5D02-6E47-4A3B-8B91-2D7E4F6A9C03 GPIB0";
        QTest::newRow("anything else is the default") << "USB" << "clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 COM1:115200,E,8,1";
    }
    void initStrings()
    {
        QFETCH(QString, port);
        QFETCH(QString, init);
        RunFixture r(FullConfig);
        r.f->engine.setComPort(port);
        r.f->prepareLayer = [](ScriptedAppLayer &layer) { layer.setOpenErrorCode(1); };
        QVERIFY(!r.f->engine.Upload());
        QCOMPARE(r.requests(), QStringList{"OpenChannel(" + init + ")"});
    }

    void transferOnlyStopsAfterTheTransferProgram()
    {
        RunFixture r(FullConfig);
        r.f->engine.setTransferOnly(true);
        QVERIFY(r.f->engine.Upload());
        QCOMPARE(r.requests().size(), 4);
        QCOMPARE(r.log(), (QStringList{"UPLOAD FIRMWARE STARTED", "Transfer Program Read (TP.BIN)",
                                       "Close Communication Channel", "Shutdown Application Layer", "Shutdown Complete",
                                       "Firmware Upload Process completed in 0 Minutes 0 Seconds"}));
        QCOMPARE(r.f->display.nextPresses, 1);
    }

    void noMemoriesGoStraightToTheReadBack()
    {
        QString config = FullConfig;
        config.replace(QStringLiteral("MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=0X80000,0X100000,AM29LV800\r\n"), QString());
        config.replace(QStringLiteral("ERASE=0X10000,0X10000\r\n"), QString());
        config.replace(QStringLiteral("PROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X90000,TEXT_EN.BIN\r\n"), QString());
        RunFixture r(config);
        QVERIFY(r.f->engine.Upload());
        const QStringList log = r.log();
        QCOMPARE(log.at(2), QStringLiteral("Transfer Program Running"));
        QCOMPARE(log.at(3), QStringLiteral("Download Flash Memories Started"));
    }

    void continuingInstrumentIsNotRestarted()
    {
        QString config = FullConfig;
        config.remove(QStringLiteral("CONTINUE=NO\r\n"));
        RunFixture r(config);
        QVERIFY(r.f->engine.Upload());
        QVERIFY(!r.requests().contains(QStringLiteral("Restart()")));
        QVERIFY(!r.log().contains(QStringLiteral("Instrument Restarted")));
    }

    void elapsedTime_data()
    {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("end");
        QTest::addColumn<QString>("line");
        QTest::newRow("10.4 to 70.0") << 10.4 << 70.0 << "1 Minutes 0 Seconds";
        QTest::newRow("125 s") << 1000.0 << 1125.0 << "2 Minutes 5 Seconds";
        QTest::newRow("across midnight") << 86395.0 << 5.0 << "0 Minutes 10 Seconds";
        QTest::newRow("halves to even") << 10.5 << 20.5 << "0 Minutes 10 Seconds";
    }
    void elapsedTime()
    {
        QFETCH(double, start);
        QFETCH(double, end);
        QFETCH(QString, line);
        RunFixture r(FullConfig);
        r.startSecond = start;
        r.endSecond = end;
        r.f->prepareLayer = [](ScriptedAppLayer &layer) { layer.setOpenErrorCode(1); };
        r.f->engine.Upload();
        QCOMPARE(r.log().last(), QStringLiteral("Firmware Upload Process completed in ") + line);
    }

    void headlessRunReportsThroughSignals()
    {
        RunFixture r(FullConfig, /*wizard=*/false);
        QSignalSpy action(&r.f->engine, &QX_UploadProcess::ActionUpdate);
        QSignalSpy progress(&r.f->engine, &QX_UploadProcess::ProgressUpdate);
        QVERIFY(r.f->engine.Upload());
        // The summary comes first, then the log.
        QCOMPARE(action.at(0).at(0).toString(),
                 QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to COM2"));
        QCOMPARE(action.at(2).at(0).toString(), QStringLiteral("UPLOAD FIRMWARE STARTED"));
        QCOMPARE(progress.at(0).at(0).toString(), QStringLiteral("Upload Firmware"));
        QVERIFY(r.f->display.log.isEmpty());
        QCOMPARE(r.f->display.nextPresses, 0);
    }
};

QTEST_GUILESS_MAIN(UploadRunTest)
#include "tst_upload_run.moc"
