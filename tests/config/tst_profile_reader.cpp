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
    QString read(const QByteArray &content, const char *section, const char *key, const char *fallback = "NA")
    {
        return ProfileReader::readString(write(content), QLatin1String(section), QLatin1String(key), QLatin1String(fallback));
    }

private slots:
    void namesMatchWithoutRegardToCase()
    {
        const QByteArray ini = "[Host]\r\nPorts=COM1\r\n";
        QCOMPARE(read(ini, "HOST", "PORTS"), QStringLiteral("COM1"));
        QCOMPARE(read(ini, "host", "ports"), QStringLiteral("COM1"));
        QCOMPARE(read("[ HOST ]\r\n  PORTS  =COM2\r\n", "HOST", "PORTS"), QStringLiteral("COM2"));
    }

    void blanksAroundValuesGo_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("value");
        QTest::newRow("spaces") << QByteArray("K=   a b   ") << "a b";
        QTest::newRow("tabs") << QByteArray("K=\ta\t") << "a";
        QTest::newRow("double quotes") << QByteArray("K=\" a \"") << " a ";
        QTest::newRow("single quotes") << QByteArray("K='x'") << "x";
        QTest::newRow("unmatched quotes stay") << QByteArray("K=\"x'") << "\"x'";
        QTest::newRow("one quote stays") << QByteArray("K=\"") << "\"";
        QTest::newRow("inner quotes stay") << QByteArray("K=a \"b\" c") << "a \"b\" c";
        QTest::newRow("semicolon stays in a value") << QByteArray("K=0X0 ; note") << "0X0 ; note";
        QTest::newRow("value of a comment only") << QByteArray("K=;x") << ";x";
        QTest::newRow("equals inside the value") << QByteArray("K=a=b") << "a=b";
        QTest::newRow("empty value") << QByteArray("K=") << "";
        QTest::newRow("blanks only") << QByteArray("K=   ") << "";
    }
    void blanksAroundValuesGo()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, value);
        QCOMPARE(read("[S]\r\n" + line + "\r\n", "S", "K"), value);
    }

    void commentLinesAreSkipped()
    {
        const QByteArray ini = "[S]\r\n;K=commented\r\n  ; K=also\r\nK=real\r\n";
        QCOMPARE(read(ini, "S", "K"), QStringLiteral("real"));
        QCOMPARE(read("[S]\r\n;[T]\r\nK=in S\r\n", "T", "K"), QStringLiteral("NA"));
    }

    void firstOfDuplicatesWins()
    {
        QCOMPARE(read("[S]\r\nK=first\r\nK=second\r\n", "S", "K"), QStringLiteral("first"));
        QCOMPARE(read("[S]\r\nA=1\r\n[S]\r\nK=in the second\r\n", "S", "K"), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\nK=1\r\n[s]\r\nK=2\r\n", "S", "K"), QStringLiteral("1"));
    }

    void keysBelongToTheirSection()
    {
        const QByteArray ini = "[A]\r\nK=a\r\n[B]\r\nK=b\r\nL=only b\r\n";
        QCOMPARE(read(ini, "B", "K"), QStringLiteral("b"));
        QCOMPARE(read(ini, "A", "L"), QStringLiteral("NA"));
        QCOMPARE(read("K=before any section\r\n[A]\r\n", "A", "K"), QStringLiteral("NA"));
    }

    void valuesAreCutToTheBuffer()
    {
        const QByteArray v149(149, 'v'), v150(150, 'v'), v400(400, 'v');
        QCOMPARE(read("[S]\r\nK=" + v149 + "\r\n", "S", "K").size(), 149);
        QCOMPARE(read("[S]\r\nK=" + v150 + "\r\n", "S", "K"), QString(149, QLatin1Char('v')));
        QCOMPARE(read("[S]\r\nK=" + v400 + "\r\n", "S", "K").size(), 149);
        QCOMPARE(ProfileReader::readString(write("[S]\r\nK=abcdef\r\n"), "S", "K", "", 4), QStringLiteral("abc"));
    }

    void defaults()
    {
        QCOMPARE(ProfileReader::readString(m_dir.filePath("none.ini"), "S", "K", "NA"), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\nK=1\r\n", "T", "K"), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\nK=1\r\n", "S", "L"), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\n", "S", "K", "dflt   "), QStringLiteral("dflt")); // trailing blanks go
        QCOMPARE(read("[S]\r\n", "S", "K", QByteArray(200, 'd').constData()).size(), 149);
        QCOMPARE(read("[S]\r\nK=1\r\n", "", "K"), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\nK=1\r\n", "S", ""), QStringLiteral("NA"));
        QCOMPARE(read("[S]\r\nnot a key line\r\n", "S", "not a key line"), QStringLiteral("NA"));
    }

    void lineEndsAndEncodings()
    {
        QCOMPARE(read("[S]\nK=unix\n", "S", "K"), QStringLiteral("unix"));
        QCOMPARE(read("[S]\r\nK=no final line end", "S", "K"), QStringLiteral("no final line end"));
        QCOMPARE(read("\xEF\xBB\xBF[S]\r\nK=bom\r\n", "S", "K"), QStringLiteral("bom"));
        QCOMPARE(read("[S]\r\nK=\xE9t\xE9\r\n", "S", "K"), QStringLiteral("\u00E9t\u00E9"));
    }

    void arbitraryBytesDoNotBreakIt()
    {
        QCOMPARE(read(QByteArray("[S]\r\nK=v\r\n\0[S2]\r\nK=w\r\n", 23), "S2", "K"), QStringLiteral("NA"));
        QCOMPARE(read("[S\r\nK=unclosed section\r\n", "S", "K"), QStringLiteral("unclosed section"));
        QCOMPARE(read("[]\r\n=no name\r\n", "S", "K"), QStringLiteral("NA"));
        QCOMPARE(read(QByteArray(100000, '['), "S", "K"), QStringLiteral("NA"));
    }
};

QTEST_APPLESS_MAIN(ProfileReaderTest)
#include "tst_profile_reader.moc"
