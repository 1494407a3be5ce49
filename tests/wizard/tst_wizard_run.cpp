// The Upload and Finished steps (each result text, Cancel and closing during a run, the
// advanced display) and the start-up switches.
#include "tests/wizard/WizardFixture.h"

#include "engine/QX_UploadProcess.h"
#include "wizard/ProgressBox.h"

#include <QComboBox>
#include <QListWidget>
#include <QTimer>
#include <QtTest>

namespace {
const QString Success = QStringLiteral("The Firmware has been uploaded successfully to your instrument.\r\n\r\n");
QString continuing()
{
    QString config = WizardConfig;
    return config.remove(QStringLiteral("CONTINUE=NO\r\n"));
}
// A package that also reads calibration data back and erases before programming.
QString withReadBackAndErase()
{
    QString config = WizardConfig;
    return config.replace(QStringLiteral("[FILES]\r\n"), QStringLiteral("ERASE=0X10000,0X10000\r\n[FILES]\r\nUPLOAD=0X0,0X400,CAL.BIN\r\n"));
}
// Runs the update from the Settings step.
void execute(WizardFixture &f)
{
    f.click(frmWizard::NextButton);
    QCOMPARE(f.wizard->mnCurStep, int16_t(2));
    f.click(frmWizard::NextButton);
}
} // namespace

class WizardRunTest : public QObject {
    Q_OBJECT
private slots:
    void resultTexts_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QByteArray>("finalText"); // "-" for no Final.txt
        QTest::addColumn<bool>("transferOnly");
        QTest::addColumn<int>("transferResult");
        QTest::addColumn<QString>("result");
        const QByteArray none("-");
        QByteArray longFinal;
        for (int i = 0; longFinal.size() < 7000; ++i)
            longFinal += "Closing note line " + QByteArray::number(i) + "\n";
        QTest::newRow("success, restarted") << WizardConfig << none << false << 0
                                            << Success + "Your instrument has been restarted please run the calibration routines.";
        QTest::newRow("success, not restarted") << continuing() << none << false << 0
                                                << Success + "Please restart your instrument and run the calibration routines.";
        QTest::newRow("success with a long Final.txt") << WizardConfig << longFinal << false << 0 << QString::fromLatin1(longFinal);
        QTest::newRow("success with an empty Final.txt") << WizardConfig << QByteArray() << false << 0 << QString();
        QTest::newRow("failure") << WizardConfig << QByteArray("ignored") << false << 255
                                 << "The Firmware Upload process failed.\r\n\r\nError occurred uploading the Transfer Program no boot ROM";
        QTest::newRow("transfer only") << WizardConfig << QByteArray("ignored") << true << 0
                                       << "The Transfer Program has been uploaded successfully to your instrument.";
        QTest::newRow("transfer only failed") << WizardConfig << QByteArray("ignored") << true << 1
                                              << "The Transfer Program Upload process failed.";
    }
    void resultTexts()
    {
        QFETCH(QString, config);
        QFETCH(QByteArray, finalText);
        QFETCH(bool, transferOnly);
        QFETCH(int, transferResult);
        QFETCH(QString, result);
        WizardFixture f;
        QMap<QString, QByteArray> extra;
        if (finalText != "-")
            extra.insert(QStringLiteral("Final.txt"), finalText);
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), extra, config);
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setTransferResult(transferResult);
            layer.setErrorText(QStringLiteral("no boot ROM"));
        };
        frmWizard &w = f.open(transferOnly ? QStringLiteral("/TRANSFERONLY /BOGUS") : QString());
        if (transferOnly) {
            f.prompt.shown.clear();
            w.lstPackages().setCurrentRow(0);
            QCOMPARE(w.lstPackages().count(), 1);
        }
        execute(f);
        QCOMPARE(w.mnCurStep, int16_t(4));
        QCOMPARE(w.resultText(), result);
        QVERIFY(f.prompt.shown.isEmpty());
    }

    // Cancel at every stage of a run: the Finished step at once, the failure text once the
    // run has unwound, the log cut short at the step that was waiting, the channel closed
    // once it was open, and a window that then closes.
    void cancelAtEveryStage_data()
    {
        QTest::addColumn<QString>("heldRequest");
        QTest::addColumn<QString>("failureLine"); // "" when the channel never opened
        QTest::newRow("channel open") << "OpenChannel" << "";
        QTest::newRow("transfer program") << "UploadTransferProgram" << "Transfer Program Failed, Error Code = 3";
        QTest::newRow("identification") << "QueryManufacturerCode" << "QueryManufacturerCode ERROR";
        QTest::newRow("read-back") << "ReadMemory" << "Read ERROR";
        QTest::newRow("erase") << "FlashDelete" << "FlashDelete ERROR";
        QTest::newRow("program") << "ProgramBlock" << "Prog ERROR";
    }
    void cancelAtEveryStage()
    {
        QFETCH(QString, heldRequest);
        QFETCH(QString, failureLine);
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), {}, withReadBackAndErase());
        bool runningAtCancel = false;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.holdAt(heldRequest);
            QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&] {
                QTimer::singleShot(0, f.wizard.get(), [&] {
                    f.click(frmWizard::CancelButton);
                    runningAtCancel = f.wizard->isUploadRunning();
                    QCOMPARE(f.wizard->mnCurStep, int16_t(4));
                    QCOMPARE(f.wizard->resultText(), QStringLiteral("Firmware Upload Cancelled"));
                });
            });
        };
        frmWizard &w = f.open(QStringLiteral("/ADV_DISPLAY"));
        execute(f);
        QVERIFY(runningAtCancel);
        QCOMPARE(w.resultText(), QStringLiteral("The Firmware Upload process failed.\r\n\r\nProcess Cancelled by User"));
        QStringList log;
        for (int i = w.lstStep().count() - 1; i >= 0; --i)
            log << w.lstStep().item(i)->text();
        const qsizetype closing = log.indexOf(QStringLiteral("Close Communication Channel"));
        if (failureLine.isEmpty())
            QCOMPARE(closing, qsizetype(-1));
        else
            QVERIFY2(closing > 0 && log.at(closing - 1) == failureLine, qPrintable(log.join(QLatin1Char('\n'))));
        QVERIFY(w.navButton(frmWizard::Exit).isEnabled());
        QVERIFY(w.close());
        QVERIFY(w.engine() == nullptr);
    }

    // Cancel while the transfer program loads brings up the Finished step while the run is
    // still on the stack; Back and Execute must not start a second run on top of it, which
    // would free the first run's application layer under it.
    void noSecondRunWhileOneIsOnTheStack()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        QStringList enabledAtCancel;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.holdAt(QStringLiteral("UploadTransferProgram"));
            QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&] {
                QTimer::singleShot(0, f.wizard.get(), [&] {
                    f.click(frmWizard::CancelButton);
                    for (frmWizard::Nav button : {frmWizard::BackButton, frmWizard::NextButton})
                        if (f.wizard->navButton(button).isEnabled())
                            enabledAtCancel << f.wizard->navButton(button).text();
                    f.click(frmWizard::BackButton);
                    f.click(frmWizard::BackButton);
                    f.click(frmWizard::NextButton);
                    f.click(frmWizard::Exit); // the window closes once the run has unwound
                });
            });
        };
        frmWizard &w = f.open();
        execute(f);
        QCOMPARE(enabledAtCancel, QStringList());
        QCOMPARE(f.layersCreated, 1);
        QCOMPARE(w.mnCurStep, int16_t(4));
        QTRY_VERIFY(w.engine() == nullptr);
        QVERIFY(!w.isVisible());
    }

    void closingDuringARunWaitsForItToEnd()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        bool closedAtOnce = true;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.queueReply(ScriptedAppLayer::silence());
            QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&] {
                QTimer::singleShot(0, f.wizard.get(), [&] {
                    closedAtOnce = f.wizard->close();
                });
            });
        };
        frmWizard &w = f.open();
        execute(f);
        QVERIFY(!closedAtOnce);
        QVERIFY(w.engine() != nullptr); // still there when the run unwound
        QTRY_VERIFY(w.engine() == nullptr); // and released once it had
        QVERIFY(!w.isVisible());
    }

    void advancedDisplayShowsTheLog()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        frmWizard &w = f.open(QStringLiteral("/ADV_DISPLAY"));
        QCOMPARE(w.mnCurStep, int16_t(0));
        QVERIFY(w.Advanced);
        QVERIFY(!w.lstStep().isHidden());
        execute(f);
        // The seconds depend on the machine's load.
        static const QRegularExpression completed(QStringLiteral("^Firmware Upload Process completed in 0 Minutes \\d+ Seconds$"));
        QVERIFY2(completed.match(w.lstStep().item(0)->text()).hasMatch(), qPrintable(w.lstStep().item(0)->text()));
        QCOMPARE(w.lstStep().item(w.lstStep().count() - 1)->text(), QStringLiteral("UPLOAD FIRMWARE STARTED"));
        QVERIFY(w.summaryText().contains(QStringLiteral("Transfer Program = TP.BIN")));
        // The budget rounds each image's blocks, so the bar may end a little past its total.
        QVERIFY(w.entireBar().share() > 0.95);
    }

    void plainDisplayHidesTheLog()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        frmWizard &w = f.open();
        execute(f);
        QVERIFY(w.lstStep().isHidden());
        QVERIFY(w.lstStep().count() > 10);
        QVERIFY(!w.summaryText().contains(QStringLiteral("Transfer Program =")));
    }

    // The start-up switches: what the window shows, asks, and runs for each command line.
    void startUpSwitches_data()
    {
        QTest::addColumn<QString>("commandLine");
        QTest::addColumn<bool>("answer");        // to every box it shows
        QTest::addColumn<QString>("shown");      // "title|text" of the box, "" for none
        QTest::addColumn<int>("step");           // where it ends up (-1: the program ended)
        QTest::addColumn<int>("listed");         // lines of the package list (the folder holds two packages)
        QTest::addColumn<int>("runs");
        const QString invalid = QStringLiteral("Varnolt|Invalid Command Line Switch /");
        QTest::newRow("autostart runs without a click") << "/AUTOSTART /Fa.KDPKG" << true << "" << 4 << 1 << 1;
        QTest::newRow("switches without a package do nothing") << "/AUTOSTART /PORTCOM9" << true << "" << 0 << 2 << 0;
        QTest::newRow("an invalid switch, OK") << "/autostart" << true
                                               << "Invalid Command Line Switch|Invalid command line switch /autostart" << 0 << 2 << 0;
        QTest::newRow("an invalid switch, Cancel") << "/X /Y" << false << "Invalid Command Line Switch|Invalid command line switch /Y"
                                                   << -1 << 0 << 0;
        QTest::newRow("a named package with an invalid switch: an empty list")
            << "/Fa.KDPKG /BOGUS" << true << "Invalid Command Line Switch|Invalid command line switch /BOGUS" << 0 << 0 << 0;
        QTest::newRow("an unknown port, OK goes on") << "/PORT COM1 /Fa.KDPKG" << true << invalid + "PORT COM1" << 2 << 1 << 0;
        QTest::newRow("an empty port") << "/PORT /Fa.KDPKG" << true << invalid + "PORT" << 2 << 1 << 0;
        QTest::newRow("an unknown language, Cancel") << "/FIRMWARE_LANGUAGEklingon /AUTOSTART /Fa.KDPKG" << false
                                                     << invalid + "FIRMWARE_LANGUAGEKLINGON" << -1 << 1 << 0;
        QTest::newRow("a named package that cannot be loaded") << "/AUTOSTART /Fb.KDPKG" << true
                                                               << "Varnolt|Error Occurred reading configuration file" << 0 << 1 << 0;
    }
    void startUpSwitches()
    {
        QFETCH(QString, commandLine);
        QFETCH(bool, answer);
        QFETCH(QString, shown);
        QFETCH(int, step);
        QFETCH(int, listed);
        QFETCH(int, runs);
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        QString broken = WizardConfig;
        f.addPackage(QStringLiteral("b.KDPKG"), QString(), {}, broken.remove(QStringLiteral("BAUD=115200\r\n")));
        f.prompt.answers = {answer};
        frmWizard &w = f.open(commandLine);
        QCOMPARE(f.prompt.shown, shown.isEmpty() ? QStringList() : QStringList{shown});
        QCOMPARE(f.programEnds, step < 0 ? 1 : 0);
        if (step >= 0) {
            QCOMPARE(w.mnCurStep, int16_t(step));
            QCOMPARE(w.lstPackages().count(), listed);
        }
        QCOMPARE(f.layersCreated, runs);
        if (runs > 0) {
            QVERIFY(w.resultText().startsWith(Success));
            QVERIFY(w.isVisible()); // it waits on the result
        }
    }

    void portAndLanguageSwitches()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        QString openedWith;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            QObject::connect(&layer, &QObject::destroyed, [&, calls = layer.callLog()] { openedWith = calls->at(0).args.at(0).toString(); });
        };
        frmWizard &w = f.open(QStringLiteral("/FIRMWARE_LANGUAGEgerman /PORTgpib0 /AUTOSTART /Fa.KDPKG"));
        QVERIFY(f.prompt.shown.isEmpty());
        QCOMPARE(w.cmbFirmwareLanguages().currentText(), QStringLiteral("GERMAN"));
        QCOMPARE(w.engine()->Programs.back().Filename(), QStringLiteral("TEXT_DE.BIN"));
        QCOMPARE(openedWith, QStringLiteral("clsid:C18F5D02-6E47-4A3B-8B91-2D7E4F6A9C03 GPIB0"));
        QVERIFY(w.resultText().startsWith(Success));
    }
};

QTEST_MAIN(WizardRunTest)
#include "tst_wizard_run.moc"
