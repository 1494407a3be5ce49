// Number and text forms of log lines and messages.
#include "config/TextFormat.h"

#include <QtTest>

using namespace TextFormat;

class TextFormatTest : public QObject {
    Q_OBJECT
private slots:
    void hexIsUpperCaseWithoutLeadingZeros()
    {
        QCOMPARE(hex(0), QStringLiteral("0"));
        QCOMPARE(hex(0x89), QStringLiteral("89"));
        QCOMPARE(hex(0x1000), QStringLiteral("1000"));
        QCOMPARE(hex(0x12AD4), QStringLiteral("12AD4"));
        QCOMPARE(hex(0x7FFFFFFF), QStringLiteral("7FFFFFFF"));
    }

    void negativeValuesShowTheirTwosComplementWidth()
    {
        QCOMPARE(hex(-1), QStringLiteral("FFFFFFFF"));
        QCOMPARE(hex(INT32_MIN), QStringLiteral("80000000"));
        QCOMPARE(hex16(-1), QStringLiteral("FFFF"));
        QCOMPARE(hex16(-32768), QStringLiteral("8000"));
        QCOMPARE(hex16(67), QStringLiteral("43"));
        QCOMPARE(hex16(32), QStringLiteral("20"));
    }

    void decimalHasNoPadding()
    {
        QCOMPARE(dec(0), QStringLiteral("0"));
        QCOMPARE(dec(125), QStringLiteral("125"));
        QCOMPARE(dec(-3), QStringLiteral("-3"));
    }

    void halvesRoundToEven_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<qint64>("rounded");
        QTest::newRow("0.5") << 0.5 << qint64(0);
        QTest::newRow("1.5") << 1.5 << qint64(2);
        QTest::newRow("2.5") << 2.5 << qint64(2);
        QTest::newRow("20.5") << 20.5 << qint64(20);
        QTest::newRow("21.5") << 21.5 << qint64(22);
        QTest::newRow("22.5") << 22.5 << qint64(22);
        QTest::newRow("-0.5") << -0.5 << qint64(0);
        QTest::newRow("-1.5") << -1.5 << qint64(-2);
        QTest::newRow("2.4999") << 2.4999 << qint64(2);
        QTest::newRow("2.5001") << 2.5001 << qint64(3);
    }
    void halvesRoundToEven()
    {
        QFETCH(double, value);
        QFETCH(qint64, rounded);
        QCOMPARE(roundHalfEven(value), rounded);
    }

    void actionPercentOfBlocks()
    {
        // 1000 bytes in blocks of 240: 23, 47, 71, 95, 99.
        const QList<int> expected = {23, 47, 71, 95, 99};
        QList<int> seen;
        for (int done : {240, 480, 720, 960, 1000})
            seen << actionPercent(done, 1000);
        QCOMPARE(seen, expected);
        QCOMPARE(actionPercent(0, 1000), int16_t(-1));
        // 100 * 3 / 4 - 1 = 74, 100 * 1 / 8 - 1 = 11.5 -> 12, 100 * 3 / 8 - 1 = 36.5 -> 36
        QCOMPARE(actionPercent(3, 4), int16_t(74));
        QCOMPARE(actionPercent(1, 8), int16_t(12));
        QCOMPARE(actionPercent(3, 8), int16_t(36));
    }
};

QTEST_APPLESS_MAIN(TextFormatTest)
#include "tst_text_format.moc"
