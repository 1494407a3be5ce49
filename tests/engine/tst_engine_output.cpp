// The engine's output helpers in both reporting modes, Cancel, and the simple members.
#include "tests/support/EngineFixture.h"

#include <QSignalSpy>
#include <QtTest>

class EngineOutputTest : public QObject {
    Q_OBJECT
private slots:
    void logListHasNewestLineOnTop()
    {
        EngineFixture f;
        f.enterWizardMode();
        f.engine.AddLogLine(QStringLiteral("A"));
        f.engine.AddLogLine(QStringLiteral("B"));
        f.engine.AddLogLine(QStringLiteral("C"));
        QCOMPARE(f.display.log, (QStringList{"C", "B", "A"}));
    }

    void showActionClampsAboveHundredIntoTheCallersVariable()
    {
        EngineFixture f;
        f.enterWizardMode();
        int16_t percent = 150;
        f.engine.ShowAction(QStringLiteral("Program File = X"), percent);
        QCOMPARE(percent, int16_t(100));
        QCOMPARE(f.display.stepBar, QList<double>{100.0});
        QCOMPARE(f.display.actionText, QStringLiteral("Program File = X"));

        int16_t negative = -1; // no lower bound
        f.engine.ShowAction(QStringLiteral("Y"), negative);
        QCOMPARE(negative, int16_t(-1));
        QCOMPARE(f.display.stepBar.last(), -1.0);
    }

    void entireProgressRedrawsOnlyAfterAHundredthOfGrowth()
    {
        EngineFixture f;
        f.enterWizardMode();
        f.engine.ProgressTotal = 100;
        for (int v : {10, 20, 30}) {
            f.engine.ProgressCount = v;
            f.engine.UpdateEntireProgress();
        }
        QCOMPARE(f.display.entireBar.size(), 3);
        QCOMPARE(f.display.entireBar.last(), (std::pair<int32_t, int32_t>{30, 100}));

        f.engine.ProgressTotal = 2000;
        f.engine.ProgressCount = 1000;
        f.engine.UpdateEntireProgress();
        f.engine.ProgressCount = 1005; // 1000 + 10.05 > 1005
        f.engine.UpdateEntireProgress();
        QCOMPARE(f.display.entireBar.last().first, 1000);
        f.engine.ProgressCount = 1011;
        f.engine.UpdateEntireProgress();
        QCOMPARE(f.display.entireBar.last().first, 1011);
        QCOMPARE(f.engine.ProgressDrawn, 1011);
    }

    void entireProgressIgnoresNegativeAndIsNotClamped()
    {
        EngineFixture f;
        f.enterWizardMode();
        f.engine.ProgressTotal = 10;
        f.engine.ProgressCount = -5;
        f.engine.UpdateEntireProgress();
        QVERIFY(f.display.entireBar.isEmpty());
        f.engine.ProgressCount = 25;
        f.engine.UpdateEntireProgress();
        QCOMPARE(f.display.entireBar.last(), (std::pair<int32_t, int32_t>{25, 10}));
    }

    void animationRunsForwardsAndBackwards()
    {
        EngineFixture f;
        f.enterWizardMode();
        for (int i = 0; i < 6; ++i)
            f.engine.AnimateStep();
        QCOMPARE(f.display.frames, (QList<int>{0, 1, 2, 3, 0, 1}));

        f.display.frames.clear();
        QCOMPARE(f.engine.AnimationFrame, int16_t(2));
        f.engine.AnimationFrame = 1;
        f.engine.AnimateReverse = true;
        for (int i = 0; i < 3; ++i)
            f.engine.AnimateStep();
        QCOMPARE(f.display.frames, (QList<int>{1, 0, 3}));
    }

    void outsideWizardModeHelpersRaiseSignals()
    {
        EngineFixture f;
        QSignalSpy progress(&f.engine, &QX_UploadProcess::ProgressUpdate);
        QSignalSpy action(&f.engine, &QX_UploadProcess::ActionUpdate);

        int16_t percent = 150;
        f.engine.ShowAction(QStringLiteral("Read File = CAL.BIN"), percent);
        QCOMPARE(percent, int16_t(150));
        QCOMPARE(progress.size(), 1);
        QCOMPARE(progress.at(0).at(0).toString(), QStringLiteral("Read File = CAL.BIN"));
        QCOMPARE(progress.at(0).at(1).value<int16_t>(), int16_t(150));

        f.engine.AddLogLine(QStringLiteral("line"));
        f.engine.AppendSummary(QStringLiteral("piece"));
        QCOMPARE(action.size(), 2);
        QCOMPARE(action.at(0).at(0).toString(), QStringLiteral("line"));
        QCOMPARE(action.at(1).at(0).toString(), QStringLiteral("piece"));

        f.engine.ProgressTotal = 100;
        f.engine.ProgressCount = 50;
        f.engine.UpdateEntireProgress();
        f.engine.AnimateStep();
        QCOMPARE(f.engine.ProgressDrawn, 0);
        QCOMPARE(f.engine.AnimationFrame, int16_t(0));
        QVERIFY(f.display.entireBar.isEmpty());
        QVERIFY(f.display.frames.isEmpty());
        QVERIFY(f.display.log.isEmpty());
    }

    void inWizardModeNoSignalsAreRaised()
    {
        EngineFixture f;
        f.enterWizardMode();
        QSignalSpy progress(&f.engine, &QX_UploadProcess::ProgressUpdate);
        QSignalSpy action(&f.engine, &QX_UploadProcess::ActionUpdate);
        int16_t percent = 5;
        f.engine.ShowAction(QStringLiteral("x"), percent);
        f.engine.AddLogLine(QStringLiteral("x"));
        f.engine.AppendSummary(QStringLiteral("y"));
        QCOMPARE(progress.size(), 0);
        QCOMPARE(action.size(), 0);
        QCOMPARE(f.display.summary, QStringLiteral("y"));
    }

    void cancelInWizardModeWritesTheFinishedText()
    {
        EngineFixture f;
        f.enterWizardMode();
        f.engine.Cancel();
        QCOMPARE(f.display.resultText, QStringLiteral("Firmware Upload Cancelled"));
        QVERIFY(f.engine.CancelRequested);
        QCOMPARE(f.engine.QX_Error_GetLastError(), 11);
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("Process Cancelled by User"));
        QVERIFY(f.display.log.isEmpty());
    }

    void cancelOutsideWizardModeLogsAndClearsTheText()
    {
        EngineFixture f;
        f.engine.QX_Error_SetLastErrorString(QStringLiteral("old text"));
        QSignalSpy action(&f.engine, &QX_UploadProcess::ActionUpdate);
        f.engine.Cancel();
        QCOMPARE(action.size(), 1);
        QCOMPARE(action.at(0).at(0).toString(), QStringLiteral("Upload Cancel Received"));
        QCOMPARE(f.engine.QX_Error_GetLastErrorString(), QStringLiteral("Process Cancelled by User"));
    }

    void wizardModeShowsTheWindow()
    {
        EngineFixture f;
        QVERIFY(!f.engine.WizardRunning);
        f.display.showWindowResult = false;
        QVERIFY(f.engine.UploadWizard_Running(f.display));
        QVERIFY(f.engine.WizardRunning);
        QCOMPARE(f.display.readme, QStringLiteral("Readme File Not Found"));
    }

    void restartInstrumentIsTheNegatedContinueFlag()
    {
        EngineFixture f;
        QVERIFY(!f.engine.RestartInstrument());
        f.engine.ContinueFlag = false;
        QVERIFY(f.engine.RestartInstrument());
    }

    void engineForwardsItsLastError()
    {
        EngineFixture f;
        QX_ErrorInterface &error = f.engine;
        error.QX_Error_SetLastError(12);
        error.QX_Error_SetLastErrorString(QStringLiteral("\r\nInvalid Communication Speed"));
        QCOMPARE(f.engine.ErrorHolder().GetLastError(), 12);
        QCOMPARE(error.QX_Error_GetLastErrorString(),
                 QStringLiteral("Configuration failed Validation Checks\r\nInvalid Communication Speed"));
    }
};

QTEST_GUILESS_MAIN(EngineOutputTest)
#include "tst_engine_output.moc"
