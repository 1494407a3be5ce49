// Loading a package's configuration file through the engine: every key with its default,
// limit and error, the numbered lists, the program list per language, the progress budget,
// the selectors, and the temporary copy.
#include "tests/support/EngineFixture.h"
#include "tests/support/LoadedPackage.h"
#include "tests/support/TestPackage.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

namespace {

const QString Required = QStringLiteral("[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
                                        "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n");

// The package example of the configuration format, with images of known sizes.
const QString Example = QStringLiteral(
    "[HOST]\r\n"
    "MAXPROGLEN=240\r\n"
    "PORTS=COM1,COM2,GPIB0\r\n"
    "UART=COM1\r\n"
    "GPIB0=number 6\r\n"
    "BAUD=115200\r\n"
    "CONTINUE=NO\r\n"
    "TRANSFER=TP.BIN,0X20000,0X20000\r\n"
    "FIRMWARE_LANGUAGES=ENGLISH,GERMAN\r\n"
    "FIRMWARE_LANGUAGE=ENGLISH\r\n"
    "[TARGET]\r\n"
    "PROCESSOR=I80X86\r\n"
    "ARCHITECTURE=B16\r\n"
    "MEMORY=0X0,0X80000,AM29F040 ; boot and main flash\r\n"
    "ERASE=0X10000,0X70000\r\n"
    "[FILES]\r\n"
    "UPLOAD=0X0,0X10000,CAL.BIN\r\n"
    "PROGRAM=0X10000,MAIN.BIN\r\n"
    "[ENGLISH]\r\n"
    "PROGRAM1=0X60000,TEXT_EN.BIN\r\n"
    "[GERMAN]\r\n"
    "PROGRAM1=0X60000,TEXT_DE.BIN\r\n");

QString withRequired(const QString &host, const QString &rest = QString())
{
    QString ini = Required;
    ini.insert(ini.indexOf(QStringLiteral("[TARGET]")), host);
    return ini + rest;
}

} // namespace

class ConfigurationLoaderTest : public QObject {
    Q_OBJECT
private slots:
    void exampleFileGivesEveryField()
    {
        LoadedPackage l(Example);
        QX_UploadProcess &e = l.f.engine;
        QCOMPARE(l.code(), 0);
        QVERIFY(!e.ConfigInvalid);
        QCOMPARE(e.MaxProgLen, 240);
        QCOMPARE(e.PortList, QStringLiteral("COM1,COM2,GPIB0"));
        QCOMPARE(e.ComPort, QStringLiteral("COM1"));
        QCOMPARE(e.PortKeyValue, QString());
        QCOMPARE(e.BaudRate, 115200);
        QCOMPARE(e.ProcessorIndex, 0);
        QCOMPARE(e.ArchitectureIndex, 2);
        QVERIFY(!e.ContinueFlag);
        QVERIFY(e.RestartInstrument());
        QCOMPARE(e.TransferProgram.Length(), 3000);
        QCOMPARE(e.Memories.size(), size_t(1));
        QCOMPARE(e.Memories[0].FlashnameIndex(), 22); // the inline comment is not part of the name
        QCOMPARE(e.Erases.size(), size_t(1));
        QCOMPARE(e.Downloads.size(), size_t(1));
        QCOMPARE(e.Downloads[0].Filename(), QStringLiteral("CAL.BIN"));
        QCOMPARE(l.programFiles(), (QStringList{"MAIN.BIN", "TEXT_EN.BIN"}));
        QCOMPARE(e.FirmwareLanguages, QStringLiteral("ENGLISH,GERMAN"));
        QCOMPARE(e.FirmwareLanguage, QStringLiteral("ENGLISH"));

        // 10 start + 10 transfer + 10 memory = 30; + 0x70000 / 4000 = 144.688 -> 145;
        // + 0x10000 / 240 = 418.07 -> 418; + 1000 / 240 -> 422; + 480 / 240 -> 424.
        QCOMPARE(e.ProgressAfterErase, 145);
        QCOMPARE(e.ProgressAfterDownloads, 418);
        QCOMPARE(e.ProgressTotal, 424);

        QCOMPARE(l.f.display.ports, (QStringList{"COM1", "COM2", "GPIB0"}));
        QCOMPARE(l.f.display.portText, QStringLiteral("COM1"));
        QCOMPARE(l.f.display.languages, (QStringList{"ENGLISH", "GERMAN"}));
        QCOMPARE(l.f.display.languageText, QStringLiteral("ENGLISH"));
    }

    void anotherLanguageRebuildsTheProgramsAndBudget()
    {
        LoadedPackage l(Example);
        l.f.engine.setFirmwareLanguage(QStringLiteral(" german "));
        QCOMPARE(l.f.engine.FirmwareLanguage, QStringLiteral("GERMAN"));
        QCOMPARE(l.programFiles(), (QStringList{"MAIN.BIN", "TEXT_DE.BIN"}));
        QCOMPARE(l.f.engine.ProgressTotal, 418 + 4 + 3); // 1000/240 -> 422.17 -> 422; 720/240 = 3
    }

    void anotherPortReadsItsKey()
    {
        LoadedPackage l(Example);
        l.f.engine.setComPort(QStringLiteral("GPIB0"));
        QCOMPARE(l.f.engine.PortKeyValue, QStringLiteral("number 6"));
        l.f.engine.setComPort(QStringLiteral("COM2"));
        QCOMPARE(l.f.engine.PortKeyValue, QString());
        QCOMPARE(l.code(), 0);
    }

    void requiredKeysAloneGiveTheDefaults()
    {
        LoadedPackage l(Required);
        QX_UploadProcess &e = l.f.engine;
        QCOMPARE(l.code(), 0);
        QCOMPARE(e.MaxProgLen, 240);
        QVERIFY(e.ContinueFlag);
        QVERIFY(e.Memories.empty() && e.Erases.empty() && e.Downloads.empty() && e.Programs.empty());
        QCOMPARE(e.FirmwareLanguages, QStringLiteral("None"));
        QCOMPARE(e.FirmwareLanguage, QStringLiteral("None"));
        QCOMPARE(e.ProgressTotal, 20);
        QCOMPARE(l.f.display.languages, QStringList{"NONE"});
        QCOMPARE(l.f.display.languageText, QStringLiteral("None"));
    }

    void maxProgLen_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("5000 is limited") << "5000" << 4000;
        QTest::newRow("4000") << "4000" << 4000;
        QTest::newRow("100") << "100" << 100;
        QTest::newRow("NA is the default") << "NA" << 240;
        QTest::newRow("leading number") << "512 bytes" << 512;
        QTest::newRow("hexadecimal") << "&h100" << 256;
        QTest::newRow("half to even down") << "240.5" << 240;
        QTest::newRow("half to even up") << "241.5" << 242;
        QTest::newRow("huge") << "1E30" << 4000;
    }
    void maxProgLen()
    {
        QFETCH(QString, value);
        QFETCH(int, expected);
        LoadedPackage l(withRequired(QStringLiteral("MAXPROGLEN=") + value + QStringLiteral("\r\n")));
        QCOMPARE(l.code(), 0);
        QCOMPARE(l.f.engine.MaxProgLen, expected);
    }

    void maxProgLenOfZeroOrBelowIsRefused_data()
    {
        QTest::addColumn<QString>("value");
        QTest::newRow("zero") << "0";
        QTest::newRow("negative") << "-5";
        QTest::newRow("no number") << "abc";
        QTest::newRow("rounds to zero") << "0.4";
        QTest::newRow("huge negative") << "-1E30";
    }
    void maxProgLenOfZeroOrBelowIsRefused()
    {
        QFETCH(QString, value);
        LoadedPackage l(withRequired(QStringLiteral("MAXPROGLEN=") + value + QStringLiteral("\r\n")));
        QCOMPARE(l.code(), 5);
        QCOMPARE(l.message(), QStringLiteral("Configuration File Invalid\r\n Section:HOST Key:MAXPROGLEN Value:") + value
                                  + QStringLiteral(" (the block size must be at least 1 byte)"));
        QVERIFY(l.f.engine.ConfigInvalid);
    }

    void portsAreUpperCasedAndTrimmed()
    {
        QString ini = Required;
        ini.replace(QStringLiteral("PORTS=COM1"), QStringLiteral("PORTS=com1 , GPIB0"));
        LoadedPackage l(ini);
        QCOMPARE(l.f.display.ports, (QStringList{"COM1", "GPIB0"}));
    }

    void continueValues_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("continues");
        QTest::newRow("no") << "CONTINUE=no\r\n" << false;
        QTest::newRow("NO with blanks") << "CONTINUE=  NO  \r\n" << false;
        QTest::newRow("YES") << "CONTINUE=YES\r\n" << true;
        QTest::newRow("absent") << "" << true;
        QTest::newRow("NA") << "CONTINUE=NA\r\n" << true;
    }
    void continueValues()
    {
        QFETCH(QString, line);
        QFETCH(bool, continues);
        LoadedPackage l(withRequired(line));
        QCOMPARE(l.code(), 0);
        QCOMPARE(l.f.engine.ContinueFlag, continues);
    }

    void failuresEndTheLoad_data()
    {
        QTest::addColumn<QString>("ini");
        QTest::addColumn<QString>("message");
        QString badArch = Required;
        badArch.replace(QStringLiteral("ARCHITECTURE=B16"), QStringLiteral("ARCHITECTURE=b4"));
        QTest::newRow("architecture") << badArch << "Architecture Invalid B4";
        QString badProc = Required;
        badProc.replace(QStringLiteral("PROCESSOR=I80X86"), QStringLiteral("PROCESSOR=Z80"));
        QTest::newRow("processor") << badProc << "Processor Name Invalid Z80";
        QString badBaud = Required;
        badBaud.replace(QStringLiteral("BAUD=115200"), QStringLiteral("BAUD=fast"));
        // The text is left as it was: here the kept text of the missing per-port key.
        QTest::newRow("baud is no number") << badBaud
                                           << "Configuration File Invalid\r\n File:{TEMP}\r\n Section:\r\nHOST Key:COM1";
        QString shortTransfer = Required;
        shortTransfer.replace(QStringLiteral("TRANSFER=TP.BIN,0X20000,0X20000"), QStringLiteral("TRANSFER=NOPE.BIN,0X20000"));
        QTest::newRow("transfer entry") << shortTransfer
                                        << "Configuration File InvalidTransfer Entry invalid File Not Found NOPE.BIN";
        QTest::newRow("memory entry") << Required + "MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=\r\n"
                                      << "Mermory Entry Inalid\r\nNA";
        QTest::newRow("memory value only a comment") << Required + "MEMORY=;nothing\r\n" << "Mermory Entry Inalid\r\n";
        QTest::newRow("erase entry") << Required + "ERASE=zz\r\n" << "Erase Entry Invalid\r\nzz";
        QTest::newRow("upload entry") << Required + "[FILES]\r\nUPLOAD=0,0X100\r\n" << "Upload Entry Invalid\r\n0,0X100";
        QTest::newRow("program entry") << Required + "[FILES]\r\nPROGRAM=MAIN.BIN\r\n"
                                       << "Program Entry Invalid\r\nMAIN.BIN";
    }
    void failuresEndTheLoad()
    {
        QFETCH(QString, ini);
        QFETCH(QString, message);
        LoadedPackage l(ini);
        QCOMPARE(l.message(), message.replace(QStringLiteral("{TEMP}"), l.f.engine.ConfigTempFile));
        QVERIFY(l.f.engine.ConfigInvalid);
    }

    void aMissingRequiredKeyNamesFileSectionAndKey()
    {
        QString ini = Required;
        ini.remove(QStringLiteral("PORTS=COM1\r\n"));
        LoadedPackage l(ini);
        QCOMPARE(l.code(), 6);
        QCOMPARE(l.message(), QStringLiteral("Configuration File Key Not Found\r\n File:") + l.f.engine.ConfigTempFile
                                  + QStringLiteral("\r\n Section:\r\nHOST Key:PORTS"));
        QVERIFY(l.f.engine.ComPort.isEmpty()); // the keys after it are not read
    }

    void aPackageWithoutConfigurationOrNotAPackage()
    {
        TestPackage package;
        EngineFixture f;
        f.engine.setPackage(package.member(QStringLiteral("OTHER.TXT"), "x").write());
        f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("Filename InvalidConfiguration file not found"));

        QTemporaryDir dir;
        QFile junk(dir.filePath(QStringLiteral("junk.KDPKG")));
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write(TestPackage::pattern(4096));
        junk.close();
        f.engine.setPackage(Package(junk.fileName()));
        f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
        QCOMPARE(f.engine.QX_Error_GetLastError(), 1);

        TestPackage damaged;
        damaged.config(QString(3000, QLatin1Char(';'))).write();
        QFile archive(damaged.path());
        QVERIFY(archive.open(QIODevice::ReadWrite));
        QByteArray bytes = archive.readAll();
        bytes[bytes.indexOf("KDCONFIG.INI") + 12 + 5] ^= 0x5A; // inside the deflated data
        archive.seek(0);
        archive.write(bytes);
        archive.close();
        f.engine.setPackage(Package(damaged.path()));
        f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("Filename InvalidConfiguration file not readable"));
    }

    void numberedListsEndAtTheFirstGap()
    {
        LoadedPackage l(Required + "MEMORY=0,0X1000,AM29F010\r\nMEMORY1=0X1000,0X1000,AM29F010\r\n"
                            "MEMORY3=0X3000,0X1000,AM29F010\r\n");
        QCOMPARE(l.code(), 0);
        QCOMPARE(l.f.engine.Memories.size(), size_t(2));

        LoadedPackage startsAtOne(Required + "MEMORY1=0,0X1000,AM29F010\r\n");
        QVERIFY(startsAtOne.f.engine.Memories.empty());

        LoadedPackage naEnds(Required + "MEMORY=0,0X1000,AM29F010\r\nMEMORY1=NA\r\nMEMORY2=0,1,AM29F010\r\n");
        QCOMPARE(naEnds.code(), 0);
        QCOMPARE(naEnds.f.engine.Memories.size(), size_t(1));
    }

    void eraseBudgetRoundsHalvesToEven_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("total");
        QTest::newRow("6000 -> 21.5 -> 22") << 6000 << 22;
        QTest::newRow("2000 -> 20.5 -> 20") << 2000 << 20;
        QTest::newRow("10000 -> 22.5 -> 22") << 10000 << 22;
    }
    void eraseBudgetRoundsHalvesToEven()
    {
        QFETCH(int, length);
        QFETCH(int, total);
        LoadedPackage l(Required + QStringLiteral("ERASE=0,%1\r\n").arg(length));
        QCOMPARE(l.f.engine.ProgressTotal, total);
        QCOMPARE(l.f.engine.ProgressAfterErase, total);
    }

    void languageProgramsContinueTheNumbering()
    {
        const QString host = QStringLiteral("FIRMWARE_LANGUAGE=ENGLISH\r\n");
        LoadedPackage three(withRequired(host, "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=0,TEXT_EN.BIN\r\n"
                                        "[ENGLISH]\r\nPROGRAM2=0,TEXT_DE.BIN\r\n"));
        QCOMPARE(three.programFiles(), (QStringList{"MAIN.BIN", "TEXT_EN.BIN", "TEXT_DE.BIN"}));

        LoadedPackage restart(withRequired(host, "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=0,TEXT_EN.BIN\r\n"
                                          "[ENGLISH]\r\nPROGRAM=0,TEXT_DE.BIN\r\n"));
        QCOMPARE(restart.programFiles(), (QStringList{"MAIN.BIN", "TEXT_EN.BIN"}));

        LoadedPackage languageOnly(withRequired(host, "[ENGLISH]\r\nPROGRAM=0,TEXT_EN.BIN\r\nPROGRAM1=0,MAIN.BIN\r\n"));
        QCOMPARE(languageOnly.programFiles(), (QStringList{"TEXT_EN.BIN", "MAIN.BIN"}));
    }

    void languageSetWhileInvalidOnlyStoresTheName()
    {
        QString ini = Example;
        ini.replace(QStringLiteral("ARCHITECTURE=B16"), QStringLiteral("ARCHITECTURE=B4"));
        LoadedPackage l(ini);
        const QString summaryBefore = l.f.display.summary;
        l.f.engine.setFirmwareLanguage(QStringLiteral("german"));
        QCOMPARE(l.f.engine.FirmwareLanguage, QStringLiteral("GERMAN"));
        QVERIFY(l.f.engine.Programs.empty());
        QCOMPARE(l.f.display.summary, summaryBefore);
        QVERIFY(l.f.prompt.questions.isEmpty());
    }

    void aFailedLanguageRebuildSaysSo()
    {
        LoadedPackage l(withRequired("FIRMWARE_LANGUAGE=ENGLISH\r\n", "[GERMAN]\r\nPROGRAM=NOTANUMBER\r\n"));
        QCOMPARE(l.code(), 0);
        l.f.engine.setFirmwareLanguage(QStringLiteral("GERMAN"));
        QCOMPARE(l.f.prompt.questions, QStringList{"Varnolt|error in language selection"});
        // The summary that follows clears the code (no per-port key); the rebuild's text stays.
        QCOMPARE(l.f.engine.ErrorHolder().GetLastErrorString(), QStringLiteral("OK\r\nNOTANUMBER"));
    }

    void valuesAreCutAt149Characters()
    {
        const QString longName = QString(200, QLatin1Char('X'));
        LoadedPackage l(withRequired(QStringLiteral("FIRMWARE_LANGUAGE=") + longName + QStringLiteral("\r\n")));
        QCOMPARE(l.f.engine.FirmwareLanguage, QString(149, QLatin1Char('X')));
    }

    void onlyTheFirst5000BytesAreRead()
    {
        const QString tail = QStringLiteral("[ENGLISH]\r\nPROGRAM=0,MAIN.BIN\r\n");
        const QString host = QStringLiteral("FIRMWARE_LANGUAGE=ENGLISH\r\n");
        LoadedPackage within(withRequired(host, QStringLiteral("; ") + QString(4000, QLatin1Char('-')) + QStringLiteral("\r\n") + tail));
        QCOMPARE(within.programFiles(), QStringList{"MAIN.BIN"});
        LoadedPackage beyond(withRequired(host, QStringLiteral("; ") + QString(5000, QLatin1Char('-')) + QStringLiteral("\r\n") + tail));
        QCOMPARE(beyond.code(), 0);
        QVERIFY(beyond.programFiles().isEmpty()); // keys beyond the first 5000 bytes count as missing
    }

    void theTemporaryCopyIsUniqueAndRemovedWithTheEngine()
    {
        QString first, second;
        {
            LoadedPackage l(Required);
            first = l.f.engine.ConfigTempFile;
            l.f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
            second = l.f.engine.ConfigTempFile;
            QVERIFY(QFileInfo(first).fileName().startsWith(QStringLiteral("~KD")));
            QVERIFY(first != second);
            QVERIFY(QFileInfo::exists(first) && QFileInfo::exists(second));
        }
        QVERIFY(!QFileInfo::exists(first));
        QVERIFY(!QFileInfo::exists(second));
    }

    void headlessLoadFillsNoSelectors()
    {
        LoadedPackage l(Example, /*wizard=*/false);
        QCOMPARE(l.code(), 0);
        QVERIFY(l.f.display.ports.isEmpty());
        QCOMPARE(l.programFiles(), (QStringList{"MAIN.BIN", "TEXT_EN.BIN"}));
    }
};

QTEST_GUILESS_MAIN(ConfigurationLoaderTest)
#include "tst_configuration_loader.moc"
