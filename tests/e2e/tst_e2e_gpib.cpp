// Whole updates of the simulated instrument on a GPIB bus, behind its emulated "++"
// controller on a pseudo-terminal or a local TCP port, through the real application layer.
#include "tests/e2e/SerialUpdate.h"

#include <QCoreApplication>

#include <QtTest>

namespace {
constexpr int InstrumentAddress = 6;

QStringList gpibArgs(const QString &calibration, const QStringList &more = {})
{
    return instrumentArgs(calibration, QStringList{QStringLiteral("--gpib"), QString::number(InstrumentAddress)} + more);
}

QString gpibMap(const QString &where, int address = InstrumentAddress)
{
    return QStringLiteral("GPIB0=%1,%2").arg(where).arg(address);
}
} // namespace

class EndToEndGpibTest : public QObject {
    Q_OBJECT
private:
    CalibrationFile m_calibrationFile;
    const QString m_calibration = m_calibrationFile.path();

private slots:
    void fullUpdateThroughAUsbController()
    {
        InstrumentProcess instrument(gpibArgs(m_calibration));
        QVERIFY(instrument.started());
        Update update(QStringLiteral("GPIB0"), gpibMap(instrument.device()));
        QVERIFY2(update.run(), qPrintable(update.message()));
        QVERIFY(update.log.contains(QStringLiteral("Please connect your instrument using a GPIB Cable")));
        QCOMPARE(update.savedCalibration(), Calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000), expectedLanguageChip());
    }

    void fullUpdateThroughANetworkController()
    {
        const auto port = static_cast<quint16>(20000 + (QCoreApplication::applicationPid() + 7) % 20000);
        InstrumentProcess instrument(gpibArgs(m_calibration, {QStringLiteral("--tcp"), QString::number(port)}));
        Update update(QStringLiteral("GPIB0"), gpibMap(QStringLiteral("127.0.0.1:%1").arg(port)));
        QVERIFY2(update.run(), qPrintable(update.message()));
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
    }

    void noInstrumentAtThatAddress()
    {
        InstrumentProcess instrument(gpibArgs(m_calibration));
        Update update(QStringLiteral("GPIB0"), gpibMap(instrument.device(), 7));
        QVERIFY(!update.run());
        QCOMPARE(update.message(), QStringLiteral("Error occurred uploading the Transfer Program no instrument answers at GPIB "
                                                  "address 7 behind the GPIB controller on %1; check the address set on the "
                                                  "instrument, the address in TROVEX_PORTS and the GPIB cable")
                                       .arg(instrument.device()));
        QVERIFY(update.savedCalibration().isEmpty()); // nothing was read, nothing written
    }

    void theControllerVanishesWhileProgramming()
    {
        InstrumentProcess instrument(gpibArgs(m_calibration, {QStringLiteral("--disconnect-after"), QStringLiteral("12000")}));
        Update update(QStringLiteral("GPIB0"), gpibMap(instrument.device()));
        QVERIFY(!update.run());
        QCOMPARE(update.engine.QX_Error_GetLastError(), 111);
        QCOMPARE(update.message(), QStringLiteral("Error occurred in communications layer, Code = 11 the GPIB controller on %1 "
                                                  "went away; check its USB cable")
                                       .arg(instrument.device()));
        QCOMPARE(update.savedCalibration(), Calibration);
    }

    void aDeviceThatIsNoController()
    {
        InstrumentProcess serialInstrument(instrumentArgs(m_calibration)); // answers frames, not "++" commands
        Update update(QStringLiteral("GPIB0"), gpibMap(serialInstrument.device()));
        QVERIFY(!update.run());
        QVERIFY2(update.message().endsWith(QStringLiteral("the GPIB controller on %1 does not answer (no reply to ++ver); check "
                                                          "that it is a \"++\" GPIB controller and that it is switched on")
                                               .arg(serialInstrument.device())),
                 qPrintable(update.message()));
    }
};

QTEST_GUILESS_MAIN(EndToEndGpibTest)
#include "tst_e2e_gpib.moc"
