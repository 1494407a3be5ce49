// Where the transfer program answers range checksums: every range read back is checked against
// the instrument's CRC-32 before its file is put in place (read again when it does not match,
// and the run stopped before any erase when it never does), and every image's CRC-32 is
// compared after its 8-bit sum, with the log unchanged when both match. Before the erase the
// layer is told the plan of the run, unless the user asked for everything to be written.
#include "config/UpdateJournal.h"
#include "engine/Crc32.h"
#include "tests/support/RunFixture.h"

#include <QFile>
#include <QTimer>
#include <QtTest>

namespace {

const QString Config = QStringLiteral(
    "[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B32\r\n"
    "MEMORY=0X0,0X80000,AM29F040\r\nERASE=0X10000,0X10000\r\n"
    "[FILES]\r\nUPLOAD=0X0,0X3E8,CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X20000,TEXT_EN.BIN\r\n");
// Requests before the first read-back checksum: identification and five reads of 240 bytes.
constexpr int RequestsOfOneRead = 5;
// From there to the first image's CRC-32: the erase (voltage on, delete, off), the image's
// voltage on, five blocks, voltage off and checksum.
constexpr int RequestsUpToTheImageCrc = 3 + 1 + 5 + 2;

ScriptedAppLayer::Reply rangeCrc(uint32_t crc)
{
    ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(168);
    reply.rangeCrc = crc;
    return reply;
}

QByteArray readSource(int32_t address, int32_t count)
{
    QByteArray bytes(count, '\0');
    for (int32_t i = 0; i < count; ++i)
        bytes[i] = char((address + i) * 7);
    return bytes;
}

} // namespace

class VerifiedUpdateTest : public QObject {
    Q_OBJECT
private slots:
    void readBackIsCheckedBeforeTheFileIsPutInPlace_data()
    {
        QTest::addColumn<bool>("offered");   // the transfer program answers range checksums
        QTest::addColumn<int>("mismatches"); // reads in a row whose checksum does not match
        QTest::addColumn<int>("reads");      // of the range, in all
        QTest::addColumn<bool>("succeeds");
        QTest::newRow("without range checksums: read once, unchecked") << false << 0 << 1 << true;
        QTest::newRow("matches at once") << true << 0 << 1 << true;
        QTest::newRow("garbled once: read again") << true << 1 << 2 << true;
        QTest::newRow("garbled three times: the last read matches") << true << 3 << 4 << true;
        QTest::newRow("never matches: stopped before the erase") << true << 4 << 4 << false;
    }
    void readBackIsCheckedBeforeTheFileIsPutInPlace()
    {
        QFETCH(bool, offered);
        QFETCH(int, mismatches);
        QFETCH(int, reads);
        QFETCH(bool, succeeds);
        RunFixture r(Config);
        const QByteArray earlier("an earlier copy of the calibration data");
        {
            QFile file(r.outPath(QStringLiteral("CAL.BIN")));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(earlier) == earlier.size());
        }
        r.f->prompt.answers = {true}; // replace the earlier copy
        const uint32_t wrong = Crc32::of(readSource(0, 1000)) ^ 1;
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setOffersRangeCrc(offered);
            layer.setReadSource(readSource);
            layer.queueReply(ScriptedAppLayer::Reply{}); // identification
            for (int i = 0; i < mismatches; ++i) {
                for (int block = 0; block < RequestsOfOneRead; ++block)
                    layer.queueReply(ScriptedAppLayer::Reply{});
                layer.queueReply(rangeCrc(wrong));
            }
        };
        QCOMPARE(r.f->engine.Upload(), succeeds);

        QCOMPARE(r.requests().count(QStringLiteral("ReadMemory(3,0,240)")), reads);
        QCOMPARE(r.requests().count(QStringLiteral("RequestRangeCrc(3,0,1000)")), offered ? reads : 0);
        QCOMPARE(r.f->engine.readBackRereads(), std::min(mismatches, 3));
        QCOMPARE(r.log().count(QStringLiteral("Read File = CAL.BIN")), 1);
        QFile saved(r.outPath(QStringLiteral("CAL.BIN")));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        if (succeeds) {
            QCOMPARE(saved.readAll(), readSource(0, 1000));
            return;
        }
        QCOMPARE(saved.readAll(), earlier);
        QVERIFY(!r.requests().contains(QStringLiteral("ProgrammingVoltageOn()"))); // nothing erased
        QCOMPARE(r.log().at(r.log().size() - 5), QStringLiteral("Read Verify ERROR"));
        QCOMPARE(r.f->engine.QX_Error_GetLastError(), 112);
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("READ BACK CHECK ERROR, %1: the 1000 bytes at H0, read 4 times, never matched the instrument's "
                                "CRC-32 H%2 (the last read gave H%3); nothing was erased, check the cable and run the update again")
                     .arg(QStringLiteral("CAL.BIN"), QString::number(wrong, 16).toUpper(),
                          QString::number(wrong ^ 1, 16).toUpper()));
        QVERIFY(!r.f->engine.eraseBegan());
    }

    void eachImageIsCheckedByItsCrc32_data()
    {
        QTest::addColumn<bool>("offered");
        QTest::addColumn<bool>("wrongCrc"); // the instrument's CRC-32 of the first image is not the image's
        QTest::newRow("without range checksums") << false << false;
        QTest::newRow("both match: the log as without") << true << false;
        QTest::newRow("the CRC-32 differs where the 8-bit sum matches") << true << true;
    }
    void eachImageIsCheckedByItsCrc32()
    {
        QFETCH(bool, offered);
        QFETCH(bool, wrongCrc);
        RunFixture plain(Config);
        QVERIFY(plain.f->engine.Upload());

        RunFixture r(Config);
        const uint32_t imageCrc = Crc32::of(TestPackage::pattern(1000));
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setOffersRangeCrc(offered);
            if (!wrongCrc)
                return;
            for (int i = 0; i < 1 + RequestsOfOneRead + 1 + RequestsUpToTheImageCrc; ++i)
                layer.queueReply(ScriptedAppLayer::Reply{});
            layer.queueReply(rangeCrc(imageCrc ^ 0x80000000u));
        };
        QCOMPARE(r.f->engine.Upload(), !wrongCrc);

        const std::vector<QX_UploadProcess::ImageCheck> &checks = r.f->engine.imageChecks();
        QCOMPARE(checks.size(), size_t(wrongCrc ? 1 : 2));
        QCOMPARE(checks[0].file, QStringLiteral("MAIN.BIN"));
        QCOMPARE(checks[0].hostSum, checks[0].targetSum);
        QCOMPARE(checks[0].hostCrc, imageCrc);
        QCOMPARE(checks[0].targetCrc.has_value(), offered);
        if (!wrongCrc) {
            QCOMPARE(r.log(), plain.log()); // nothing added on success
            QCOMPARE(r.requests().contains(QStringLiteral("RequestRangeCrc(3,131072,480)")), offered);
            return;
        }
        const QString target = QString::number(imageCrc ^ 0x80000000u, 16).toUpper();
        const QString host = QString::number(imageCrc, 16).toUpper();
        const QStringList log = r.log();
        QCOMPARE(log.mid(log.size() - 6, 3), (QStringList{"Checksum Matches, Host = H" + QString::number(checks[0].hostSum, 16).toUpper(),
                                                          "CRC-32 Error,  Target = H" + target + " Host = H" + host,
                                                          "Close Communication Channel"}));
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 "PROGRAM CRC-32 ERROR, MAIN.BIN at H10000: the instrument's CRC-32 of its 1000 bytes is H" + target
                     + ", the image's H" + host);
        for (const auto &call : *r.f->calls) // the second image is never programmed
            QVERIFY(call.name != QStringLiteral("ProgramBlock") || call.args.at(0).toInt() < 0x20000);
        QCOMPARE(r.f->engine.BytesVerified, 0);
    }

    // The plan names every memory, erase range and image, each image as it will be written
    // (a write-back image as read back in this run), before the first erase; --full tells none.
    void thePlanIsAnnouncedBeforeTheErase_data()
    {
        QTest::addColumn<bool>("full");
        QTest::newRow("differential") << false;
        QTest::newRow("everything written") << true;
    }
    void thePlanIsAnnouncedBeforeTheErase()
    {
        QFETCH(bool, full);
        QString ini = Config;
        ini.replace(QStringLiteral("PROGRAM1=0X20000,TEXT_EN.BIN"), QStringLiteral("PROGRAM1=0X20000,TEXT_EN.BIN\r\nPROGRAM2=0X400,CAL.BIN"));
        RunFixture r(ini);
        r.f->engine.setFullUpdate(full);
        std::shared_ptr<std::optional<ScriptedAppLayer::AnnouncedPlan>> announced;
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setReadSource(readSource);
            announced = layer.announcedPlan();
        };
        QVERIFY(r.f->engine.Upload());
        const QStringList calls = r.f->callNames();
        QCOMPARE(calls.contains(QStringLiteral("AnnounceFlashPlan")), !full);
        if (full)
            return;
        QVERIFY(calls.indexOf(QStringLiteral("AnnounceFlashPlan")) < calls.indexOf(QStringLiteral("ProgrammingVoltageOn")));
        QVERIFY(calls.indexOf(QStringLiteral("AnnounceFlashPlan")) > calls.lastIndexOf(QStringLiteral("ReadMemory")));
        QVERIFY(announced && announced->has_value());
        const FlashPlan &plan = (*announced)->plan;
        QCOMPARE(plan.architecture, uint8_t(3));
        QCOMPARE(plan.memories.size(), size_t(1));
        QCOMPARE(plan.memories[0].length, 0x80000);
        QCOMPARE(plan.memories[0].flashIndex, 22);
        QCOMPARE(plan.erases.size(), size_t(1));
        QCOMPARE(plan.erases[0].address, 0x10000);
        QCOMPARE(plan.erases[0].length, 0x10000);
        QCOMPARE(plan.erases[0].flashIndex, 22);
        QCOMPARE(plan.images.size(), size_t(3));
        QCOMPARE(plan.images[2].address, 0x400);
        QCOMPARE((*announced)->images, (QList<QByteArray>{TestPackage::pattern(1000), TestPackage::pattern(480), readSource(0, 1000)}));
    }

    // From the erase on the working folder says which read-back files an update saved, until
    // everything is programmed and verified. A run after one cut short asks whether this is
    // the same instrument: then the saved file stays and is written back (what the instrument
    // holds now goes beside it); if not, the saved file goes aside and the range is read anew.
    void anUpdateCutShortKeepsItsSavedCopy_data()
    {
        QTest::addColumn<bool>("sameInstrument");
        QTest::newRow("the same instrument: the saved copy is written back") << true;
        QTest::newRow("another instrument: the saved copy is set aside") << false;
    }
    void anUpdateCutShortKeepsItsSavedCopy()
    {
        QFETCH(bool, sameInstrument);
        QString ini = Config;
        ini.replace(QStringLiteral("PROGRAM1=0X20000,TEXT_EN.BIN"), QStringLiteral("PROGRAM1=0X400,CAL.BIN"));
        RunFixture r(ini);
        const QString journal = r.outPath(UpdateJournal::FileName);
        bool journalDuringErase = false;
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setReadSource(readSource);
            layer.holdAt(QStringLiteral("ProgramBlock")); // cut short in the programming
            connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&] {
                journalDuringErase = QFile::exists(journal);
                QTimer::singleShot(0, &r.f->engine, [&] { r.f->engine.Cancel(); });
            });
        };
        QVERIFY(!r.f->engine.Upload());
        QVERIFY(journalDuringErase);
        QVERIFY(QFile::exists(journal)); // the update did not finish
        const QByteArray saved = readSource(0, 1000);

        // The instrument now holds something else where the calibration data was.
        const auto erased = [](int32_t, int32_t count) { return QByteArray(count, '\xFF'); };
        RunFixture again(ini);
        QFile::copy(r.outPath(QStringLiteral("CAL.BIN")), again.outPath(QStringLiteral("CAL.BIN")));
        QFile::copy(journal, again.outPath(UpdateJournal::FileName));
        again.f->prompt.answers = {sameInstrument};
        again.f->prepareLayer = [&](ScriptedAppLayer &layer) { layer.setReadSource(erased); };
        QVERIFY(again.f->engine.Upload());
        QCOMPARE(again.f->prompt.questions.size(), 1);
        QVERIFY(again.f->prompt.questions.first().startsWith(QStringLiteral("Interrupted Update|The file")));
        QVERIFY(!QFile::exists(again.outPath(UpdateJournal::FileName))); // finished
        const auto bytes = [&](const QString &name) {
            QFile file(again.outPath(name));
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        };
        QByteArray writtenBack;
        for (const auto &call : *again.f->calls)
            if (call.name == QStringLiteral("ProgramBlock") && call.args.at(0).toInt() < 0x10000)
                writtenBack += call.args.at(4).toByteArray();
        if (sameInstrument) {
            QCOMPARE(bytes(QStringLiteral("CAL.BIN")), saved);
            QCOMPARE(bytes(QStringLiteral("CAL.BIN.found-1")), QByteArray(1000, '\xFF'));
            QCOMPARE(writtenBack, saved);
        } else {
            QCOMPARE(bytes(QStringLiteral("CAL.BIN.interrupted-1")), saved);
            QCOMPARE(bytes(QStringLiteral("CAL.BIN")), QByteArray(1000, '\xFF'));
            QCOMPARE(writtenBack, QByteArray(1000, '\xFF'));
        }
        QCOMPARE(again.f->engine.notices().size(), 1);
    }
};

QTEST_GUILESS_MAIN(VerifiedUpdateTest)
#include "tst_verified_update.moc"
