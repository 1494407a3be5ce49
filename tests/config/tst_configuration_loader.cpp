// Loading a package's configuration file through the engine: every key with its default,
// limit and error, the numbered lists, the program list per language, the progress budget,
// the selectors, and the temporary copy.
#include "tests/support/LoadedPackage.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

namespace {

const QString Required = QStringLiteral("[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
                                        "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n");

// The package example of the configuration format, with images of known sizes.
const QString Example = QStringLiteral(
    "[HOST]\r\nMAXPROGLEN=240\r\nPORTS=COM1,COM2,GPIB0\r\nUART=COM1\r\nGPIB0=number 6\r\nBAUD=115200\r\nCONTINUE=NO\r\n"
    "TRANSFER=TP.BIN,0X20000,0X20000\r\nFIRMWARE_LANGUAGES=ENGLISH,GERMAN\r\nFIRMWARE_LANGUAGE=ENGLISH\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\nMEMORY=0X0,0X80000,AM29F040 ; boot and main flash\r\n"
    "ERASE=0X10000,0X70000\r\n"
    "[FILES]\r\nUPLOAD=0X0,0X10000,CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\n"
    "[ENGLISH]\r\nPROGRAM1=0X60000,TEXT_EN.BIN\r\n[GERMAN]\r\nPROGRAM1=0X60000,TEXT_DE.BIN\r\n");

QString withRequired(const QString &host, const QString &rest = QString())
{
    QString ini = Required;
    ini.insert(ini.indexOf(QStringLiteral("[TARGET]")), host);
    return ini + rest;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString replaced(QString ini, const QString &from, const QString &to)
{
    return ini.replace(from, to);
}

} // namespace

class ConfigurationLoaderTest : public QObject {
    Q_OBJECT
private slots:
    void exampleFileGivesEveryField()
    {
        LoadedPackage l(Example);
        const QX_UploadProcess &e = l.f.engine;
        QCOMPARE(l.code(), 0);
        QVERIFY(!e.ConfigInvalid && e.RestartInstrument());
        QCOMPARE((QStringList{e.PortList, e.ComPort, e.PortKeyValue, e.FirmwareLanguages, e.FirmwareLanguage}),
                 (QStringList{"COM1,COM2,GPIB0", "COM1", "", "ENGLISH,GERMAN", "ENGLISH"}));
        QCOMPARE((QList<int>{e.MaxProgLen, e.BaudRate, e.ProcessorIndex, e.ArchitectureIndex, e.TransferProgram.Length()}),
                 (QList<int>{240, 115200, 0, 2, 3000}));
        QCOMPARE(e.Memories.size(), size_t(1));
        QCOMPARE(e.Memories[0].FlashnameIndex(), 22); // the inline comment is not part of the name
        QCOMPARE(e.Erases.size(), size_t(1));
        QCOMPARE(e.Downloads.size(), size_t(1));
        QCOMPARE(e.Downloads[0].Filename(), QStringLiteral("CAL.BIN"));
        QCOMPARE(l.programFiles(), (QStringList{"MAIN.BIN", "TEXT_EN.BIN"}));
        // 10 start + 10 transfer + 10 memory = 30; + 0x70000 / 4000 = 144.688 -> 145;
        // + 0x10000 / 240 = 418.07 -> 418; + 1000 / 240 -> 422; + 480 / 240 -> 424.
        QCOMPARE((QList<int>{e.ProgressAfterErase, e.ProgressAfterDownloads, e.ProgressTotal}), (QList<int>{145, 418, 424}));
        QCOMPARE(l.f.display.ports, (QStringList{"COM1", "COM2", "GPIB0"}));
        QCOMPARE(l.f.display.languages, (QStringList{"ENGLISH", "GERMAN"}));
        QCOMPARE(l.f.display.portText + QLatin1Char('|') + l.f.display.languageText, QStringLiteral("COM1|ENGLISH"));
    }

    void anotherLanguageOrPortIsReadAgain()
    {
        LoadedPackage l(Example);
        l.f.engine.setFirmwareLanguage(QStringLiteral(" german "));
        QCOMPARE(l.f.engine.FirmwareLanguage, QStringLiteral("GERMAN"));
        QCOMPARE(l.programFiles(), (QStringList{"MAIN.BIN", "TEXT_DE.BIN"}));
        QCOMPARE(l.f.engine.ProgressTotal, 418 + 4 + 3); // 1000/240 -> 422.17 -> 422; 720/240 = 3
        l.f.engine.setComPort(QStringLiteral("GPIB0"));
        QCOMPARE(l.f.engine.PortKeyValue, QStringLiteral("number 6"));
        l.f.engine.setComPort(QStringLiteral("COM2"));
        QCOMPARE(l.f.engine.PortKeyValue, QString());
        QCOMPARE(l.code(), 0);
    }

    void requiredKeysAloneGiveTheDefaults()
    {
        LoadedPackage l(replaced(Required, QStringLiteral("PORTS=COM1"), QStringLiteral("PORTS=com1 , GPIB0")));
        const QX_UploadProcess &e = l.f.engine;
        QCOMPARE(l.code(), 0);
        QCOMPARE(e.MaxProgLen, 240);
        QVERIFY(e.ContinueFlag);
        QVERIFY(e.Memories.empty() && e.Erases.empty() && e.Downloads.empty() && e.Programs.empty());
        QCOMPARE(e.FirmwareLanguages + QLatin1Char('|') + e.FirmwareLanguage, QStringLiteral("None|None"));
        QCOMPARE(e.ProgressTotal, 20);
        QCOMPARE(l.f.display.ports, (QStringList{"COM1", "GPIB0"}));
        QCOMPARE(l.f.display.languages, QStringList{"NONE"});
        QCOMPARE(l.f.display.languageText, QStringLiteral("None"));
    }

    void optionalValues_data()
    {
        QTest::addColumn<QString>("ini");
        QTest::addColumn<int>("maxProgLen");
        QTest::addColumn<bool>("continues");
        QTest::addColumn<int>("budget"); // 20 for the required keys
        const auto host = [](const char *line) { return withRequired(QLatin1String(line) + QStringLiteral("\r\n")); };
        QTest::newRow("block size 5000 is limited") << host("MAXPROGLEN=5000") << 4000 << true << 20;
        QTest::newRow("block size 4000") << host("MAXPROGLEN=4000") << 4000 << true << 20;
        QTest::newRow("block size 100") << host("MAXPROGLEN=100") << 100 << true << 20;
        QTest::newRow("block size NA is the default") << host("MAXPROGLEN=NA") << 240 << true << 20;
        QTest::newRow("block size leading number") << host("MAXPROGLEN=512 bytes") << 512 << true << 20;
        QTest::newRow("block size hexadecimal") << host("MAXPROGLEN=&h100") << 256 << true << 20;
        QTest::newRow("block size half to even down") << host("MAXPROGLEN=240.5") << 240 << true << 20;
        QTest::newRow("block size half to even up") << host("MAXPROGLEN=241.5") << 242 << true << 20;
        QTest::newRow("block size huge") << host("MAXPROGLEN=1E30") << 4000 << true << 20;
        QTest::newRow("continue no") << host("CONTINUE=no") << 240 << false << 20;
        QTest::newRow("continue NO with blanks") << host("CONTINUE=  NO  ") << 240 << false << 20;
        QTest::newRow("continue YES") << host("CONTINUE=YES") << 240 << true << 20;
        QTest::newRow("continue NA") << host("CONTINUE=NA") << 240 << true << 20;
        // An erase adds its length / 4000 to the budget, halves rounded to even.
        QTest::newRow("erase 6000 -> 21.5 -> 22") << Required + "ERASE=0,6000\r\n" << 240 << true << 22;
        QTest::newRow("erase 2000 -> 20.5 -> 20") << Required + "ERASE=0,2000\r\n" << 240 << true << 20;
        QTest::newRow("erase 10000 -> 22.5 -> 22") << Required + "ERASE=0,10000\r\n" << 240 << true << 22;
    }
    void optionalValues()
    {
        QFETCH(QString, ini);
        QFETCH(int, maxProgLen);
        QFETCH(bool, continues);
        QFETCH(int, budget);
        LoadedPackage l(ini);
        QCOMPARE(l.code(), 0);
        QCOMPARE(l.f.engine.MaxProgLen, maxProgLen);
        QCOMPARE(l.f.engine.ContinueFlag, continues);
        QCOMPARE(l.f.engine.ProgressTotal, budget);
        QCOMPARE(l.f.engine.ProgressAfterErase, budget);
    }

    void failuresEndTheLoad_data()
    {
        QTest::addColumn<QString>("ini");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("comPort"); // read after PORTS: empty when the load stopped before
        const QString tooSmall = QStringLiteral("Configuration File Invalid\r\n Section:HOST Key:MAXPROGLEN Value:%1"
                                                " (the block size must be at least 1 byte)");
        for (const char *value : {"0", "-5", "abc", "0.4", "-1E30"})
            QTest::addRow("block size %s", value) << withRequired(QStringLiteral("MAXPROGLEN=%1\r\n").arg(value)) << 5
                                                  << tooSmall.arg(value) << "";
        QTest::newRow("missing required key") << replaced(Required, "PORTS=COM1\r\n", "") << 6
                                              << "Configuration File Key Not Found\r\n File:{TEMP}\r\n Section:\r\nHOST Key:PORTS" << "";
        QTest::newRow("architecture") << replaced(Required, "ARCHITECTURE=B16", "ARCHITECTURE=b4") << 3
                                      << "Architecture Invalid B4" << "COM1";
        QTest::newRow("processor") << replaced(Required, "PROCESSOR=I80X86", "PROCESSOR=Z80") << 4
                                   << "Processor Name Invalid Z80" << "COM1";
        // The text is left as it was: here the kept text of the missing per-port key.
        QTest::newRow("baud is no number") << replaced(Required, "BAUD=115200", "BAUD=fast") << 5
                                           << "Configuration File Invalid\r\n File:{TEMP}\r\n Section:\r\nHOST Key:COM1" << "COM1";
        QTest::newRow("transfer entry") << replaced(Required, "TRANSFER=TP.BIN,0X20000,0X20000", "TRANSFER=NOPE.BIN,0X20000")
                                        << 5 << "Configuration File InvalidTransfer Entry invalid File Not Found NOPE.BIN" << "COM1";
        QTest::newRow("memory entry") << Required + "MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=\r\n" << 7
                                      << "Mermory Entry Inalid\r\nNA" << "COM1";
        QTest::newRow("memory value only a comment") << Required + "MEMORY=;nothing\r\n" << 7 << "Mermory Entry Inalid\r\n" << "COM1";
        QTest::newRow("erase entry") << Required + "ERASE=zz\r\n" << 8 << "Erase Entry Invalid\r\nzz" << "COM1";
        QTest::newRow("upload entry") << Required + "[FILES]\r\nUPLOAD=0,0X100\r\n" << 9 << "Upload Entry Invalid\r\n0,0X100" << "COM1";
        QTest::newRow("program entry") << Required + "[FILES]\r\nPROGRAM=MAIN.BIN\r\n" << 10
                                       << "Program Entry Invalid\r\nMAIN.BIN" << "COM1";
    }
    void failuresEndTheLoad()
    {
        QFETCH(QString, ini);
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(QString, comPort);
        LoadedPackage l(ini);
        QCOMPARE(l.code(), code);
        QCOMPARE(l.message(), message.replace(QStringLiteral("{TEMP}"), l.f.engine.ConfigTempFile));
        QCOMPARE(l.f.engine.ComPort, comPort);
        QVERIFY(l.f.engine.ConfigInvalid);
    }

    void aPackageWithoutAReadableConfiguration_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QString>("message");
        TestPackage other;
        other.member(QStringLiteral("OTHER.TXT"), "x").write();
        QTest::newRow("no configuration member") << readAll(other.path()) << "Filename InvalidConfiguration file not found";
        QTest::newRow("not a zip archive") << TestPackage::pattern(4096) << "Filename InvalidConfiguration file not found";
        TestPackage damaged;
        damaged.config(QString(3000, QLatin1Char(';'))).write();
        QByteArray bytes = readAll(damaged.path());
        bytes[bytes.indexOf("KDCONFIG.INI") + 12 + 5] ^= 0x5A; // inside the deflated data
        QTest::newRow("damaged configuration member") << bytes << "Filename InvalidConfiguration file not readable";
    }
    void aPackageWithoutAReadableConfiguration()
    {
        QFETCH(QByteArray, archive);
        QFETCH(QString, message);
        QTemporaryDir dir;
        QFile file(dir.filePath(QStringLiteral("p.KDPKG")));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(archive) == archive.size());
        file.close();
        EngineFixture f;
        f.engine.setPackage(Package(file.fileName()));
        f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
        QCOMPARE(f.engine.QX_Error_GetLastError(), 1);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), message);
    }

    void programLists_data()
    {
        QTest::addColumn<QString>("lists");
        QTest::addColumn<QStringList>("files");
        QTest::newRow("a gap ends the list") << "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=0,TEXT_EN.BIN\r\nPROGRAM3=0,TEXT_DE.BIN\r\n"
                                             << QStringList{"MAIN.BIN", "TEXT_EN.BIN"};
        QTest::newRow("a list starts without a number") << "[FILES]\r\nPROGRAM1=0,MAIN.BIN\r\n" << QStringList{};
        QTest::newRow("NA ends the list") << "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=NA\r\nPROGRAM2=0,TEXT_EN.BIN\r\n"
                                          << QStringList{"MAIN.BIN"};
        QTest::newRow("the language continues the numbering")
            << "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=0,TEXT_EN.BIN\r\n[ENGLISH]\r\nPROGRAM2=0,TEXT_DE.BIN\r\n"
            << QStringList{"MAIN.BIN", "TEXT_EN.BIN", "TEXT_DE.BIN"};
        QTest::newRow("the language cannot restart it")
            << "[FILES]\r\nPROGRAM=0,MAIN.BIN\r\nPROGRAM1=0,TEXT_EN.BIN\r\n[ENGLISH]\r\nPROGRAM=0,TEXT_DE.BIN\r\n"
            << QStringList{"MAIN.BIN", "TEXT_EN.BIN"};
        QTest::newRow("the language alone") << "[ENGLISH]\r\nPROGRAM=0,TEXT_EN.BIN\r\nPROGRAM1=0,MAIN.BIN\r\n"
                                            << QStringList{"TEXT_EN.BIN", "MAIN.BIN"};
        const QString tail = QStringLiteral("\r\n[ENGLISH]\r\nPROGRAM=0,MAIN.BIN\r\n");
        QTest::newRow("within the first 5000 bytes") << "; " + QString(4000, QLatin1Char('-')) + tail << QStringList{"MAIN.BIN"};
        QTest::newRow("beyond the first 5000 bytes") << "; " + QString(5000, QLatin1Char('-')) + tail << QStringList{};
    }
    void programLists()
    {
        QFETCH(QString, lists);
        QFETCH(QStringList, files);
        LoadedPackage l(withRequired(QStringLiteral("FIRMWARE_LANGUAGE=ENGLISH\r\n"), lists));
        QCOMPARE(l.code(), 0);
        QCOMPARE(l.programFiles(), files);
    }

    void languageSetWhileInvalidOnlyStoresTheName()
    {
        LoadedPackage l(replaced(Example, QStringLiteral("ARCHITECTURE=B16"), QStringLiteral("ARCHITECTURE=B4")));
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
        LoadedPackage l(withRequired(QStringLiteral("FIRMWARE_LANGUAGE=") + QString(200, QLatin1Char('X')) + QStringLiteral("\r\n")));
        QCOMPARE(l.f.engine.FirmwareLanguage, QString(149, QLatin1Char('X')));
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
