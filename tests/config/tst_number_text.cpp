// The old platform's text-to-number rules.
#include "config/NumberText.h"

#include <QtTest>

Q_DECLARE_METATYPE(std::optional<int32_t>)

class NumberTextTest : public QObject {
    Q_OBJECT
private slots:
    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("value");
        QTest::newRow("trailing letters") << "240abc" << 240.0;
        QTest::newRow("blanks anywhere") << "  1 2" << 12.0;
        QTest::newRow("no number") << "abc" << 0.0;
        QTest::newRow("empty") << "" << 0.0;
        QTest::newRow("negative") << "-5" << -5.0;
        QTest::newRow("fraction") << "2.5x" << 2.5;
        QTest::newRow("exponent") << "1.5E2" << 150.0;
        QTest::newRow("D exponent") << "1D3" << 1000.0;
        QTest::newRow("exponent without digits") << "7E" << 7.0;
        QTest::newRow("hex") << "&hff" << 255.0;
        QTest::newRow("short hex is positive") << "&H8000" << 32768.0;
        QTest::newRow("eight hex digits are signed") << "&HFFFFFFFF" << -1.0;
        QTest::newRow("octal") << "&O17" << 15.0;
        QTest::newRow("sign then letters") << "-x" << 0.0;
    }
    void leadingNumber()
    {
        QFETCH(QString, text);
        QFETCH(double, value);
        QCOMPARE(NumberText::leadingNumber(text), value);
    }

    // A whole value (toInt32), or an entry field whose "0X" reads as hexadecimal (fieldToInt32).
    void wholeNumbers_data()
    {
        QTest::addColumn<bool>("field");
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<int32_t>>("value");
        const std::optional<int32_t> none;
        const auto row = [](const char *name, bool field, const char *text, std::optional<int32_t> value) {
            QTest::newRow(name) << field << QString::fromLatin1(text) << value;
        };
        row("blanks around", false, "  42 ", 42);
        row("halves to even down", false, "2.5", 2);
        row("halves to even up", false, "3.5", 4);
        row("negative half", false, "-2.5", -2);
        row("largest", false, "2147483647", INT32_MAX);
        row("smallest", false, "-2147483648", INT32_MIN);
        row("one too big", false, "2147483648", none);
        row("rounds past the top", false, "2147483647.5", none);
        row("hex all ones", false, "&HFFFFFFFF", -1);
        row("hex top bit", false, "&H80000000", INT32_MIN);
        row("short hex positive", false, "&HFFFF", 65535);
        row("nine hex digits", false, "&H1FFFFFFFF", none);
        row("hex without digits", false, "&H", none);
        row("hex with junk", false, "&H12G", none);
        row("octal", false, "&O777", 511);
        row("letters", false, "12AB", none);
        row("empty", false, "", none);
        row("blanks only", false, "   ", none);
        row("exponent", false, "1E3", 1000);
        row("huge exponent", false, "1E400", none);
        row("0X is no number", false, "0X10", none);
        row("field 0X", true, "0X20000", 131072);
        row("field 0x", true, "0x0", 0);
        row("field &H stays", true, "&H20000", 131072);
        row("field eight digits", true, "0XFFFFFFFF", -1);
        row("field only the first 0X", true, "1X0X10", none);
        row("field 0X in the middle", true, "10X10", none);
        row("field decimal", true, "4096", 4096);
        row("field signed hex", true, "-0X10", none);
        row("field NA", true, "NA", none);
    }
    void wholeNumbers()
    {
        QFETCH(bool, field);
        QFETCH(QString, text);
        QFETCH(std::optional<int32_t>, value);
        QCOMPARE(field ? NumberText::fieldToInt32(text) : NumberText::toInt32(text), value);
    }
};

QTEST_APPLESS_MAIN(NumberTextTest)
#include "tst_number_text.moc"
