// Whole updates of the simulated instrument over a real pseudo-terminal, through the real
// application layer: the flash ends up equal to the images, the calibration data is saved
// byte for byte, and faults end in clear errors or are ridden out by retransmission.
#include "engine/QX_UploadProcess.h"
#include "tests/e2e/InstrumentProcess.h"
#include "tests/support/ScriptedPrompt.h"
#include "tests/support/TestPackage.h"
#include "trovex/Trovex.h"
#include "wizard/QX_CommandLine.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QByteArray randomBytes(int size, uint32_t seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        seed = seed * 1103515245u + 12345u;
        bytes[i] = char(seed >> 16);
    }
    return bytes;
}

const QByteArray Calibration = randomBytes(0x400, 1);
const QByteArray MainImage = randomBytes(20000, 2);
const QByteArray TextImage = randomBytes(5000, 3);
const QByteArray TransferProgram = QByteArray("KDTP") + randomBytes(1500, 4);

// One update: a package in a folder, an engine on the real layer, and the instrument.
struct Update {
    QTemporaryDir folder;
    TestPackage package;
    ScriptedPrompt prompt;
    QString device;
    QStringList log;
    QX_UploadProcess engine{[this] { return std::make_unique<Trovex>(PortMap(QStringLiteral("COM1=") + device)); }, prompt};

    explicit Update(const QString &instrumentDevice, const QByteArray &transfer = TransferProgram) : device(instrumentDevice)
    {
        const QString config = QStringLiteral(
            "[HOST]\r\nPORTS=COM1\r\nUART=COM1\r\nBAUD=115200\r\nCONTINUE=NO\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
            "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
            "MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=0X100000,0X100000,AM29LV800\r\n"
            "ERASE=0X10000,0X30000\r\nERASE1=0X100000,0X10000\r\n"
            "[FILES]\r\nUPLOAD=0X0,0X400,%1/CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X100000,TEXT.BIN\r\n")
                                   .arg(folder.path());
        package.config(config).member(QStringLiteral("TP.BIN"), transfer).member(QStringLiteral("MAIN.BIN"), MainImage)
            .member(QStringLiteral("TEXT.BIN"), TextImage).select();
        QObject::connect(&engine, &QX_UploadProcess::ActionUpdate, &engine, [this](const QString &line) { log << line; });
        engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    }
    bool run() { return engine.Upload(); }
    QString message() const { return engine.QX_Error_GetLastErrorString(); }
    QByteArray savedCalibration() const
    {
        QFile file(folder.filePath(QStringLiteral("CAL.BIN")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

QStringList instrumentArgs(const QString &calibrationFile, const QStringList &faults = {})
{
    return QStringList{QStringLiteral("--flash"), QStringLiteral("AM29F040@0x0"), QStringLiteral("--flash"),
                       QStringLiteral("AM29LV800@0x100000"), QStringLiteral("--load"), calibrationFile + QStringLiteral("@0x0"),
                       QStringLiteral("--no-pacing"), QStringLiteral("--time-scale"), QStringLiteral("0")}
           + faults;
}

} // namespace

class EndToEndSerialTest : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_files;
    QString m_calibration;

    // The flash the instrument should hold after a full update.
    static QByteArray expectedMainChip()
    {
        QByteArray chip(512 * 1024, '\xFF');
        chip.replace(0, Calibration.size(), Calibration);
        chip.replace(0x10000, MainImage.size(), MainImage);
        return chip;
    }
    static QByteArray expectedLanguageChip()
    {
        QByteArray chip(1024 * 1024, '\xFF');
        chip.replace(0, TextImage.size(), TextImage);
        return chip;
    }

private slots:
    void initTestCase()
    {
        m_calibration = m_files.filePath(QStringLiteral("calibration.bin"));
        QFile file(m_calibration);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(Calibration);
    }

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
        QX_CommandLine line;
        line.setCommandLine(QStringLiteral("/TRANSFERONLY"));
        update.engine.setCommandLine(line);
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
        QVERIFY2(update.message().contains(QStringLiteral("went away")) || update.message().contains(QStringLiteral("did not answer")),
                 qPrintable(update.message()));
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

    void aMissingDeviceSaysSo()
    {
        Update update(QStringLiteral("/dev/does-not-exist"));
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("Error occurred in communications layer, Code = Communications Port failed to initialise"));
    }
};

QTEST_GUILESS_MAIN(EndToEndSerialTest)
#include "tst_e2e_serial.moc"
