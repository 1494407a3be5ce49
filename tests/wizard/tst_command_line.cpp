// The command-line parser, rule by rule.
#include "wizard/QX_CommandLine.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class CommandLineTest : public QObject {
    Q_OBJECT
private:
    // A path cannot hold "/" (it starts the next switch), so files are named relative to the
    // working folder, which is this temporary one.
    QTemporaryDir m_dir;
    QString m_before;

private slots:
    void initTestCase()
    {
        m_before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_dir.path()));
        QFile file(QStringLiteral("a.kdpkg"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(QDir().mkdir(QStringLiteral("folder.kdpkg")));
    }
    void cleanupTestCase() { QDir::setCurrent(m_before); }

    void emptyOrWithoutSlashSetsNothing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("bare path") << "C:\\pkg\\a.kdpkg";
        QTest::newRow("blanks") << "   ";
    }
    void emptyOrWithoutSlashSetsNothing()
    {
        QFETCH(QString, text);
        QX_CommandLine line;
        line.setCommandLine(text);
        QCOMPARE(line.CommandLine(), text);
        QVERIFY(!line.AutoStart() && !line.TransferOnly() && !line.PortSet() && !line.Advanced()
                && !line.FirmwareLanguageSet() && !line.Filename());
        QCOMPARE(line.QX_Error_GetLastError(), 0);
    }

    void flagSwitches()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("prog /TRANSFERONLY /AUTOSTART/ADV_DISPLAY "));
        QVERIFY(line.TransferOnly());
        QVERIFY(line.AutoStart());
        QVERIFY(line.Advanced());
        QCOMPARE(line.QX_Error_GetLastError(), 0);
    }

    void switchesAreCaseSensitive()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/autostart"));
        QVERIFY(!line.AutoStart());
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /autostart"));
    }

    void valuesFollowTheirKeywordDirectly()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/PORTCOM1 /FIRMWARE_LANGUAGEgerman"));
        QVERIFY(line.PortSet());
        QCOMPARE(line.Port(), QStringLiteral("COM1"));
        QVERIFY(line.FirmwareLanguageSet());
        QCOMPARE(line.FirmwareLanguage(), QStringLiteral("german"));

        QX_CommandLine blank;
        blank.setCommandLine(QStringLiteral("/PORT COM1"));
        QCOMPARE(blank.Port(), QStringLiteral(" COM1")); // a blank after the keyword is part of the value

        QX_CommandLine empty;
        empty.setCommandLine(QStringLiteral("/PORT/FIRMWARE_LANGUAGE"));
        QVERIFY(empty.PortSet() && empty.FirmwareLanguageSet());
        QVERIFY(empty.Port().isEmpty() && empty.FirmwareLanguage().isEmpty());
        QCOMPARE(empty.QX_Error_GetLastError(), 0);
    }

    void fileSwitch()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/AUTOSTART /Fa.kdpkg "));
        QVERIFY(line.AutoStart());
        QVERIFY(line.Filename());
        QCOMPARE(line.FilePath(), QStringLiteral("a.kdpkg"));
        QCOMPARE(line.QX_Error_GetLastError(), 0);
    }

    void aSlashInAPathStartsAnotherSwitch()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/F") + m_dir.filePath(QStringLiteral("a.kdpkg")));
        QVERIFY(!line.Filename());
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /a.kdpkg"));
    }

    void fileSwitchFailures_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("detail");
        QTest::newRow("missing file") << "/Fmissing.kdpkg" << " /Fmissing.kdpkg";
        QTest::newRow("no path") << "/F" << " /F";
        QTest::newRow("a folder") << "/Ffolder.kdpkg" << " /Ffolder.kdpkg";
        QTest::newRow("FIRMWARE is a file switch") << "/FIRMWARE" << " /FIRMWARE";
    }
    void fileSwitchFailures()
    {
        QFETCH(QString, text);
        QFETCH(QString, detail);
        QX_CommandLine line;
        line.setCommandLine(text);
        QVERIFY(!line.Filename());
        QCOMPARE(line.QX_Error_GetLastError(), 14);
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch") + detail);
    }

    void theLastInvalidPartIsReported()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/X /Y"));
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /Y"));

        QX_CommandLine validAfter;
        validAfter.setCommandLine(QStringLiteral("/TRANSFERONLY /BOGUS /AUTOSTART"));
        QVERIFY(validAfter.TransferOnly() && validAfter.AutoStart());
        QCOMPARE(validAfter.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /BOGUS"));
    }

    void emptyPartsAreInvalid_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("two slashes") << "/AUTOSTART//TRANSFERONLY";
        QTest::newRow("slash at the end") << "/AUTOSTART /";
    }
    void emptyPartsAreInvalid()
    {
        QFETCH(QString, text);
        QX_CommandLine line;
        line.setCommandLine(text);
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /"));
        QVERIFY(line.AutoStart());
    }

    void onlyBlanksAreTrimmed()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/AUTOSTART\t"));
        QVERIFY(!line.AutoStart());
        QCOMPARE(line.QX_Error_GetLastErrorString(), QStringLiteral("Invalid command line switch /AUTOSTART\t"));
    }

    void flagsStaySetAcrossWrites()
    {
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/TRANSFERONLY"));
        line.setCommandLine(QStringLiteral("/AUTOSTART"));
        QVERIFY(line.TransferOnly() && line.AutoStart());
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
