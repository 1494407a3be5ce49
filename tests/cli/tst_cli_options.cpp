// The headless tool's command line: what it accepts, and a clear reason for what it does not.
#include "cli/CliOptions.h"

#include <QtTest>

class CliOptionsTest : public QObject {
    Q_OBJECT
private slots:
    void aFullUpdateLine()
    {
        CliOptions options;
        QString error;
        QVERIFY(CliOptions::parse({"update", "-p", "com2", "pkg.KDPKG", "-l", "GERMAN", "--transfer-only",
                                   "--keep-existing", "--log", "run.log", "--json", "--quiet", "--max-baud", "460800", "--full"},
                                  options, &error));
        QCOMPARE(options.command, CliOptions::Command::Update);
        QCOMPARE(options.package, QStringLiteral("pkg.KDPKG"));
        QCOMPARE(options.port, QStringLiteral("com2"));
        QCOMPARE(options.language, QStringLiteral("GERMAN"));
        QVERIFY(options.transferOnly);
        QCOMPARE(options.overwrite, CliOptions::Overwrite::Never);
        QCOMPARE(options.logFile, QStringLiteral("run.log"));
        QVERIFY(options.json);
        QVERIFY(options.quiet);
        QCOMPARE(options.maxBaud, 460800);
        QVERIFY(options.full);
    }

    void defaults()
    {
        CliOptions options;
        QString error;
        QVERIFY(CliOptions::parse({"update", "pkg.KDPKG"}, options, &error));
        QCOMPARE(options.overwrite, CliOptions::Overwrite::Ask);
        QVERIFY(options.port.isEmpty() && options.language.isEmpty() && options.logFile.isEmpty());
        QVERIFY(!options.transferOnly && !options.json && !options.quiet && !options.maxBaud && !options.full);
    }

    void otherCommands_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("command");
        QTest::newRow("info") << QStringList{"info", "p.KDPKG"} << int(CliOptions::Command::Info);
        QTest::newRow("ports") << QStringList{"ports"} << int(CliOptions::Command::Ports);
        QTest::newRow("--help") << QStringList{"--help"} << int(CliOptions::Command::Help);
        QTest::newRow("-h") << QStringList{"-h"} << int(CliOptions::Command::Help);
        QTest::newRow("help after a command") << QStringList{"update", "--help"} << int(CliOptions::Command::Help);
        QTest::newRow("--version") << QStringList{"--version"} << int(CliOptions::Command::Version);
        QTest::newRow("info --json") << QStringList{"info", "p.KDPKG", "--json"} << int(CliOptions::Command::Info);
    }
    void otherCommands()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, command);
        CliOptions options;
        QString error;
        QVERIFY2(CliOptions::parse(arguments, options, &error), qPrintable(error));
        QCOMPARE(int(options.command), command);
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        QTest::newRow("nothing") << QStringList{} << "a command is needed";
        QTest::newRow("unknown command") << QStringList{"flash", "p"} << "unknown command flash";
        QTest::newRow("unknown option") << QStringList{"update", "p", "--fast"} << "unknown option --fast";
        QTest::newRow("no package") << QStringList{"update"} << "update needs the package (the .KDPKG file) to install";
        QTest::newRow("a port but no package") << QStringList{"update", "-p", "COM1"}
                                               << "update needs the package (the .KDPKG file) to install";
        QTest::newRow("info without a package") << QStringList{"info", "--json"} << "info needs the package (the .KDPKG file) to show";
        QTest::newRow("two packages") << QStringList{"update", "a", "b"} << "one package is needed, not a, b";
        QTest::newRow("unknown short option") << QStringList{"update", "p", "-x"} << "unknown option -x";
        QTest::newRow("ports with a package") << QStringList{"ports", "p"} << "ports takes no package";
        QTest::newRow("value missing at the end") << QStringList{"update", "p", "--port"} << "--port needs a value";
        QTest::newRow("option instead of a value") << QStringList{"update", "p", "--log", "--json"} << "--log needs a value";
        QTest::newRow("both overwrite choices") << QStringList{"update", "p", "--overwrite", "--keep-existing"}
                                                << "--overwrite and --keep-existing exclude each other";
        QTest::newRow("a rate that is no number") << QStringList{"update", "p", "--max-baud", "fast"}
                                                  << "--max-baud needs a rate in baud (0 keeps the package's rate), not fast";
        QTest::newRow("update options on info") << QStringList{"info", "p", "--port", "COM1"} << "unknown option --port";
        QTest::newRow("update options on verify") << QStringList{"verify", "p", "--overwrite"} << "unknown option --overwrite";
        QTest::newRow("a read without a range") << QStringList{"read", "p", "--out", "f"} << "read needs --range START,LENGTH and --out FILE";
        QTest::newRow("a range without a length") << QStringList{"read", "p", "--range", "0x100", "--out", "f"}
                                                  << "--range needs START,LENGTH (a length of at least one byte; 0x for hexadecimal), not 0x100";
        QTest::newRow("an empty range") << QStringList{"read", "p", "--range", "0,0", "--out", "f"}
                                        << "--range needs START,LENGTH (a length of at least one byte; 0x for hexadecimal), not 0,0";
        QTest::newRow("a range past 32 bits") << QStringList{"read", "p", "--range", "0x100000000,1", "--out", "f"}
                                              << "--range needs START,LENGTH (a length of at least one byte; 0x for hexadecimal), not 0x100000000,1";
        QTest::newRow("restore without a file") << QStringList{"restore", "p"} << "restore needs the file to write back after the package";
        QTest::newRow("restore with two files") << QStringList{"restore", "p", "a", "b"} << "restore takes the package and one file, not p, a, b";
        QTest::newRow("an address that is no number") << QStringList{"restore", "p", "f", "--at", "top"}
                                                      << "--at needs an address (0x for hexadecimal), not top";
        QTest::newRow("--full on read") << QStringList{"read", "p", "--range", "0,1", "--out", "f", "--full"} << "unknown option --full";
    }
    void refusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        CliOptions options;
        QString reason;
        QVERIFY(!CliOptions::parse(arguments, options, &reason));
        QCOMPARE(reason, error);
    }

    void theServiceCommands_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("parsed"); // command package file start length at full
        QTest::newRow("verify") << QStringList{"verify", "p.KDPKG", "-l", "GERMAN"} << "verify p.KDPKG  0 0 - 0";
        QTest::newRow("read, hexadecimal") << QStringList{"read", "p.KDPKG", "--range", "0x1F000,0x2000", "--out", "x.bin"}
                                           << "read p.KDPKG x.bin 126976 8192 - 0";
        QTest::newRow("read, decimal") << QStringList{"read", "p.KDPKG", "--out", "x.bin", "--range", "1024,16"}
                                       << "read p.KDPKG x.bin 1024 16 - 0";
        QTest::newRow("restore to its own range") << QStringList{"restore", "p.KDPKG", "CAL.BIN"} << "restore p.KDPKG CAL.BIN 0 0 - 0";
        QTest::newRow("restore elsewhere, everything") << QStringList{"restore", "p.KDPKG", "CAL.BIN", "--at", "0xFF00", "--full"}
                                                       << "restore p.KDPKG CAL.BIN 0 0 65280 1";
    }
    void theServiceCommands()
    {
        QFETCH(QStringList, arguments);
        CliOptions options;
        QString error;
        QVERIFY2(CliOptions::parse(arguments, options, &error), qPrintable(error));
        const QString file = options.command == CliOptions::Command::Read ? options.outFile : options.restoreFile;
        QTEST(QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
                  .arg(CliOptions::name(options.command), options.package, file)
                  .arg(options.rangeStart)
                  .arg(options.rangeLength)
                  .arg(options.restoreAt ? QString::number(*options.restoreAt) : QStringLiteral("-"))
                  .arg(int(options.full)),
              "parsed");
    }

    void aRepeatedOverwriteChoiceIsFine()
    {
        CliOptions options;
        QString error;
        QVERIFY(CliOptions::parse({"update", "p", "--overwrite", "--overwrite"}, options, &error));
        QCOMPARE(options.overwrite, CliOptions::Overwrite::Always);
    }
};

QTEST_GUILESS_MAIN(CliOptionsTest)
#include "tst_cli_options.moc"
