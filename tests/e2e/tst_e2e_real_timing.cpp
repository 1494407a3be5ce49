// A full update with the real timing: the line paced at 115200 baud in both directions and
// the flash taking its data-sheet times to erase and program, so busy frames carry the erase.
#include "tests/e2e/SerialUpdate.h"

#include <QtTest>

class EndToEndRealTimingTest : public QObject {
    Q_OBJECT
private:
    CalibrationFile m_calibration;

private slots:
    void fullUpdateAtTheLineRate()
    {
        InstrumentProcess instrument(instrumentArgs(m_calibration.path(), {}, /*realTiming=*/true));
        QVERIFY(instrument.started());
        Update update(instrument.device());
        QVERIFY2(update.run(), qPrintable(update.message()));
        QCOMPARE(update.savedCalibration(), Calibration);
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29F040"), 0), expectedMainChip());
        QCOMPARE(instrument.stopAndDump(QStringLiteral("AM29LV800"), 0x100000), expectedLanguageChip());
    }
};

QTEST_GUILESS_MAIN(EndToEndRealTimingTest)
#include "tst_e2e_real_timing.moc"
