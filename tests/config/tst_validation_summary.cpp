// The checks before a run and the Settings step's summary, piece by piece.
#include "tests/support/LoadedPackage.h"

#include <QFile>
#include <QTemporaryDir>
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
    void serialSpeedMustDivide115200_data()
    {
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("baud");
        QTest::addColumn<bool>("valid");
        for (const char *rate : {"115200", "57600", "38400", "19200", "9600", "1200"})
            QTest::newRow(rate) << "COM1" << rate << true;
        QTest::newRow("14000") << "COM1" << "14000" << false;
        QTest::newRow("0") << "COM1" << "0" << false;
        QTest::newRow("negative divisor") << "com2" << "-9600" << true; // 115200 % -9600 == 0
        QTest::newRow("GPIB ignores the speed") << "GPIB0" << "14000" << true;
        QTest::newRow("GPIB with 0") << "GPIB0" << "0" << true;
    }
    void serialSpeedMustDivide115200()
    {
        QFETCH(QString, port);
        QFETCH(QString, baud);
        QFETCH(bool, valid);
        LoadedPackage l(ini(baud));
        QCOMPARE(l.code(), 0);
        l.f.engine.setComPort(port);
        QCOMPARE(l.f.engine.ValidateConfiguration(), valid);
        if (!valid)
            QCOMPARE(l.f.engine.ErrorHolder().GetLastErrorString().section(QStringLiteral("\r\n"), 1),
                     QStringLiteral("Invalid Communication Speed"));
    }

    void everyComplaintIsCollectedInOrder()
    {
        QTemporaryDir dir;
        const QString cal = dir.filePath(QStringLiteral("CAL.BIN"));
        QFile existing(cal);
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.close();
        LoadedPackage l(QStringLiteral("[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=14000\r\nTRANSFER=GONE.BIN,0,0\r\n"
                                       "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\nMEMORY=0,0X80000,AM29F999\r\n"
                                       "[FILES]\r\nUPLOAD=0,0X100,%1\r\nPROGRAM=0,NOWHERE.BIN\r\n")
                            .arg(cal));
        QCOMPARE(l.code(), 0);
        l.f.prompt.answers = {false};
        QVERIFY(!l.f.engine.ValidateConfiguration());
        l.f.engine.QX_Error_SetLastError(12); // as the run does
        QCOMPARE(l.f.engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Configuration failed Validation Checks"
                                "\r\nInvalid Communication Speed"
                                "\r\nFlash Memory Name Invalid AM29F999"
                                "\r\nTransfer Entry invalid File Not Found GONE.BIN"
                                "\r\nFilename Invalid ")
                     + cal + QStringLiteral("\r\nProgram Entry Invalid File Not Found NOWHERE.BIN"));
    }

    void aProgramOfAReadBackFileTakesItsLength()
    {
        QTemporaryDir dir;
        const QString cal = dir.filePath(QStringLiteral("cal.bin"));
        LoadedPackage l(ini(QStringLiteral("115200"), QString(),
                            QStringLiteral("[FILES]\r\nUPLOAD=0,0X100,%1\r\nPROGRAM=0X1000,%2\r\n").arg(cal, cal.toUpper())));
        QCOMPARE(l.code(), 0);
        QVERIFY(!l.f.engine.Programs[0].Validate());
        QVERIFY(l.f.engine.ValidateConfiguration());
        QCOMPARE(l.f.engine.Programs[0].Length(), 0x100);
        QCOMPARE(l.f.engine.Programs[0].EndAddress(), 0x1100);
    }

    void emptyRangesAndImagesAreRefused()
    {
        QTemporaryDir dir;
        LoadedPackage l(ini(QStringLiteral("115200"), QString(),
                            QStringLiteral("[FILES]\r\nUPLOAD=0,0,%1/A.BIN\r\nUPLOAD1=0,0XFFFFFFFF,%1/B.BIN\r\n"
                                           "PROGRAM=0,EMPTY.BIN\r\n").arg(dir.path())),
                        true, {{QStringLiteral("EMPTY.BIN"), QByteArray()}});
        QCOMPARE(l.code(), 0);
        QVERIFY(!l.f.engine.ValidateConfiguration());
        QCOMPARE(l.f.engine.ErrorHolder().GetLastErrorString(),
                 QStringLiteral("OK\r\nUpload Entry Invalid %1/A.BIN: the range to read back must be at least 1 byte long"
                                "\r\nUpload Entry Invalid %1/B.BIN: the range to read back must be at least 1 byte long"
                                "\r\nProgram Entry Invalid File Is Empty EMPTY.BIN").arg(dir.path()));
        QVERIFY(l.f.prompt.questions.isEmpty());
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("A.BIN")))); // nothing created for a refused range
    }

    void anEmptyTransferProgramIsRefused()
    {
        LoadedPackage l(ini().replace(QStringLiteral("TP.BIN"), QStringLiteral("TP0.BIN")), true,
                        {{QStringLiteral("TP0.BIN"), QByteArray()}});
        QVERIFY(!l.f.engine.ValidateConfiguration());
        QVERIFY(l.f.engine.ErrorHolder().GetLastErrorString().endsWith(QStringLiteral("Transfer Entry invalid File Is Empty TP0.BIN")));
    }

    void plainSummaryForASerialPort()
    {
        LoadedPackage l(ini());
        l.f.engine.QX_Error_SetLastError(6);
        l.f.engine.setComPort(QStringLiteral("COM2"));
        QCOMPARE(l.f.display.summary,
                 QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to COM2"
                                " and then switch on your instrument whilst pressing the number 5"));
        QCOMPARE(l.code(), 0);
    }

    void plainSummaryForGpibWithAndWithoutKey()
    {
        LoadedPackage l(ini(QStringLiteral("115200"), QStringLiteral("GPIB0=number 7\r\n")));
        l.f.engine.setComPort(QStringLiteral("GPIB0"));
        QCOMPARE(l.f.display.summary, QStringLiteral("Please connect your instrument using a GPIB Cable"
                                                     " and then switch on your instrument whilst pressing the number 7"));
        l.f.engine.QX_Error_SetLastError(9);
        l.f.engine.DisplayConfiguration();
        QCOMPARE(l.code(), 9); // a per-port key leaves the code alone

        LoadedPackage bare(ini());
        bare.f.engine.setComPort(QStringLiteral("GPIB0"));
        QCOMPARE(bare.f.display.summary, QStringLiteral("Please connect your instrument using a GPIB Cable"
                                                        " and then switch on your instrument whilst pressing the number 6"));
    }

    void advancedSummaryListsEverySetting()
    {
        LoadedPackage l(ini(QStringLiteral("115200"), QStringLiteral("CONTINUE=NO\r\nFIRMWARE_LANGUAGE=ENGLISH\r\n"),
                            QStringLiteral("MEMORY=0,0X80000,AM29F040\r\nMEMORY1=0XFFF00000,0X100000,I28F016\r\n"
                                           "ERASE=0X40000,0X40000\r\n[FILES]\r\nUPLOAD=0,0X10000,CAL.BIN\r\n"
                                           "PROGRAM=0X10000,MAIN.BIN\r\n")));
        l.f.display.advanced = true;
        l.f.engine.DisplayConfiguration();
        QCOMPARE(l.f.display.summary,
                 QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to COM1"
                                " and then switch on your instrument whilst pressing the number 5"
                                " "
                                "Communications Channel = COM1"
                                "At BAUD rate = 115200"
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

    void advancedGpibHasNoBaudPiece()
    {
        LoadedPackage l(ini());
        l.f.display.advanced = true;
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
        const QByteArray text = TestPackage::pattern(12345).replace('\0', 'x');
        LoadedPackage l(ini(), true, {{QStringLiteral("Readme.txt"), text}});
        QVERIFY(l.f.engine.DisplayReadMe());
        QCOMPARE(l.f.display.readme.toLatin1(), text);

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
