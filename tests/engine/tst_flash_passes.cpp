// The flash passes and the run's failure rows: for each, the last log line, the result, the
// code and message, and whether the programming voltage was switched off; block split,
// percentages, checksums and memory selection.
#include "tests/support/RunFixture.h"

#include <QFile>
#include <QTimer>
#include <QtTest>

namespace {

const QString Config = QStringLiteral(
    "[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B32\r\n"
    "MEMORY=0X0,0X80000,AM29F040\r\n%1"
    "[FILES]\r\nUPLOAD=0X0,0X3E8,CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\n%2");
const QString OneErase = QStringLiteral("ERASE=0X10000,0X10000\r\n");

QString config(const QString &target = OneErase, const QString &files = QString())
{
    return Config.arg(target, files);
}

ScriptedAppLayer::Reply withStatus(int32_t id, int16_t status, int32_t address = 0)
{
    ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(id);
    reply.status = status;
    reply.resultAddress = address;
    return reply;
}

int count(const QStringList &list, const QString &item)
{
    return static_cast<int>(list.count(item));
}

} // namespace

class FlashPassesTest : public QObject {
    Q_OBJECT
private slots:
    void failureRows_data()
    {
        QTest::addColumn<int>("healthyBefore"); // requests answered healthily before the scripted one
        QTest::addColumn<int>("replyKind");     // 0 response with status, 1 error event
        QTest::addColumn<int>("responseId");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("lastLine");   // the last line before the shutdown lines
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("voltageOffs");

        // identification 1, reads 5: erase voltage-on is the 7th request
        QTest::newRow("identification fails") << 0 << 1 << 0 << 0 << "QueryManufacturerCode ERROR"
                                              << "Error occurred in communications layer, Code = 5 no answer" << 0;
        QTest::newRow("read refused") << 1 << 0 << 164 << 32 << "Read ERROR" << "READ DATA ERROR20" << 0;
        QTest::newRow("erase voltage on refused") << 6 << 0 << 162 << 1 << "Error setting Programming Voltage On"
                                                  << "PROGRAMMING POWER ON ERROR1" << 0;
        QTest::newRow("erase fails") << 7 << 0 << 167 << 65 << "FlashDelete ERROR"
                                     << "FLASH ERASE ERROR, failed at address = 10400" << 0;
        QTest::newRow("erase voltage off refused") << 8 << 0 << 163 << 0 << "Error setting Programming Voltage Off"
                                                   << "PROGRAMMING POWER OFF ERROR0" << 1;
        QTest::newRow("program voltage on refused") << 9 << 0 << 162 << 0 << "Error setting Programming Voltage On"
                                                    << "PROGRAMMING POWER ON ERROR0" << 1;
        QTest::newRow("block refused") << 11 << 0 << 165 << 1 << "Prog ERROR"
                                       << "PROGRAMMING ERROR, failed at address 10400" << 1;
        QTest::newRow("program voltage off refused") << 15 << 0 << 163 << 68 << "Error setting Programming Voltage Off"
                                                     << "PROGRAMMING POWER OFF ERROR44" << 2;
        QTest::newRow("checksum fails") << 16 << 1 << 0 << 0 << "Error getting Checksum"
                                        << "Error occurred in communications layer, Code = 5 no answer" << 2;
    }
    void failureRows()
    {
        QFETCH(int, healthyBefore);
        QFETCH(int, replyKind);
        QFETCH(int, responseId);
        QFETCH(int, status);
        QFETCH(QString, lastLine);
        QFETCH(QString, message);
        QFETCH(int, voltageOffs);

        RunFixture r(config());
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            for (int i = 0; i < healthyBefore; ++i)
                layer.queueReply(ScriptedAppLayer::Reply{});
            if (replyKind == 1)
                layer.queueReply(ScriptedAppLayer::errorEvent(5, QStringLiteral(" no answer ")));
            else
                layer.queueReply(withStatus(responseId, static_cast<int16_t>(status), 0x10400));
        };
        QVERIFY(!r.f->engine.Upload());
        const QStringList log = r.log();
        QCOMPARE(log.at(log.size() - 5), lastLine);
        QCOMPARE(log.mid(log.size() - 4, 3),
                 (QStringList{"Close Communication Channel", "Shutdown Application Layer", "Shutdown Complete"}));
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(), message);
        QCOMPARE(count(r.requests(), QStringLiteral("ProgrammingVoltageOff()")), voltageOffs);
        QCOMPARE(r.f->display.nextPresses, 1); // the wizard moves on to the result
    }

    void validationFailureNeverOpensTheChannel()
    {
        RunFixture r(config(QStringLiteral("MEMORY1=0,1,NOCHIP\r\n")));
        QVERIFY(!r.f->engine.Upload());
        QCOMPARE(r.f->layersCreated, 0);
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Configuration failed Validation Checks\r\nFlash Memory Name Invalid NOCHIP"));
        QCOMPARE(r.log(), QStringList{"Firmware Upload Process completed in 0 Minutes 0 Seconds"});
    }

    // The message is the fixed one; the layer's reason, when it gives one, is a log line of
    // its own and the engine keeps it for the headless tool.
    void openFailureDropsTheChannelWithoutClosing_data()
    {
        QTest::addColumn<QString>("reason");
        QTest::newRow("without a reason") << "";
        QTest::newRow("with a reason") << "no permission to open /dev/ttyS0: join the dialout group";
    }
    void openFailureDropsTheChannelWithoutClosing()
    {
        QFETCH(QString, reason);
        RunFixture r(config());
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setOpenErrorCode(2);
            layer.setErrorText(reason);
        };
        QVERIFY(!r.f->engine.Upload());
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = Communications Port failed to initialise"));
        QStringList log{"UPLOAD FIRMWARE STARTED", reason, "Firmware Upload Process completed in 0 Minutes 0 Seconds"};
        log.removeAll(QString());
        QCOMPARE(r.log(), log);
        QCOMPARE(r.f->engine.openFailureReason(), reason);
        QVERIFY(!r.requests().contains(QStringLiteral("CloseChannel()")));
    }

    void transferFailure()
    {
        RunFixture r(config());
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.setTransferResult(255);
            layer.setErrorText(QStringLiteral("boot ROM did not answer"));
        };
        QVERIFY(!r.f->engine.Upload());
        QVERIFY(r.log().contains(QStringLiteral("Transfer Program Failed, Error Code = FF")));
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred uploading the Transfer Program boot ROM did not answer"));
        QVERIFY(r.requests().contains(QStringLiteral("Shutdown()")));

        RunFixture transferOnly(config());
        transferOnly.f->engine.setTransferOnly(true);
        transferOnly.f->prepareLayer = [](ScriptedAppLayer &layer) { layer.setTransferResult(-1); };
        QVERIFY(!transferOnly.f->engine.Upload());
        QVERIFY(transferOnly.log().contains(QStringLiteral("Transfer Program Failed, Error Code = FFFFFFFF")));
    }

    void restartAnswerIsAnError()
    {
        QString ini = config();
        ini.replace(QStringLiteral("BAUD=115200\r\n"), QStringLiteral("BAUD=115200\r\nCONTINUE=no\r\n"));
        RunFixture r(ini);
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            for (int i = 0; i < 17; ++i) // every request of the run before the restart
                layer.queueReply(ScriptedAppLayer::Reply{});
            layer.queueReply(withStatus(32, 67));
        };
        QVERIFY(!r.f->engine.Upload());
        const QStringList log = r.log();
        QCOMPARE(log.at(log.size() - 5), QStringLiteral("Instrument Restarted"));
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(), QStringLiteral("GENERAL ERROR, Code =43"));
    }

    // Also: the read-back range and the image are announced before their first block, and every
    // block lies within what was announced.
    void blocksAndPercentagesOfA1000ByteImage()
    {
        RunFixture r(config());
        QVERIFY(r.f->engine.Upload());
        QList<QVariantList> blocks, announced;
        for (const auto &call : *r.f->calls) {
            if (call.name == QStringLiteral("AnnounceRange"))
                announced << call.args;
            const bool read = call.name == QStringLiteral("ReadMemory");
            if (!read && call.name != QStringLiteral("ProgramBlock"))
                continue;
            const int start = call.args.at(read ? 1 : 0).toInt(), count = call.args.at(read ? 2 : 1).toInt();
            QVERIFY(!announced.isEmpty() && start >= announced.last().at(0).toInt()
                    && start + count <= announced.last().at(0).toInt() + announced.last().at(1).toInt());
            if (!read)
                blocks << call.args;
        }
        QCOMPARE(announced, (QList<QVariantList>{{0, 1000}, {0x10000, 1000}}));
        QCOMPARE(blocks.size(), 5);
        const QList<int> offsets = {0, 240, 480, 720, 960};
        const QList<int> sizes = {240, 240, 240, 240, 40};
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(blocks[i].at(0).toInt(), 0x10000 + offsets[i]);
            QCOMPARE(blocks[i].at(1).toInt(), sizes[i]);
            QCOMPARE(blocks[i].at(4).toByteArray(), TestPackage::pattern(1000).mid(offsets[i], sizes[i]));
        }
        QVERIFY(r.log().contains(QStringLiteral("Block Count = 5")));
        // The step bar of the wizard: read-back and programming each report 0, 23, 47, 71, 95, 99.
        const QList<double> expected = {0, 0, 23, 47, 71, 95, 99, 0, 23, 47, 71, 95, 99};
        QCOMPARE(r.f->display.stepBar, expected);
    }

    void exactMultipleSendsNoEmptyBlock()
    {
        RunFixture r(config(OneErase, QStringLiteral("PROGRAM1=0X20000,TEXT_EN.BIN\r\n")));
        QVERIFY(r.f->engine.Upload());
        int blocks = 0;
        for (const auto &call : *r.f->calls)
            if (call.name == QStringLiteral("ProgramBlock") && call.args.at(0).toInt() >= 0x20000)
                ++blocks;
        QCOMPARE(blocks, 2); // 480 bytes in two blocks of 240
    }

    // A program entry named like a read-back file writes back the bytes this run read into
    // that file, with their checksum; one that cannot be written back stops the run before
    // anything is erased.
    void writeBack_data()
    {
        QTest::addColumn<QString>("files"); // more FILES entries
        QTest::addColumn<QString>("message"); // "" for success
        QTest::newRow("the bytes read back, in any case of the name") << "PROGRAM1=0X400,cal.bin\r\n" << "";
        QTest::newRow("a file that no longer holds what was read")
            << "UPLOAD1=0X100,0X10,CAL.BIN\r\nPROGRAM1=0X400,CAL.BIN\r\n"
            << "Program Entry Invalid CAL.BIN: its read-back file CAL.BIN holds 16 of the 1000 bytes read back; nothing was erased";
        QTest::newRow("a range in no memory") << "PROGRAM1=0X7FFF0,CAL.BIN\r\n"
                                              << "Program Entry Invalid CAL.BIN: the range H7FFF0 to H803D8 lies in no flash memory; "
                                                 "nothing was erased";
    }
    void writeBack()
    {
        QFETCH(QString, files);
        QFETCH(QString, message);
        RunFixture r(config(OneErase, files));
        r.f->prompt.answers = {true}; // a second read-back into the same file may replace it
        QCOMPARE(r.f->engine.Upload(), message.isEmpty());
        if (!message.isEmpty()) {
            QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(), message);
            QCOMPARE(r.log().at(r.log().size() - 5), QStringLiteral("Download Flash Memories Completed"));
            QVERIFY(!r.requests().contains(QStringLiteral("ProgrammingVoltageOn()")));
            return;
        }
        QByteArray written;
        for (const auto &call : *r.f->calls)
            if (call.name == QStringLiteral("ProgramBlock") && call.args.at(0).toInt() < 0x10000)
                written += call.args.at(4).toByteArray();
        QFile saved(r.outPath(QStringLiteral("CAL.BIN")));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(written, saved.readAll());
        QCOMPARE(written.size(), 1000);
        QVERIFY(r.requests().contains(QStringLiteral("RequestChecksum(3,1024,1000)")));
        QVERIFY(r.log().contains(QStringLiteral("Block Count = 5")));
    }

    void checksums_data()
    {
        QTest::addColumn<int>("target");
        QTest::addColumn<bool>("matches");
        const int host = [] {
            uint32_t sum = 0;
            for (char c : TestPackage::pattern(1000))
                sum += static_cast<uint8_t>(c);
            return static_cast<int>(sum & 0xFF);
        }();
        QTest::newRow("equal") << host << true;
        QTest::newRow("wider value with the same low byte") << (host | 0x100) << false;
        QTest::newRow("different") << ((host + 1) & 0xFF) << false;
    }
    void checksums()
    {
        QFETCH(int, target);
        QFETCH(bool, matches);
        RunFixture r(config(OneErase, QStringLiteral("PROGRAM1=0X20000,TEXT_EN.BIN\r\n")));
        r.f->prepareLayer = [&](ScriptedAppLayer &layer) {
            for (int i = 0; i < 16; ++i) // up to the first checksum request
                layer.queueReply(ScriptedAppLayer::Reply{});
            ScriptedAppLayer::Reply reply = ScriptedAppLayer::response(166);
            reply.checksum = target;
            layer.queueReply(reply);
        };
        QCOMPARE(r.f->engine.Upload(), matches);
        const QString targetHex = QString::number(target, 16).toUpper();
        if (matches) {
            QVERIFY(r.log().contains(QStringLiteral("Checksum Matches, Host = H") + targetHex));
        } else {
            const QStringList log = r.log();
            QVERIFY2(log.at(log.size() - 5).startsWith(QStringLiteral("Checksum Error,  Target = H") + targetHex + " Host = H"),
                     qPrintable(log.at(log.size() - 5)));
            QCOMPARE(r.f->engine.QX_Error_GetLastError(), 0); // a mismatch records no code
            // The second image is never programmed.
            for (const auto &call : *r.f->calls)
                QVERIFY(call.name != QStringLiteral("ProgramBlock") || call.args.at(0).toInt() < 0x20000);
        }
    }

    void hostChecksumExamples()
    {
        // 61 62 63 sums to 126: checksum 26. 300 bytes of FF sum to 12AD4: checksum D4.
        QString ini = config(OneErase);
        ini.replace(QStringLiteral("PROGRAM=0X10000,MAIN.BIN"), QStringLiteral("PROGRAM=0X10000,ABC.BIN\r\nPROGRAM1=0X11000,FF.BIN"));
        RunFixture s(ini, true, {{QStringLiteral("ABC.BIN"), QByteArray("abc")}, {QStringLiteral("FF.BIN"), QByteArray(300, '\xFF')}});
        QVERIFY(s.f->engine.Upload());
        QVERIFY(s.log().contains(QStringLiteral("Checksum Matches, Host = H26")));
        QVERIFY(s.log().contains(QStringLiteral("Checksum Matches, Host = HD4")));
    }

    void memorySelection_data()
    {
        QTest::addColumn<QString>("memories");
        QTest::addColumn<QString>("erase");
        QTest::addColumn<int>("flashIndex"); // 0: configuration error
        QTest::newRow("exact range") << "MEMORY1=0X100000,0X10000,I28F010\r\n" << "0X100000,0X10000" << 18;
        QTest::newRow("later memory wins") << "MEMORY1=0X0,0X100000,I28F016\r\n" << "0X10000,0X100" << 23;
        QTest::newRow("in no memory") << "" << "0X90000,0X100" << 0;
        QTest::newRow("above 2^31") << "MEMORY1=0X80000000,0X10000,AM28F020\r\n" << "0X80001000,0X100" << 19;
        QTest::newRow("top of the space, end wraps to 0")
            << "MEMORY1=0XFFF00000,0X100000,I28F020\r\n" << "0XFFFFFF00,0X100" << 20;
        QTest::newRow("a memory across 2^31 never holds")
            << "MEMORY1=0X7FFF0000,0X20000,AM29F010\r\n" << "0X7FFF1000,0X100" << 0;
    }
    void memorySelection()
    {
        QFETCH(QString, memories);
        QFETCH(QString, erase);
        QFETCH(int, flashIndex);
        RunFixture r(config(memories + QStringLiteral("ERASE=") + erase + QStringLiteral("\r\n")));
        QCOMPARE(r.f->engine.QX_Error_GetLastError(), 0);
        const bool ok = r.f->engine.Upload();
        const auto deletes = [&] {
            QList<QVariantList> out;
            for (const auto &call : *r.f->calls)
                if (call.name == QStringLiteral("FlashDelete"))
                    out << call.args;
            return out;
        }();
        if (flashIndex == 0) {
            QVERIFY(!ok);
            QVERIFY(deletes.isEmpty());
            const QStringList log = r.log();
            QVERIFY(log.contains(QStringLiteral("FlashErase Configuration Error")));
            QVERIFY(log.contains(QStringLiteral("Erase Flash Memories Completed"))); // the voltage is still switched off
            QVERIFY(!log.contains(QStringLiteral("Program Flash Memories Started")));
        } else {
            QVERIFY(ok);
            QCOMPARE(deletes.size(), 1);
            QCOMPARE(deletes[0].at(0).toInt(), 3); // B32
            QCOMPARE(deletes[0].at(1).toInt(), flashIndex);
        }
    }

    void secondProgramInNoMemory()
    {
        RunFixture r(config(OneErase, QStringLiteral("PROGRAM1=0X90000,TEXT_EN.BIN\r\n")));
        QVERIFY(!r.f->engine.Upload());
        const QStringList log = r.log();
        QVERIFY(log.contains(QStringLiteral("Block Count = 5")));
        QCOMPARE(log.at(log.size() - 6), QStringLiteral("Program Configuration ERROR"));
        QCOMPARE(log.at(log.size() - 5), QStringLiteral("Program Flash Memories Completed"));
        QCOMPARE(count(r.requests(), QStringLiteral("ProgrammingVoltageOn()")), 3);
        QCOMPARE(count(r.requests(), QStringLiteral("ProgrammingVoltageOff()")), 2); // left on for the second
    }

    void longEraseTicksUpToTheLimit()
    {
        RunFixture r(config());
        int64_t now = 0;
        // Every look at the clock is 200 ms later, so every turn of the wait is a tick.
        r.f->engine.setClock({[&now] { return now += 200; }, [] { return 0.0; }});
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            for (int i = 0; i < 7; ++i)
                layer.queueReply(ScriptedAppLayer::Reply{});
            layer.queueReply(ScriptedAppLayer::silence());
        };
        int ticksSeen = 0;
        QList<int> counts;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            counts << r.f->engine.ProgressCount;
            if (++ticksSeen == 12) { // then let the erase finish
                auto *layer = static_cast<ScriptedAppLayer *>(r.f->engine.appLayer());
                layer->applyNow(withStatus(167, 0));
                emit layer->Trovex_Response(167);
            }
        });
        poll.start(50);
        QVERIFY(r.f->engine.Upload());
        const int limit = r.f->engine.ProgressAfterErase;
        // 10 transfer + 10 identification + 5 read blocks = 25 before the erase; it creeps
        // by 10s while below the limit, so it ends at most 9 above it.
        QVERIFY(std::all_of(counts.begin(), counts.end(), [&](int c) { return c <= limit + 9; }));
        QVERIFY(counts.contains(35) && counts.contains(45));
        QVERIFY(r.f->display.frames.size() >= 10);
    }

    void emptyDeliveryIsRetriedThenRefused()
    {
        RunFixture r(config());
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.setReadSource([](int32_t address, int32_t count) {
                return address < 480 ? QByteArray(count, 'c') : QByteArray();
            });
        };
        QVERIFY(!r.f->engine.Upload());
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = 0 The instrument delivered no data at address H1E0 (3 attempts)"));
        QCOMPARE(count(r.requests(), QStringLiteral("ReadMemory(3,480,240)")), 3);
        QVERIFY(!r.requests().contains(QStringLiteral("ProgrammingVoltageOn()"))); // nothing erased
        QVERIFY(!QFile::exists(r.outPath(QStringLiteral("CAL.BIN"))) || QFileInfo(r.outPath(QStringLiteral("CAL.BIN"))).size() == 0);
    }

    void shortDeliveriesContinueRightAfterThem()
    {
        RunFixture r(config());
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.setReadSource([](int32_t address, int32_t count) {
                QByteArray bytes(std::min(count, 100), '\0');
                for (int i = 0; i < bytes.size(); ++i)
                    bytes[i] = static_cast<char>((address + i) * 3);
                return bytes;
            });
        };
        QVERIFY(r.f->engine.Upload());
        const QStringList reads = r.requests().filter(QStringLiteral("ReadMemory"));
        QCOMPARE(reads.size(), 10);
        QCOMPARE(reads.at(1), QStringLiteral("ReadMemory(3,100,240)"));
        QCOMPARE(reads.at(9), QStringLiteral("ReadMemory(3,900,100)"));
        QFile saved(r.outPath(QStringLiteral("CAL.BIN")));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        const QByteArray bytes = saved.readAll();
        QCOMPARE(bytes.size(), 1000);
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(static_cast<uint8_t>(bytes[i]), static_cast<uint8_t>(i * 3));
    }

    void componentErrorAfterARead()
    {
        RunFixture r(config());
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.queueReply(ScriptedAppLayer::Reply{});
            ScriptedAppLayer::Reply read = withStatus(164, 0);
            read.readData = QByteArray(240, 'x');
            read.errorCodes = {0, 7};
            read.errorText = QStringLiteral(" buffer overrun ");
            layer.queueReply(read);
        };
        QVERIFY(!r.f->engine.Upload());
        QCOMPARE(r.f->engine.QX_Error_GetLastErrorString(),
                 QStringLiteral("Error occurred in communications layer, Code = 7  buffer overrun "));
        QCOMPARE(r.log().at(r.log().size() - 5), QStringLiteral("Read File = CAL.BIN"));
    }

    void aFailedReadBackKeepsTheEarlierFile()
    {
        RunFixture r(config());
        const QString cal = r.outPath(QStringLiteral("CAL.BIN"));
        QFile old(cal);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("earlier calibration");
        old.close();
        r.f->prompt.answers = {true};
        r.f->prepareLayer = [](ScriptedAppLayer &layer) {
            layer.queueReply(ScriptedAppLayer::Reply{});
            layer.queueReply(ScriptedAppLayer::Reply{});
            layer.queueReply(withStatus(164, 32));
        };
        QVERIFY(!r.f->engine.Upload());
        QFile kept(cal);
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("earlier calibration"));
    }

    void blockCountPast16BitsIsNotWrapped()
    {
        QString ini = config(QString());
        ini.replace(QStringLiteral("BAUD=115200\r\n"), QStringLiteral("BAUD=115200\r\nMAXPROGLEN=1\r\n"));
        ini.replace(QStringLiteral("UPLOAD=0X0,0X3E8,CAL.BIN\r\n"), QString());
        ini.replace(QStringLiteral("MAIN.BIN"), QStringLiteral("BIG.BIN"));
        RunFixture r(ini, true, {{QStringLiteral("BIG.BIN"), TestPackage::pattern(32800)}});
        QVERIFY(r.f->engine.Upload());
        QVERIFY(r.log().contains(QStringLiteral("Block Count = 32800")));
    }
};

QTEST_GUILESS_MAIN(FlashPassesTest)
#include "tst_flash_passes.moc"
