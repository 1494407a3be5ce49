// The old platform's text-to-number rules.
#include "config/NumberText.h"

#include <QtTest>

using namespace NumberText;
Q_DECLARE_METATYPE(std::optional<int32_t>)

class NumberTextTest : public QObject {
    Q_OBJECT
private slots:
    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("value");
        QTest::newRow("plain") << "240" << 240.0;
        QTest::newRow("trailing letters") << "240abc" << 240.0;
        QTest::newRow("blanks anywhere") << "  1 2" << 12.0;
        QTest::newRow("no number") << "abc" << 0.0;
        QTest::newRow("empty") << "" << 0.0;
        QTest::newRow("negative") << "-5" << -5.0;
        QTest::newRow("fraction") << "2.5x" << 2.5;
        QTest::newRow("exponent") << "1.5E2" << 150.0;
        QTest::newRow("D exponent") << "1D3" << 1000.0;
        QTest::newRow("exponent without digits") << "7E" << 7.0;
        QTest::newRow("hex") << "&H10" << 16.0;
        QTest::newRow("hex lower case") << "&hff" << 255.0;
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

    void toInt32_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<int32_t>>("value");
        const std::optional<int32_t> none;
        QTest::newRow("decimal") << "115200" << std::optional<int32_t>(115200);
        QTest::newRow("blanks around") << "  42 " << std::optional<int32_t>(42);
        QTest::newRow("halves to even down") << "2.5" << std::optional<int32_t>(2);
        QTest::newRow("halves to even up") << "3.5" << std::optional<int32_t>(4);
        QTest::newRow("negative half") << "-2.5" << std::optional<int32_t>(-2);
        QTest::newRow("largest") << "2147483647" << std::optional<int32_t>(INT32_MAX);
        QTest::newRow("smallest") << "-2147483648" << std::optional<int32_t>(INT32_MIN);
        QTest::newRow("one too big") << "2147483648" << none;
        QTest::newRow("rounds past the top") << "2147483647.5" << none;
        QTest::newRow("hex") << "&H20000" << std::optional<int32_t>(0x20000);
        QTest::newRow("hex all ones") << "&HFFFFFFFF" << std::optional<int32_t>(-1);
        QTest::newRow("hex top bit") << "&H80000000" << std::optional<int32_t>(INT32_MIN);
        QTest::newRow("short hex positive") << "&HFFFF" << std::optional<int32_t>(65535);
        QTest::newRow("nine hex digits") << "&H1FFFFFFFF" << none;
        QTest::newRow("hex without digits") << "&H" << none;
        QTest::newRow("hex with junk") << "&H12G" << none;
        QTest::newRow("octal") << "&O777" << std::optional<int32_t>(511);
        QTest::newRow("letters") << "12AB" << none;
        QTest::newRow("empty") << "" << none;
        QTest::newRow("blanks only") << "   " << none;
        QTest::newRow("exponent") << "1E3" << std::optional<int32_t>(1000);
        QTest::newRow("huge exponent") << "1E400" << none;
    }
    void toInt32()
    {
        QFETCH(QString, text);
        QFETCH(std::optional<int32_t>, value);
        QCOMPARE(NumberText::toInt32(text), value);
    }

    void fieldToInt32_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<std::optional<int32_t>>("value");
        const std::optional<int32_t> none;
        QTest::newRow("0X") << "0X20000" << std::optional<int32_t>(131072);
        QTest::newRow("0x") << "0x0" << std::optional<int32_t>(0);
        QTest::newRow("&H stays") << "&H20000" << std::optional<int32_t>(131072);
        QTest::newRow("eight digits") << "0XFFFFFFFF" << std::optional<int32_t>(-1);
        QTest::newRow("only the first 0X") << "1X0X10" << none;
        QTest::newRow("0X in the middle") << "10X10" << none;
        QTest::newRow("decimal") << "4096" << std::optional<int32_t>(4096);
        QTest::newRow("signed hex") << "-0X10" << none;
        QTest::newRow("NA") << "NA" << none;
    }
    void fieldToInt32()
    {
        QFETCH(QString, field);
        QFETCH(std::optional<int32_t>, value);
        QCOMPARE(NumberText::fieldToInt32(field), value);
    }
};

QTEST_APPLESS_MAIN(NumberTextTest)
#include "tst_number_text.moc"
