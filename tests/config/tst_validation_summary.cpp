// The checks before a run and the Settings step's summary, piece by piece.
#include "tests/support/LoadedPackage.h"
#include "tests/support/TemporaryWorkingFolder.h"

#include <QFile>
#include <QtTest>

namespace {
const QString Required = QStringLiteral("[HOST]\r\nPORTS=COM1,COM2,GPIB0\r\nUART=COM1\r\nBAUD=%1\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
                                        "%2[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n%3");
QString ini(const QString &baud = QStringLiteral("115200"), const QString &host = QString(), const QString &rest = QString())
{
    return Required.arg(baud, host, rest);
}
} // namespace

class ValidationSummaryTest : public QObject {
    Q_OBJECT
private slots:
    void everyComplaintIsCollectedInOrder_data()
    {
        QTest::addColumn<QString>("ini"); // the working folder holds an existing CAL.BIN
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("complaints"); // after the message of code 0
        for (const char *rate : {"115200", "57600", "38400", "19200", "9600", "1200"})
            QTest::addRow("serial at %s", rate) << ini(QLatin1String(rate)) << "COM1" << "";
        QTest::newRow("serial at 14000") << ini(QStringLiteral("14000")) << "COM1" << "\r\nInvalid Communication Speed";
        QTest::newRow("serial at 0") << ini(QStringLiteral("0")) << "COM1" << "\r\nInvalid Communication Speed";
        QTest::newRow("negative divisor") << ini(QStringLiteral("-9600")) << "com2" << ""; // 115200 % -9600 == 0
        QTest::newRow("GPIB ignores the speed") << ini(QStringLiteral("14000")) << "GPIB0" << "";
        QTest::newRow("GPIB with 0") << ini(QStringLiteral("0")) << "GPIB0" << "";
        QTest::newRow("every kind")
            << "[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=14000\r\nTRANSFER=GONE.BIN,0,0\r\n[TARGET]\r\nPROCESSOR=I80X86\r\n"
               "ARCHITECTURE=B16\r\nMEMORY=0,0X80000,AM29F999\r\n[FILES]\r\nUPLOAD=0,0X100,CAL.BIN\r\nPROGRAM=0,NOWHERE.BIN\r\n"
            << "COM1"
            << "\r\nInvalid Communication Speed\r\nFlash Memory Name Invalid AM29F999\r\nTransfer Entry invalid File Not Found "
               "GONE.BIN\r\nFilename Invalid CAL.BIN\r\nProgram Entry Invalid File Not Found NOWHERE.BIN";
        QTest::newRow("empty ranges and images")
            << ini(QStringLiteral("115200"), QString(),
                   QStringLiteral("[FILES]\r\nUPLOAD=0,0,A.BIN\r\nUPLOAD1=0,0XFFFFFFFF,B.BIN\r\nPROGRAM=0,EMPTY.BIN\r\n"))
            << "COM1"
            << "\r\nUpload Entry Invalid A.BIN: the range to read back must be at least 1 byte long"
               "\r\nUpload Entry Invalid B.BIN: the range to read back must be at least 1 byte long"
               "\r\nProgram Entry Invalid File Is Empty EMPTY.BIN";
    }
    void everyComplaintIsCollectedInOrder()
    {
        QFETCH(QString, ini);
        QFETCH(QString, port);
        QFETCH(QString, complaints);
        TemporaryWorkingFolder folder;
        QFile existing(QStringLiteral("CAL.BIN"));
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.close();
        LoadedPackage l(ini, true, {{QStringLiteral("EMPTY.BIN"), QByteArray()}});
        QCOMPARE(l.code(), 0);
        l.f.engine.setComPort(port);
        l.f.prompt.answers = {false}; // keep an existing read-back file
        QCOMPARE(l.f.engine.ValidateConfiguration(), complaints.isEmpty());
        if (!complaints.isEmpty()) // a passed check leaves the text alone
            QCOMPARE(l.f.engine.ErrorHolder().GetLastErrorString(), QStringLiteral("OK") + complaints);
    }

    void aProgramOfAReadBackFileTakesItsLength()
    {
        TemporaryWorkingFolder folder;
        LoadedPackage l(ini(QStringLiteral("115200"), QString(),
                            QStringLiteral("[FILES]\r\nUPLOAD=0,0X100,sub/cal.bin\r\nPROGRAM=0X1000,SUB/CAL.BIN\r\n")));
        QVERIFY(QDir().mkdir(QStringLiteral("sub")));
        QCOMPARE(l.code(), 0);
        QVERIFY(!l.f.engine.Programs[0].Validate());
        QVERIFY(l.f.engine.ValidateConfiguration());
        QCOMPARE(l.f.engine.Programs[0].Length(), 0x100);
        QCOMPARE(l.f.engine.Programs[0].EndAddress(), 0x1100);
    }

    void connectionInstruction_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("port");
        QTest::addColumn<int>("codeBefore");
        QTest::addColumn<QString>("instruction");
        QTest::addColumn<int>("codeAfter"); // a port without its key clears the code
        QTest::newRow("serial") << "" << "COM2" << 6
                                << "using a Serial Cable (null modem) to COM2 and then switch on your instrument whilst pressing the number 5"
                                << 0;
        QTest::newRow("GPIB with its key") << "GPIB0=number 7\r\n" << "GPIB0" << 9
                                           << "using a GPIB Cable and then switch on your instrument whilst pressing the number 7"
                                           << 9;
        QTest::newRow("GPIB without a key") << "" << "GPIB0" << 9
                                            << "using a GPIB Cable and then switch on your instrument whilst pressing the number 6"
                                            << 0;
    }
    void connectionInstruction()
    {
        QFETCH(QString, host);
        QFETCH(QString, port);
        QFETCH(int, codeBefore);
        QFETCH(QString, instruction);
        QFETCH(int, codeAfter);
        LoadedPackage l(ini(QStringLiteral("115200"), host));
        l.f.engine.setComPort(port);
        l.f.engine.QX_Error_SetLastError(codeBefore);
        l.f.engine.DisplayConfiguration();
        QCOMPARE(l.f.display.summary, QStringLiteral("Please connect your instrument ") + instruction);
        QCOMPARE(l.code(), codeAfter);
    }

    void advancedSummaryListsEverySetting()
    {
        LoadedPackage l(ini(QStringLiteral("115200"), QStringLiteral("CONTINUE=NO\r\nFIRMWARE_LANGUAGE=ENGLISH\r\n"),
                            QStringLiteral("MEMORY=0,0X80000,AM29F040\r\nMEMORY1=0XFFF00000,0X100000,I28F016\r\n"
                                           "ERASE=0X40000,0X40000\r\n[FILES]\r\nUPLOAD=0,0X10000,CAL.BIN\r\n"
                                           "PROGRAM=0X10000,MAIN.BIN\r\n")));
        l.f.display.advanced = true;
        l.f.engine.setHighestLineRate(921600);
        l.f.engine.DisplayConfiguration();
        QCOMPARE(l.f.display.summary,
                 QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to COM1"
                                " and then switch on your instrument whilst pressing the number 5"
                                " "
                                "Communications Channel = COM1"
                                "At BAUD rate = 115200"
                                "Faster BAUD rate tried = up to 921600"
                                "Instrument Processor = I80X86"
                                "Instrument Architecture = B16 (2)"
                                "Restart Instrument"
                                "Firmware Language = ENGLISH"
                                "Transfer Program = TP.BIN"
                                "Flash Memory=AM29F040 (16) 0~ H80000: H80000"
                                "Flash Memory=I28F016 (17) FFF00000~ H0: H100000"
                                "Erase=H40000~80000:40000"
                                "Download=CAL.BIN  0~10000:10000"
                                "Program=MAIN.BIN  10000~103E8:3E8"));
    }

    void advancedGpibHasNoRatePieces()
    {
        LoadedPackage l(ini());
        l.f.display.advanced = true;
        l.f.engine.setHighestLineRate(921600); // a GPIB controller keeps its own rate
        l.f.engine.setComPort(QStringLiteral("GPIB0"));
        QVERIFY(l.f.display.summary.contains(QStringLiteral("Communications Channel = GPIB0Instrument Processor")));
        QVERIFY(!l.f.display.summary.contains(QStringLiteral("BAUD")));
        QVERIFY(!l.f.display.summary.contains(QStringLiteral("Restart Instrument")));
    }

    void headlessSummaryHasOnlyTheConnectionPieces()
    {
        LoadedPackage l(ini(), /*wizard=*/false);
        QSignalSpy action(&l.f.engine, &QX_UploadProcess::ActionUpdate);
        l.f.engine.DisplayConfiguration();
        QCOMPARE(action.size(), 2);
        QCOMPARE(action.at(1).at(0).toString(),
                 QStringLiteral(" and then switch on your instrument whilst pressing the number 5"));
    }

    void readMeIsReadWholeOrSkipped()
    {
        const QByteArray text = QByteArray("Read me first.\r\n").repeated(800);
        LoadedPackage l(ini(), true, {{QStringLiteral("Readme.txt"), text}});
        QVERIFY(l.f.engine.DisplayReadMe());
        QCOMPARE(l.f.display.readme, QString::fromLatin1(text));

        LoadedPackage none(ini(), true, {{QStringLiteral("readme.txt"), "lower case is another member"}});
        none.f.display.readme = QStringLiteral("old");
        QVERIFY(!none.f.engine.DisplayReadMe());
        QCOMPARE(none.f.display.readme, QString());

        LoadedPackage empty(ini(), true, {{QStringLiteral("Readme.txt"), QByteArray()}});
        QVERIFY(empty.f.engine.DisplayReadMe());
        QCOMPARE(empty.f.display.readme, QString());
    }
};

QTEST_GUILESS_MAIN(ValidationSummaryTest)
#include "tst_validation_summary.moc"
