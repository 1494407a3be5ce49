// Whole updates of the simulated instrument over a real pseudo-terminal, through the real
// application layer: the flash ends up equal to the images, the calibration data is saved
// byte for byte, and faults end in clear errors or are ridden out by retransmission.
#include "tests/e2e/SerialUpdate.h"
#include "link/FrameDecoder.h"
#include "link/Protocol.h"

#include <QCoreApplication>
#include <QTcpSocket>

#include <QtTest>


class EndToEndSerialTest : public QObject {
    Q_OBJECT
private:
    CalibrationFile m_calibrationFile;
    const QString m_calibration = m_calibrationFile.path();

private slots:

    void fullUpdate()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration));
        QVERIFY(instrument.started());
        Update update(instrument.device());
        QCOMPARE(update.engine.QX_Error_GetLastError(), 0);
        QVERIFY2(update.run(), qPrintable(update.message()));
        QVERIFY(update.log.contains(QStringLiteral("Manufacturer H1, Device HA4")));
        QVERIFY(update.log.contains(QStringLiteral("Instrument Restarted")));
        QCOMPARE(update.savedCalibration(), Calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000), expectedLanguageChip());
    }

    void transferOnly()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration));
        Update update(instrument.device());
        update.engine.setTransferOnly(true);
        QVERIFY2(update.run(), qPrintable(update.message()));
        QVERIFY(!update.log.contains(QStringLiteral("Transfer Program Running")));
        QByteArray untouched(512 * 1024, '\xFF');
        untouched.replace(0, Calibration.size(), Calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), untouched);
    }

    void wrongChecksum()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--wrong-checksum")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QVERIFY(std::any_of(update.log.begin(), update.log.end(),
                            [](const QString &l) { return l.startsWith(QStringLiteral("Checksum Error,  Target = H")); }));
    }

    void failedErase()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--fail-erase"), QStringLiteral("0x20000")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("FLASH ERASE ERROR, failed at address = 20000"));
        QVERIFY(update.log.contains(QStringLiteral("FlashDelete ERROR")));
    }

    // Blocks are answered once on their way; the instrument's "failed" for one of them comes
    // with the next block, and still names the failing address.
    void aBlockThatFailsIsReportedWithItsAddress()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--fail-program"), QStringLiteral("0x12345")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("PROGRAMMING ERROR, failed at address 12345"));
        QVERIFY(update.log.contains(QStringLiteral("Prog ERROR")));
    }

    void aLastBlockThatFailsStopsTheRunBeforeTheChecksum()
    {
        // The language image ends at 0x101388: its last block has nothing behind it.
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--fail-program"), QStringLiteral("0x101380")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("Error occurred in communications layer, Code = 15 the instrument could not "
                                                  "program the block at H101380 (status 67); it said so after the blocks behind "
                                                  "it were on their way"));
        QVERIFY(!std::any_of(update.log.begin(), update.log.end(),
                             [](const QString &l) { return l.startsWith(QStringLiteral("Checksum( H2 , H100000")); }));
    }

    void refusedVoltage()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--refuse-voltage")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("PROGRAMMING POWER ON ERROR0"));
        QCOMPARE(update.savedCalibration(), Calibration); // saved before anything else went wrong
    }

    void thePortVanishesWhileProgramming()
    {
        // The transfer program, identification and read-back take some 3 KB: the port goes
        // in the middle of the main image.
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--disconnect-after"), QStringLiteral("12000")}));
        Update update(instrument.device());
        QVERIFY(!update.run());
        QVERIFY(update.log.contains(QStringLiteral("Prog ERROR")));
        QCOMPARE(update.engine.QX_Error_GetLastError(), 111);
        QCOMPARE(update.message(), QStringLiteral("Error occurred in communications layer, Code = 11 the serial port %1 went "
                                                  "away; check the cable and the USB adapter").arg(instrument.device()));
        QCOMPARE(update.savedCalibration(), Calibration);
    }

    void noiseOnTheLineIsRiddenOut_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::newRow("one byte in 1000 damaged") << QStringList{"--corrupt-rate", "0.001", "--seed", "7"};
        QTest::newRow("another seed") << QStringList{"--corrupt-rate", "0.001", "--seed", "8"};
        QTest::newRow("one byte in 1000 lost") << QStringList{"--drop-rate", "0.001", "--seed", "9"};
    }
    void noiseOnTheLineIsRiddenOut()
    {
        QFETCH(QStringList, faults);
        InstrumentProcess instrument(instrumentArgs(m_calibration, faults));
        Update update(instrument.device());
        QVERIFY2(update.run(), qPrintable(update.message()));
        QCOMPARE(update.savedCalibration(), Calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
    }

    void aSecondRunAfterAFailedOneCompletes()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration));
        Update bad(instrument.device(), QByteArray("XXXX") + TransferProgram.mid(4));
        QVERIFY(!bad.run());
        QVERIFY(bad.log.contains(QStringLiteral("Transfer Program Failed, Error Code = 2")));
        QCOMPARE(bad.engine.QX_Error_GetLastError(), 110);

        Update good(instrument.device());
        good.prompt.answers = {true}; // CAL.BIN of the first run's folder is another file; nothing asked here
        QVERIFY2(good.run(), qPrintable(good.message()));
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
    }

    void theInstrumentAlsoServesALocalTcpPort()
    {
        const auto port = static_cast<quint16>(20000 + QCoreApplication::applicationPid() % 20000);
        InstrumentProcess instrument(instrumentArgs(m_calibration, {QStringLiteral("--tcp"), QString::number(port)}));
        QVERIFY(instrument.started());
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), port);
        QVERIFY(socket.waitForConnected(5000));
        // The boot ROM takes a block whose sum matches and refuses one whose sum does not.
        const QByteArray block("KDTP");
        socket.write(Frame{1, Protocol::LoadBlock, Protocol::Writer().u32(0x20000).u8(uint8_t('K' + 'D' + 'T' + 'P')).bytes(block).done()}.encode());
        socket.write(Frame{2, Protocol::LoadBlock, Protocol::Writer().u32(0x20000).u8(0).bytes(block).done()}.encode());
        FrameDecoder decoder;
        QList<Frame> replies;
        while (replies.size() < 2 && socket.waitForReadyRead(5000))
            replies += decoder.feed(socket.readAll());
        QCOMPARE(replies.size(), 2);
        QCOMPARE(Protocol::Reader(replies[0].payload).u16(), Protocol::Status::Ok);
        QCOMPARE(replies[1].sequence, uint8_t(2));
        QCOMPARE(Protocol::Reader(replies[1].payload).u16(), Protocol::Status::BadBlockSum);
    }

    void aMissingDeviceSaysSo()
    {
        Update update(QStringLiteral("/dev/does-not-exist"));
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("Error occurred in communications layer, Code = Communications Port failed to "
                                                  "initialise: the serial device /dev/does-not-exist does not exist; check the "
                                                  "port name and the TROVEX_PORTS map"));
    }
};

QTEST_GUILESS_MAIN(EndToEndSerialTest)
#include "tst_e2e_serial.moc"
