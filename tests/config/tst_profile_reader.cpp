// Reading INI values as the Windows profile API does, quirks included.
#include "config/ProfileReader.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class ProfileReaderTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    int m_files = 0;

    QString write(const QByteArray &content)
    {
        const QString path = m_dir.filePath(QStringLiteral("f%1.ini").arg(++m_files));
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(content);
        return path;
    }

private slots:
    void readString_data()
    {
        QTest::addColumn<QByteArray>("ini");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value"); // NA: the default was delivered
        const auto row = [](const char *name, const QByteArray &ini, const char *section, const char *key, const QString &value) {
            QTest::newRow(name) << ini << QString::fromLatin1(section) << QString::fromLatin1(key) << value;
        };
        const auto raw = [](const auto &literal) { return QByteArray(literal, qsizetype(sizeof(literal)) - 1); }; // NULs kept
        const auto inS = [&](const char *name, const QByteArray &line, const QString &value) {
            row(name, "[S]\r\n" + line + "\r\n", "S", "K", value);
        };
        row("names ignore case", "[Host]\r\nPorts=COM1\r\n", "host", "PORTS", "COM1");
        row("blanks around names", "[ HOST ]\r\n  PORTS  =COM2\r\n", "HOST", "PORTS", "COM2");
        inS("spaces around a value", "K=   a b   ", "a b");
        inS("tabs around a value", "K=\ta\t", "a");
        inS("double quotes", "K=\" a \"", " a ");
        inS("single quotes", "K='x'", "x");
        inS("unmatched quotes stay", "K=\"x'", "\"x'");
        inS("one quote stays", "K=\"", "\"");
        inS("inner quotes stay", "K=a \"b\" c", "a \"b\" c");
        inS("semicolon stays in a value", "K=0X0 ; note", "0X0 ; note");
        inS("value of a comment only", "K=;x", ";x");
        inS("equals inside the value", "K=a=b", "a=b");
        inS("empty value", "K=", "");
        inS("blanks only", "K=   ", "");
        inS("comment lines are skipped", ";K=commented\r\n  ; K=also\r\nK=real", "real");
        row("a commented section is none", "[S]\r\n;[T]\r\nK=in S\r\n", "T", "K", "NA");
        inS("first of duplicate keys wins", "K=first\r\nK=second", "first");
        row("only the first of duplicate sections", "[S]\r\nA=1\r\n[S]\r\nK=in the second\r\n", "S", "K", "NA");
        row("duplicate section in other case", "[S]\r\nK=1\r\n[s]\r\nK=2\r\n", "S", "K", "1");
        row("keys belong to their section", "[A]\r\nK=a\r\n[B]\r\nK=b\r\nL=only b\r\n", "B", "K", "b");
        row("no key from another section", "[A]\r\nK=a\r\n[B]\r\nL=only b\r\n", "A", "L", "NA");
        row("no key before any section", "K=before any section\r\n[A]\r\n", "A", "K", "NA");
        inS("149 characters", "K=" + QByteArray(149, 'v'), QString(149, QLatin1Char('v')));
        inS("150 characters are cut", "K=" + QByteArray(150, 'v'), QString(149, QLatin1Char('v')));
        inS("400 characters are cut", "K=" + QByteArray(400, 'v'), QString(149, QLatin1Char('v')));
        row("missing section", "[S]\r\nK=1\r\n", "T", "K", "NA");
        row("missing key", "[S]\r\nK=1\r\n", "S", "L", "NA");
        row("empty section name", "[S]\r\nK=1\r\n", "", "K", "NA");
        row("empty key name", "[S]\r\nK=1\r\n", "S", "", "NA");
        row("a line without =", "[S]\r\nnot a key line\r\n", "S", "not a key line", "NA");
        row("unix line ends", "[S]\nK=unix\n", "S", "K", "unix");
        row("a lone CR ends a line", "[S]\rA=1\rK=cr\r", "S", "K", "cr");
        row("mixed line ends", "[S]\r\nA=1\rB=2\nK=mixed\n\r", "S", "K", "mixed");
        inS("a lone CR ends the value", "K=a\rb", "a");
        row("no final line end", "[S]\r\nK=no final line end", "S", "K", "no final line end");
        row("a UTF-8 byte order mark belongs to the first line", "\xEF\xBB\xBF[S]\r\nK=bom\r\n", "S", "K", "NA");
        row("a section after the UTF-8 mark's line", "\xEF\xBB\xBF\r\n[S]\r\nK=bom\r\n", "S", "K", "bom");
        row("UTF-16 little-endian behind its mark",
            raw("\xFF\xFE[\0S\0]\0\r\0\n\0K\0=\0\xE9\0\xAC\x20\r\0\n\0"), "S", "K",
            QStringLiteral("\u00E9?"));
        row("UTF-16 big-endian is not understood", raw("\xFE\xFF\0[\0S\0]\0\r\0\n\0K\0=\0v"), "S", "K", "NA");
        row("Latin-1", "[S]\r\nK=\xE9t\xE9\r\n", "S", "K", QStringLiteral("\u00E9t\u00E9"));
        row("a NUL does not end the file", raw("[S]\r\nA=\0\r\n[S2]\r\nK=w\r\n"), "S2", "K", "w");
        inS("a NUL ends its line's text", raw("K=ab\0cd"), "ab");
        inS("a NUL before the equals sign", raw("K\0=v"), "NA");
        row("a NUL in a section header", raw("[S\0x]\r\nK=v\r\n"), "S", "K", "v");
        row("unclosed section", "[S\r\nK=unclosed section\r\n", "S", "K", "unclosed section");
        row("unclosed section ends at a lone CR", "[S   \rK=v\r", "S", "K", "v");
        row("text after the closing bracket is ignored", "[S]K=v\r\n", "S", "K", "NA");
        row("vertical tabs are blanks", "\v[\vS\v]\r\n\vK\v=\va\v\r\n", "S", "K", "a");
        row("spaces around the caller's names", "[S]\r\nK=v\r\n", " S ", " K ", "v");
        row("tabs around the caller's names", "[S]\r\nK=v\r\n", "S", "\tK", "NA");
        row("nameless section and key", "[]\r\n=no name\r\n", "S", "K", "NA");
        row("only brackets", QByteArray(100000, '['), "S", "K", "NA");
    }
    void readString()
    {
        QFETCH(QByteArray, ini);
        QFETCH(QString, section);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QCOMPARE(ProfileReader::readString(write(ini), section, key, QStringLiteral("NA")), value);
    }

    void defaultsAndBuffer()
    {
        QCOMPARE(ProfileReader::readString(m_dir.filePath("none.ini"), "S", "K", "NA"), QStringLiteral("NA"));
        QCOMPARE(ProfileReader::readString(write("[S]\r\n"), "S", "K", " dflt\t  "), QStringLiteral(" dflt\t")); // trailing spaces go
        QCOMPARE(ProfileReader::readString(write("[S]\r\n"), "S", "K", QString(200, QLatin1Char('d'))).size(), 149);
        QCOMPARE(ProfileReader::readString(write("[S]\r\nK=abcdef\r\n"), "S", "K", "", 4), QStringLiteral("abc"));
    }
};

QTEST_APPLESS_MAIN(ProfileReaderTest)
#include "tst_profile_reader.moc"
