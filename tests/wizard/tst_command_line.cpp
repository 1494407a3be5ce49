// The command-line parser, rule by rule: each line of the table is a program's arguments and
// what the parser makes of them.
#include "wizard/QX_CommandLine.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {
// What a parse left, in short: the flags set, the values with their blanks in [], and the
// reported part of the last invalid switch.
QString outcome(const QX_CommandLine &line)
{
    QStringList parts;
    if (line.TransferOnly()) parts << QStringLiteral("TRANSFERONLY");
    if (line.AutoStart()) parts << QStringLiteral("AUTOSTART");
    if (line.Advanced()) parts << QStringLiteral("ADV_DISPLAY");
    if (line.PortSet()) parts << QStringLiteral("PORT[%1]").arg(line.Port());
    if (line.FirmwareLanguageSet()) parts << QStringLiteral("LANGUAGE[%1]").arg(line.FirmwareLanguage());
    if (line.Filename()) parts << QStringLiteral("F[%1]").arg(line.FilePath());
    if (line.QX_Error_GetLastError() != 0) {
        const QString prefix = QStringLiteral("Invalid command line switch");
        const QString message = line.QX_Error_GetLastErrorString();
        parts << (message.startsWith(prefix) ? QStringLiteral("invalid[%1]").arg(message.mid(prefix.size())) : message);
    }
    return parts.join(QLatin1Char(' '));
}
} // namespace

class CommandLineTest : public QObject {
    Q_OBJECT
private:
    // Files are named relative to the working folder, which is this temporary one, or by
    // their absolute path (DIR in a row).
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

    // Each row: the program's arguments. An argument holding several switches is read as the
    // whole command line always was.
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QStringList &arguments, const char *result) {
            QTest::newRow(name) << arguments << QString::fromUtf8(result);
        };
        row("empty", {""}, "");
        row("a bare path sets nothing", {"C:\\pkg\\a.kdpkg"}, "");
        row("only blanks", {"   "}, "");
        row("flags, with and without blanks", {"prog /TRANSFERONLY /AUTOSTART/ADV_DISPLAY "}, "TRANSFERONLY AUTOSTART ADV_DISPLAY");
        row("case-sensitive", {"/autostart"}, "invalid[ /autostart]");
        row("values follow their keyword", {"/PORTCOM1 /FIRMWARE_LANGUAGEgerman"}, "PORT[COM1] LANGUAGE[german]");
        row("a blank after the keyword is part of the value", {"/PORT COM1"}, "PORT[ COM1]");
        row("empty values", {"/PORT/FIRMWARE_LANGUAGE"}, "PORT[] LANGUAGE[]");
        row("an existing file", {"/AUTOSTART /Fa.kdpkg "}, "AUTOSTART F[a.kdpkg]");
        row("a missing file", {"/Fmissing.kdpkg"}, "invalid[ /Fmissing.kdpkg]");
        row("no path", {"/F"}, "invalid[ /F]");
        row("a folder is no file", {"/Ffolder.kdpkg"}, "invalid[ /Ffolder.kdpkg]");
        row("FIRMWARE is a file switch", {"/FIRMWARE"}, "invalid[ /FIRMWARE]");
        row("the last invalid part is reported", {"/X /Y"}, "invalid[ /Y]");
        row("valid parts after an invalid one", {"/TRANSFERONLY /BOGUS /AUTOSTART"}, "TRANSFERONLY AUTOSTART invalid[ /BOGUS]");
        row("two slashes make an empty part", {"/AUTOSTART//TRANSFERONLY"}, "TRANSFERONLY AUTOSTART invalid[ /]");
        row("a slash at the end", {"/AUTOSTART /"}, "AUTOSTART invalid[ /]");
        row("only blanks are trimmed", {"/AUTOSTART\t"}, "invalid[ /AUTOSTART\t]");
        row("one switch an argument", {"/TRANSFERONLY", "/Fa.kdpkg", "/PORTCOM2"}, "TRANSFERONLY PORT[COM2] F[a.kdpkg]");
        row("an absolute path", {"/FDIR/a.kdpkg", "/AUTOSTART"}, "AUTOSTART F[DIR/a.kdpkg]");
        row("the path runs to the end of its argument", {"/Fa.kdpkg /AUTOSTART"}, "invalid[ /Fa.kdpkg /AUTOSTART]");
        row("a value never runs into the next argument", {"/PORT", "COM1"}, "PORT[]");
    }
    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);
        QX_CommandLine line;
        line.setCommandLine(arguments.replaceInStrings(QStringLiteral("DIR"), m_dir.path()));
        QCOMPARE(outcome(line), expected.replace(QStringLiteral("DIR"), m_dir.path()));
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
