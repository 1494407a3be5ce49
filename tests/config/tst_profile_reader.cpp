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
        row("no final line end", "[S]\r\nK=no final line end", "S", "K", "no final line end");
        row("byte order mark", "\xEF\xBB\xBF[S]\r\nK=bom\r\n", "S", "K", "bom");
        row("Latin-1", "[S]\r\nK=\xE9t\xE9\r\n", "S", "K", QStringLiteral("\u00E9t\u00E9"));
        row("a NUL ends the file", QByteArray("[S]\r\nK=v\r\n\0[S2]\r\nK=w\r\n", 23), "S2", "K", "NA");
        row("unclosed section", "[S\r\nK=unclosed section\r\n", "S", "K", "unclosed section");
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
        QCOMPARE(ProfileReader::readString(write("[S]\r\n"), "S", "K", "dflt   "), QStringLiteral("dflt")); // trailing blanks go
        QCOMPARE(ProfileReader::readString(write("[S]\r\n"), "S", "K", QString(200, QLatin1Char('d'))).size(), 149);
        QCOMPARE(ProfileReader::readString(write("[S]\r\nK=abcdef\r\n"), "S", "K", "", 4), QStringLiteral("abc"));
    }
};

QTEST_APPLESS_MAIN(ProfileReaderTest)
#include "tst_profile_reader.moc"
