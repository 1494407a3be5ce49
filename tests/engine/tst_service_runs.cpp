// The headless tool's verify, read and restore through the engine: verify finds where an
// image first differs (by halving the range with the instrument's CRC-32, or by reading it
// all without), writes nothing and leaves the read-back files alone; restore saves the erase
// units its data touches, merges and writes them back whole.
#include "engine/Crc32.h"
#include "tests/support/RunFixture.h"

#include <QFile>
#include <QtTest>

namespace {

const QString Config = QStringLiteral(
    "[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
    "MEMORY=0X0,0X80000,AM29F040\r\nERASE=0X10000,0X10000\r\n"
    "[FILES]\r\nUPLOAD=0X0,0X100,CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X20000,TEXT_EN.BIN\r\nPROGRAM2=0X0,CAL.BIN\r\n");

// A flash that holds the package's images, and 0x11 elsewhere.
QByteArray flashHoldingThePackage(int32_t address, int32_t count)
{
    QByteArray bytes(count, '\x11');
    const auto place = [&](int32_t at, const QByteArray &image) {
        for (int32_t i = 0; i < count; ++i)
            if (address + i >= at && address + i < at + image.size())
                bytes[i] = image[address + i - at];
    };
    place(0x10000, TestPackage::pattern(1000));
    place(0x20000, TestPackage::pattern(480));
    return bytes;
}

QStringList calls(const RunFixture &r, const QString &name)
{
    return r.requests().filter(QRegularExpression(QStringLiteral("^") + name + QStringLiteral("\\(")));
}

} // namespace

class ServiceRunsTest : public QObject {
    Q_OBJECT
private slots:
    void verifyFindsTheFirstDifference_data()
    {
        QTest::addColumn<bool>("offered");      // the transfer program answers range checksums
        QTest::addColumn<int>("changedAt");     // the byte of MAIN.BIN that the flash holds otherwise; -1 none
        QTest::addColumn<int>("rangeChecks");   // RangeCrc requests for MAIN.BIN
        QTest::addColumn<int>("bytesRead");     // of MAIN.BIN's range
        QTest::newRow("equal, by CRC-32: nothing read") << true << -1 << 1 << 0;
        // 1000 bytes halved to 500, 250, 125 (<= 240): three halvings, then one block read
        QTest::newRow("first byte differs") << true << 0 << 4 << 125;
        QTest::newRow("last byte differs") << true << 999 << 4 << 125;
        QTest::newRow("a byte in the middle") << true << 612 << 4 << 125;
        QTest::newRow("equal, without CRC-32: read whole") << false << -1 << 0 << 1000;
        QTest::newRow("differs, without CRC-32: read whole") << false << 612 << 0 << 1000;
    }
    void verifyFindsTheFirstDifference()
    {
        QFETCH(bool, offered);
        QFETCH(int, changedAt);
        QFETCH(int, rangeChecks);
        QFETCH(int, bytesRead);
        RunFixture r(Config);
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setOffersRangeCrc(offered);
            layer.setReadSource([changedAt](int32_t address, int32_t count) {
                QByteArray bytes = flashHoldingThePackage(address, count);
                const int32_t at = 0x10000 + changedAt - address;
                if (changedAt >= 0 && at >= 0 && at < count)
                    bytes[at] = char(~bytes[at]);
                return bytes;
            });
        };
        QVERIFY(r.f->engine.VerifyInstrument());

        const std::vector<QX_UploadProcess::ImageComparison> &found = r.f->engine.comparisons();
        QCOMPARE(found.size(), size_t(3));
        QCOMPARE(found[0].firstDifference, changedAt < 0 ? std::nullopt : std::optional<int32_t>(0x10000 + changedAt));
        QVERIFY(!found[1].firstDifference && found[1].notCompared.isEmpty());
        QCOMPARE(found[2].notCompared, QStringLiteral("its read-back file CAL.BIN is missing or not 256 bytes long"));
        int checks = 0;
        for (const QString &check : calls(r, QStringLiteral("RequestRangeCrc")))
            checks += check.section(QLatin1Char(','), 1, 1).toInt() >= 0x10000 && check.section(QLatin1Char(','), 1, 1).toInt() < 0x20000;
        QCOMPARE(checks, rangeChecks);
        int read = 0;
        for (const QString &block : calls(r, QStringLiteral("ReadMemory")))
            if (block.section(QLatin1Char(','), 1, 1).toInt() < 0x20000)
                read += block.section(QLatin1Char(','), 2, 2).chopped(1).toInt();
        QCOMPARE(read, bytesRead);

        // Nothing written, nothing of the package's read-back files touched.
        for (const char *writing : {"ProgrammingVoltageOn", "FlashDelete", "ProgramBlock"})
            QVERIFY(calls(r, QString::fromLatin1(writing)).isEmpty());
        QVERIFY(!QFile::exists(r.outPath(QStringLiteral("CAL.BIN"))));
        QCOMPARE(r.f->prompt.questions.size(), 0);
        QCOMPARE(r.log().first(), QStringLiteral("VERIFY STARTED"));
        QCOMPARE(r.log().last(), QStringLiteral("Verify completed in 0 Minutes 0 Seconds"));
    }

    void aReadIsCheckedAndWrittenToItsFile()
    {
        RunFixture r(Config);
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.setOffersRangeCrc(true);
            layer.setReadSource(flashHoldingThePackage);
        };
        const QString out = r.outPath(QStringLiteral("part.bin"));
        QVERIFY(r.f->engine.ReadInstrument(0xFF80, 0x100, out));
        QFile file(out);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), flashHoldingThePackage(0xFF80, 0x100));
        QCOMPARE(calls(r, QStringLiteral("RequestRangeCrc")), QStringList{"RequestRangeCrc(2,65408,256)"});
        QVERIFY(!QFile::exists(r.outPath(QStringLiteral("CAL.BIN"))));
    }

    // Data across two sectors: both are saved first, and written back whole with the data in
    // place; the bytes around it stay as they were.
    void restoreWritesBackTheWholeUnitsItTouches()
    {
        RunFixture r(Config);
        r.f->prepareLayer = [](ScriptedAppLayer &layer) { layer.setReadSource(flashHoldingThePackage); };
        const QByteArray data = TestPackage::pattern(0x200, 77);
        const QString backup = r.outPath(QStringLiteral("data.before-restore-1"));
        QVERIFY(r.f->engine.RestoreInstrument(data, QStringLiteral("data.bin"), 0xFF00, backup));

        QCOMPARE(r.f->engine.restoredUnits(), std::make_optional(std::make_pair(0, 0x20000)));
        QFile saved(backup);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(saved.readAll(), flashHoldingThePackage(0, 0x20000));
        QCOMPARE(calls(r, QStringLiteral("FlashDelete")), QStringList{"FlashDelete(2,22,0,131072)"});
        QByteArray written;
        for (const auto &call : *r.f->calls)
            if (call.name == QStringLiteral("ProgramBlock")) {
                QCOMPARE(call.args.at(0).toInt(), int(written.size()));
                written += call.args.at(4).toByteArray();
            }
        QByteArray expected = flashHoldingThePackage(0, 0x20000);
        expected.replace(0xFF00, data.size(), data);
        QCOMPARE(written, expected);
        QVERIFY(r.log().contains(QStringLiteral("Restore File = data.bin at HFF00")));
        QVERIFY(r.log().contains(QStringLiteral("Checksum( H2 , H0 , H20000 )")));
        // The configuration is the package's again.
        QCOMPARE(r.f->engine.Erases.size(), size_t(1));
        QCOMPARE(r.f->engine.Erases[0].EraseAddress(), 0x10000);
        QCOMPARE(r.f->engine.Programs.size(), size_t(3));
    }

    void restoreOutsideTheMemoriesErasesNothing()
    {
        RunFixture r(Config);
        QVERIFY(!r.f->engine.RestoreInstrument(QByteArray(16, 'x'), QStringLiteral("data.bin"), 0x7FFF8, r.outPath(QStringLiteral("b"))));
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Program Entry Invalid data.bin: the range H7FFF8 to H80008 lies in no flash memory; nothing was erased"));
        QVERIFY(calls(r, QStringLiteral("ProgrammingVoltageOn")).isEmpty());
        QVERIFY(calls(r, QStringLiteral("ReadMemory")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(ServiceRunsTest)
#include "tst_service_runs.moc"
