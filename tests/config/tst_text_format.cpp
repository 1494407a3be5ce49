// Number and text forms of log lines and messages.
#include "config/TextFormat.h"

#include <QtTest>

using namespace TextFormat;

class TextFormatTest : public QObject {
    Q_OBJECT
private slots:
    void hexIsUpperCaseWithoutLeadingZeros_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("hex32");
        QTest::addColumn<QString>("hex16");
        QTest::newRow("0") << 0 << "0" << "0";
        QTest::newRow("0x43") << 0x43 << "43" << "43";
        QTest::newRow("0x12AD4") << 0x12AD4 << "12AD4" << "2AD4";
        QTest::newRow("largest") << 0x7FFFFFFF << "7FFFFFFF" << "FFFF";
        QTest::newRow("-1 in two's complement") << -1 << "FFFFFFFF" << "FFFF";
        QTest::newRow("-32768") << -32768 << "FFFF8000" << "8000";
        QTest::newRow("smallest") << INT32_MIN << "80000000" << "0";
    }
    void hexIsUpperCaseWithoutLeadingZeros()
    {
        QFETCH(int, value);
        QFETCH(QString, hex32);
        QFETCH(QString, hex16);
        QCOMPARE(hex(value), hex32);
        QCOMPARE(TextFormat::hex16(static_cast<int16_t>(value)), hex16);
    }

    void halvesRoundToEven_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<qint64>("rounded");
        for (const auto &[value, rounded] : {std::pair{0.5, 0}, {1.5, 2}, {2.5, 2}, {20.5, 20}, {21.5, 22}, {22.5, 22},
                                             {-0.5, 0}, {-1.5, -2}, {2.4999, 2}, {2.5001, 3}})
            QTest::addRow("%g", value) << value << qint64(rounded);
        QTest::newRow("NaN") << std::nan("") << qint64(0);
        QTest::newRow("beyond the largest") << 1e300 << std::numeric_limits<qint64>::max();
        QTest::newRow("minus infinity") << -std::numeric_limits<double>::infinity() << std::numeric_limits<qint64>::min();
    }
    void halvesRoundToEven()
    {
        QFETCH(double, value);
        QFETCH(qint64, rounded);
        QCOMPARE(roundHalfEven(value), rounded);
    }

    void actionPercent_data()
    {
        QTest::addColumn<int>("done");
        QTest::addColumn<int>("total");
        QTest::addColumn<int>("percent");
        // 1000 bytes in blocks of 240, then 100 * done / total - 1 with halves to even.
        for (const auto &[done, percent] : {std::pair{0, -1}, {240, 23}, {480, 47}, {720, 71}, {960, 95}, {1000, 99}})
            QTest::addRow("%d of 1000", done) << done << 1000 << percent;
        QTest::newRow("74 exactly") << 3 << 4 << 74;
        QTest::newRow("11.5 -> 12") << 1 << 8 << 12;
        QTest::newRow("36.5 -> 36") << 3 << 8 << 36;
        QTest::newRow("nothing to do") << 0 << 0 << 99;
    }
    void actionPercent()
    {
        QFETCH(int, done);
        QFETCH(int, total);
        QFETCH(int, percent);
        QCOMPARE(TextFormat::actionPercent(done, total), int16_t(percent));
    }
};

QTEST_APPLESS_MAIN(TextFormatTest)
#include "tst_text_format.moc"
