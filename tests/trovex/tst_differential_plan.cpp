// Writing only what is missing, decided from the engine's plan and what the instrument says
// its flash holds: which ranges are checked and what they must hold at the end, which parts of
// an erase are sent, which blocks need not be, and which plans are not followed at all.
#include "engine/Crc32.h"
#include "trovex/DifferentialPlan.h"

#include <QtTest>

namespace {
constexpr int32_t Sector = 0x10000;
constexpr int32_t Language = 0x100000; // an AM29LV800, its top 64 KiB in boot sectors of 32, 8, 8, 16 KiB

QByteArray image(int size, char seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(seed + i % 251);
    return bytes;
}

// The demo's shape: the first four sectors of an AM29F040 erased, the firmware in sectors 1
// and 2, the calibration data written back into sector 0; a text programmed into the language
// chip, which is not erased, and a table across two of its boot sectors.
struct Shape {
    QList<QByteArray> images{image(0x18000, 1), image(0x400, 2), image(0x3000, 3), image(0x9000, 4)};
    QList<int32_t> at{0x10000, 0x0, Language, Language + 0xF0000};
    QList<FlashPlan::Erase> erases{{0, 0x40000, 22}};
    QList<FlashPlan::Memory> memories{{0, 0x80000, 22}, {Language, 0x100000, 24}};

    FlashPlan plan() const
    {
        FlashPlan p;
        p.architecture = 2;
        p.memories.assign(memories.begin(), memories.end());
        p.erases.assign(erases.begin(), erases.end());
        for (qsizetype i = 0; i < images.size(); ++i)
            p.images.push_back({at[i], int32_t(images[i].size()), at[i] < Language ? 22 : 24,
                                [bytes = images[i]](int32_t offset, int32_t count) { return bytes.mid(offset, count); }});
        return p;
    }
};

// The CRC-32 of count bytes of FF with bytes at offset.
uint32_t crcOf(int count, int offset = 0, const QByteArray &bytes = {})
{
    QByteArray all(count, '\xFF');
    all.replace(offset, bytes.size(), bytes);
    return Crc32::of(all);
}

// Says every check holds its final content, but for those named.
void answer(DifferentialPlan &plan, const QList<uint32_t> &differing)
{
    for (size_t i = 0; i < plan.checks().size(); ++i) {
        const DifferentialPlan::Check &check = plan.checks()[i];
        plan.found(i, differing.contains(check.range.address) ? std::optional<uint32_t>(check.finalCrc ^ 1) : check.finalCrc);
    }
}
} // namespace

class DifferentialPlanTest : public QObject {
    Q_OBJECT
private slots:
    void everyUnitErasedAndEveryRangeProgrammedIsChecked()
    {
        const Shape shape;
        const std::optional<DifferentialPlan> plan = DifferentialPlan::make(shape.plan());
        QVERIFY(plan);
        QList<QList<uint32_t>> checks;
        for (const DifferentialPlan::Check &check : plan->checks())
            checks << QList<uint32_t>{check.range.address, check.range.length, check.finalCrc};
        const QByteArray &firmware = shape.images[0];
        const QList<QList<uint32_t>> expected{
            {0, Sector, crcOf(Sector, 0, shape.images[1])},
            {Sector, Sector, crcOf(Sector, 0, firmware.left(Sector))},
            {2 * Sector, Sector, crcOf(Sector, 0, firmware.mid(Sector))},
            {3 * Sector, Sector, crcOf(Sector)},
            // outside the erase units only the programmed bytes, cut at the units' bounds
            {Language, 0x3000, Crc32::of(shape.images[2])},
            {Language + 0xF0000, 0x8000, Crc32::of(shape.images[3].left(0x8000))},
            {Language + 0xF8000, 0x1000, Crc32::of(shape.images[3].mid(0x8000))},
        };
        QCOMPARE(checks, expected);
    }

    void onlyTheUnitsThatDifferAreErased_data()
    {
        QTest::addColumn<QList<uint32_t>>("differing"); // units whose content is not yet the final one
        QTest::addColumn<QList<uint32_t>>("parts");     // address, length of each erase sent
        QTest::newRow("all differ: the erase as asked") << QList<uint32_t>{0, 0x10000, 0x20000, 0x30000}
                                                        << QList<uint32_t>{0, 0x40000};
        QTest::newRow("all in place: nothing sent") << QList<uint32_t>{} << QList<uint32_t>{};
        QTest::newRow("a run of adjacent units") << QList<uint32_t>{0x20000, 0x30000} << QList<uint32_t>{0x20000, 0x20000};
        QTest::newRow("two runs") << QList<uint32_t>{0, 0x30000} << QList<uint32_t>{0, 0x10000, 0x30000, 0x10000};
    }
    void onlyTheUnitsThatDifferAreErased()
    {
        QFETCH(QList<uint32_t>, differing);
        std::optional<DifferentialPlan> plan = DifferentialPlan::make(Shape().plan());
        answer(*plan, differing);
        QList<uint32_t> parts;
        for (const DifferentialPlan::Range &part : plan->eraseParts(0, 0x40000))
            parts << part.address << part.length;
        QTEST(parts, "parts");
    }

    void blocksThatNeedNotBeSent_data()
    {
        QTest::addColumn<QList<uint32_t>>("differing");
        QTest::addColumn<uint32_t>("address");
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<bool>("inPlace");
        const QByteArray data = image(240, 9);
        const QByteArray erased(240, '\xFF');
        const QList<uint32_t> none;
        const QList<uint32_t> sector1{0x10000};
        QTest::newRow("in a unit that holds its final content") << none << 0x10000u << data << true;
        QTest::newRow("in a unit just erased") << sector1 << 0x10000u << data << false;
        QTest::newRow("only FF in a unit just erased") << sector1 << 0x10000u << erased << true;
        QTest::newRow("FF into a unit just erased, the rest in place")
            << sector1 << 0x10000u - 100 << QByteArray(100, 'x') + QByteArray(140, '\xFF') << true;
        QTest::newRow("data into a unit just erased, the rest in place")
            << sector1 << 0x10000u - 100 << QByteArray(100, 'x') + QByteArray(140, 'y') << false;
        QTest::newRow("a programmed range outside the erases, in place") << none << uint32_t(Language) << data << true;
        QTest::newRow("... not in place: FF does not help where nothing was erased")
            << QList<uint32_t>{Language} << uint32_t(Language) << erased << false;
        QTest::newRow("outside every range of the plan") << none << 0x60000u << erased << false;
    }
    void blocksThatNeedNotBeSent()
    {
        QFETCH(QList<uint32_t>, differing);
        QFETCH(uint32_t, address);
        QFETCH(QByteArray, block);
        std::optional<DifferentialPlan> plan = DifferentialPlan::make(Shape().plan());
        answer(*plan, differing);
        plan->eraseParts(0, 0x40000);
        QTEST(plan->blockInPlace(address, block), "inPlace");
    }

    void aCheckTheInstrumentCannotAnswerCountsAsDiffering()
    {
        std::optional<DifferentialPlan> plan = DifferentialPlan::make(Shape().plan());
        answer(*plan, {});
        plan->found(3, std::nullopt);
        const std::vector<DifferentialPlan::Range> parts = plan->eraseParts(0, 0x40000);
        QCOMPARE(parts.size(), size_t(1));
        QCOMPARE(parts[0].address, 0x30000u);
        QCOMPARE(parts[0].length, 0x10000u);
    }

    void plansNotFollowedUnitByUnit_data()
    {
        QTest::addColumn<int>("change");
        QTest::newRow("images that overlap") << 0;
        QTest::newRow("an erase in no memory") << 1;
        QTest::newRow("an image in no memory") << 2;
        QTest::newRow("a memory that is no whole number of chips") << 3;
        QTest::newRow("a chip the table does not know") << 4;
    }
    void plansNotFollowedUnitByUnit()
    {
        QFETCH(int, change);
        Shape shape;
        switch (change) {
        case 0: shape.at[1] = 0x10000 + 0x17FFF; break;
        case 1: shape.erases.append({0x80000, 0x10, 22}); break;
        case 2: shape.at[2] = 0x90000; break;
        case 3: shape.memories[0].length = 0x40000; break;
        default: shape.memories[1].flashIndex = 99; break;
        }
        QVERIFY(!DifferentialPlan::make(shape.plan()));
    }
};

QTEST_GUILESS_MAIN(DifferentialPlanTest)
#include "tst_differential_plan.moc"
