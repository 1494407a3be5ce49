// The engine's output helpers in both reporting modes, and Cancel.
#include "tests/support/EngineFixture.h"

#include <QSignalSpy>
#include <QtTest>

class EngineOutputTest : public QObject {
    Q_OBJECT
private slots:
    void wizardModeDrawsIntoTheWindow()
    {
        EngineFixture f;
        f.enterWizardMode();
        QSignalSpy signalled(&f.engine, &QX_UploadProcess::ActionUpdate);
        for (const char *line : {"A", "B", "C"})
            f.engine.AddLogLine(QString::fromLatin1(line));
        QCOMPARE(f.display.log, (QStringList{"C", "B", "A"})); // newest on top
        int16_t percent = 150;
        f.engine.ShowAction(QStringLiteral("Program File = X"), percent);
        QCOMPARE(percent, int16_t(100)); // clamped in the caller's variable
        int16_t negative = -1;           // no lower bound
        f.engine.ShowAction(QStringLiteral("Y"), negative);
        QCOMPARE(f.display.stepBar, (QList<double>{100.0, -1.0}));
        QCOMPARE(signalled.size(), 0);
    }

    // A redraw only after growth by a hundredth of the value; negative values are not drawn,
    // values past the total are.
    void entireProgress_data()
    {
        QTest::addColumn<int>("total");
        QTest::addColumn<QList<int>>("counts");
        QTest::addColumn<QList<int>>("drawn");
        QTest::newRow("every step of 10") << 100 << QList<int>{10, 20, 30} << QList<int>{10, 20, 30};
        QTest::newRow("1005 after 1000 is too little") << 2000 << QList<int>{1000, 1005, 1011} << QList<int>{1000, 1011};
        QTest::newRow("negative, then past the total") << 10 << QList<int>{-5, 25} << QList<int>{25};
    }
    void entireProgress()
    {
        QFETCH(int, total);
        QFETCH(QList<int>, counts);
        QFETCH(QList<int>, drawn);
        EngineFixture f;
        f.enterWizardMode();
        f.engine.ProgressTotal = total;
        for (int count : counts) {
            f.engine.ProgressCount = count;
            f.engine.UpdateEntireProgress();
        }
        QList<int> values;
        for (const auto &[value, barTotal] : f.display.entireBar) {
            values << value;
            QCOMPARE(barTotal, total);
        }
        QCOMPARE(values, drawn);
    }

    void animationRunsForwardsAndBackwards()
    {
        EngineFixture f;
        f.enterWizardMode();
        for (int i = 0; i < 6; ++i)
            f.engine.AnimateStep();
        f.engine.AnimationFrame = 1;
        f.engine.AnimateReverse = true;
        for (int i = 0; i < 3; ++i)
            f.engine.AnimateStep();
        QCOMPARE(f.display.frames, (QList<int>{0, 1, 2, 3, 0, 1, 1, 0, 3}));
    }

    void outsideWizardModeHelpersRaiseSignals()
    {
        EngineFixture f;
        QSignalSpy progress(&f.engine, &QX_UploadProcess::ProgressUpdate);
        QSignalSpy action(&f.engine, &QX_UploadProcess::ActionUpdate);
        int16_t percent = 150;
        f.engine.ShowAction(QStringLiteral("Read File = CAL.BIN"), percent);
        QCOMPARE(percent, int16_t(150)); // unchanged outside the window
        QCOMPARE(progress.at(0).at(1).value<int16_t>(), int16_t(150));
        f.engine.AddLogLine(QStringLiteral("line"));
        f.engine.AppendSummary(QStringLiteral("piece"));
        f.engine.Cancel();
        QCOMPARE(action.size(), 3);
        QCOMPARE(action.at(2).at(0).toString(), QStringLiteral("Upload Cancel Received"));
        f.engine.ProgressTotal = 100;
        f.engine.ProgressCount = 50;
        f.engine.UpdateEntireProgress();
        f.engine.AnimateStep();
        QVERIFY(f.display.entireBar.isEmpty() && f.display.frames.isEmpty() && f.display.log.isEmpty());
        QCOMPARE(f.engine.AnimationFrame, int16_t(0));
    }

    void cancelRecordsItsCodeAndClearsTheText()
    {
        EngineFixture f;
        f.enterWizardMode();
        f.engine.QX_Error_SetLastErrorString(QStringLiteral("old text"));
        f.engine.Cancel();
        QCOMPARE(f.display.resultText, QStringLiteral("Firmware Upload Cancelled"));
        QVERIFY(f.engine.CancelRequested);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("Process Cancelled by User"));
        QVERIFY(f.display.log.isEmpty());
    }
};

QTEST_GUILESS_MAIN(EngineOutputTest)
#include "tst_engine_output.moc"
