// The Upload and Finished steps (each result text, Cancel and closing during a run, the
// advanced display) and the start-up switches.
#include "tests/wizard/WizardFixture.h"

#include "engine/AnswerCodes.h"
#include "engine/QX_UploadProcess.h"
#include "wizard/ProgressBox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QListWidget>
#include <QTimer>
#include <QtTest>

namespace {
const QString Success = QStringLiteral("The Firmware has been uploaded successfully to your instrument.\r\n\r\n");
const QString Failed = QStringLiteral("The Firmware Upload process failed.\r\n\r\n");
const QString RunAgain = QStringLiteral("\r\n\r\nThe instrument may now hold no working firmware: run the update again. If the "
                                        "transfer program no longer answers, switch the instrument off and on first, as the "
                                        "Settings step says.");
// The asynchronous requests of a run of the wizard tests' package before the checksum of its
// first image: identification, voltage on and off of the erase pass, voltage on, five blocks
// and voltage off.
constexpr int RequestsBeforeTheChecksum = 10;
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
        QTest::addColumn<int>("targetChecksum"); // of the first image; -1 for the right one
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("picture");
        const QByteArray none("-");
        QByteArray longFinal;
        for (int i = 0; longFinal.size() < 7000; ++i)
            longFinal += "Closing note line " + QByteArray::number(i) + "\n";
        int hostChecksum = 0;
        for (const char byte : TestPackage::pattern(1000))
            hostChecksum = (hostChecksum + uint8_t(byte)) & 0xFF;
        const int wrongChecksum = (hostChecksum + 1) & 0xFF;
        QTest::newRow("success, restarted") << WizardConfig << none << false << 0 << -1
                                            << Success + "Your instrument has been restarted please run the calibration routines."
                                            << "finished";
        QTest::newRow("success, not restarted") << continuing() << none << false << 0 << -1
                                                << Success + "Please restart your instrument and run the calibration routines."
                                                << "finished";
        QTest::newRow("success with a long Final.txt") << WizardConfig << longFinal << false << 0 << -1
                                                       << QString::fromLatin1(longFinal) << "finished";
        QTest::newRow("success with an empty Final.txt") << WizardConfig << QByteArray() << false << 0 << -1 << QString() << "finished";
        QTest::newRow("failure") << WizardConfig << QByteArray("ignored") << false << 255 << -1
                                 << Failed + "Error occurred uploading the Transfer Program no boot ROM" << "failed";
        // A mismatch records no code: its line is the message, never "OK"; the images were
        // being written, so the advice follows.
        QTest::newRow("checksum mismatch") << WizardConfig << none << false << 0 << wrongChecksum
                                           << Failed + QStringLiteral("Checksum Error,  Target = H%1 Host = H%2")
                                                           .arg(QString::number(wrongChecksum, 16).toUpper(),
                                                                QString::number(hostChecksum, 16).toUpper())
                                                  + RunAgain
                                           << "failed";
        QTest::newRow("transfer only") << WizardConfig << QByteArray("ignored") << true << 0 << -1
                                       << "The Transfer Program has been uploaded successfully to your instrument." << "finished";
        QTest::newRow("transfer only failed") << WizardConfig << QByteArray("ignored") << true << 1 << -1
                                              << "The Transfer Program Upload process failed." << "failed";
    }
    void resultTexts()
    {
        QFETCH(QString, config);
        QFETCH(QByteArray, finalText);
        QFETCH(bool, transferOnly);
        QFETCH(int, transferResult);
        QFETCH(int, targetChecksum);
        QFETCH(QString, result);
        WizardFixture f;
        QMap<QString, QByteArray> extra;
        if (finalText != "-")
            extra.insert(QStringLiteral("Final.txt"), finalText);
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), extra, config);
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setTransferResult(transferResult);
            layer.setErrorText(QStringLiteral("no boot ROM"));
            if (targetChecksum < 0)
                return;
            for (int i = 0; i < RequestsBeforeTheChecksum; ++i)
                layer.queueReply(ScriptedAppLayer::Reply{});
            ScriptedAppLayer::Reply checksum;
            checksum.checksum = targetChecksum;
            layer.queueReply(checksum);
        };
        frmWizard &w = f.open(transferOnly ? QStringList{"/TRANSFERONLY /BOGUS"} : QStringList{});
        if (transferOnly) {
            f.prompt.shown.clear();
            w.lstPackages().setCurrentRow(0);
            QCOMPARE(w.lstPackages().count(), 1);
        }
        execute(f);
        QCOMPARE(w.mnCurStep, int16_t(4));
        QCOMPARE(w.resultText(), result);
        QTEST(w.finishedPicture(), "picture");
        QVERIFY(f.prompt.shown.isEmpty());
    }

    // Cancel at every stage of a run: the Finished step at once, the failure text once the
    // run has unwound, the log cut short at the step that was waiting, the channel closed
    // once it was open, and a window that then closes. From the erase on Cancel asks first,
    // and the result advises to run the update again; No lets the run go on.
    void cancelAtEveryStage_data()
    {
        QTest::addColumn<QString>("heldRequest");
        QTest::addColumn<QString>("failureLine"); // "" when the channel never opened
        QTest::addColumn<bool>("afterErase");
        QTest::addColumn<bool>("answer"); // to the question
        QTest::newRow("channel open") << "OpenChannel" << "" << false << true;
        QTest::newRow("transfer program") << "UploadTransferProgram" << "Transfer Program Failed, Error Code = 3" << false << true;
        QTest::newRow("identification") << "QueryManufacturerCode" << "QueryManufacturerCode ERROR" << false << true;
        QTest::newRow("read-back") << "ReadMemory" << "Read ERROR" << false << true;
        QTest::newRow("erase") << "FlashDelete" << "FlashDelete ERROR" << true << true;
        QTest::newRow("program") << "ProgramBlock" << "Prog ERROR" << true << true;
        QTest::newRow("program, not confirmed") << "ProgramBlock" << "" << true << false;
    }
    void cancelAtEveryStage()
    {
        QFETCH(QString, heldRequest);
        QFETCH(QString, failureLine);
        QFETCH(bool, afterErase);
        QFETCH(bool, answer);
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), {}, withReadBackAndErase());
        f.prompt.answers = {answer};
        bool runningAtCancel = false;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.holdAt(heldRequest);
            QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&] {
                QTimer::singleShot(0, f.wizard.get(), [&] {
                    f.click(frmWizard::CancelButton);
                    runningAtCancel = f.wizard->isUploadRunning();
                    if (!answer) { // the block is answered after all
                        ScriptedAppLayer::Reply block;
                        block.status = AnswerStatus::Ok;
                        layer.applyNow(block);
                        emit layer.Trovex_Response(ResponseId::Program);
                        return;
                    }
                    QCOMPARE(f.wizard->mnCurStep, int16_t(4));
                    QCOMPARE(f.wizard->resultText(), QStringLiteral("Firmware Upload Cancelled"));
                    QCOMPARE(f.wizard->finishedPicture(), QStringLiteral("cancelled"));
                });
            });
        };
        frmWizard &w = f.open({"/ADV_DISPLAY"});
        execute(f);
        QVERIFY(runningAtCancel);
        QCOMPARE(f.prompt.shown, afterErase ? QStringList{"Varnolt|The erase has begun. If you cancel now, the instrument may be "
                                                          "left without working firmware until the update is run again.\r\n\r\n"
                                                          "Cancel the update?"}
                                            : QStringList());
        if (!answer) {
            QVERIFY(w.resultText().startsWith(Success));
            return;
        }
        QCOMPARE(w.resultText(), Failed + "Process Cancelled by User" + (afterErase ? RunAgain : QString()));
        QCOMPARE(w.finishedPicture(), QStringLiteral("cancelled"));
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
        frmWizard &w = f.open({"/ADV_DISPLAY"});
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

    // The Settings step's choice to write everything: the layer is then told no plan, so it
    // cannot skip what the instrument holds already.
    void writeEverythingTellsTheLayerNoPlan_data()
    {
        QTest::addColumn<bool>("everything");
        QTest::newRow("only what differs") << false;
        QTest::newRow("everything") << true;
    }
    void writeEverythingTellsTheLayerNoPlan()
    {
        QFETCH(bool, everything);
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), {}, withReadBackAndErase());
        std::shared_ptr<QList<ScriptedAppLayer::Call>> calls;
        f.prepareLayer = [&](ScriptedAppLayer &layer) { calls = layer.callLog(); };
        frmWizard &w = f.open();
        f.click(frmWizard::NextButton);
        QCOMPARE(w.mnCurStep, int16_t(2));
        w.chkWriteEverything().setChecked(everything);
        f.click(frmWizard::NextButton);
        QVERIFY(calls);
        const bool announced = std::any_of(calls->begin(), calls->end(),
                                           [](const ScriptedAppLayer::Call &call) { return call.name == QStringLiteral("AnnounceFlashPlan"); });
        QCOMPARE(announced, !everything);
        QCOMPARE(w.finishedPicture(), QStringLiteral("finished"));
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
    // Until the start-up is done nothing can be chosen; one the user ends on a message about
    // the command line ends with status 2.
    void startUpSwitches_data()
    {
        QTest::addColumn<QStringList>("arguments"); // DIR: the working folder
        QTest::addColumn<bool>("answer");        // to every box it shows
        QTest::addColumn<QString>("shown");      // "title|text" of the box, "" for none
        QTest::addColumn<int>("step");           // where it ends up (-1: the program ended)
        QTest::addColumn<int>("listed");         // lines of the package list (the folder holds two packages)
        QTest::addColumn<int>("runs");
        const QString invalid = QStringLiteral("Varnolt|Invalid Command Line Switch /");
        QTest::newRow("autostart runs without a click") << QStringList{"/AUTOSTART /Fa.KDPKG"} << true << "" << 4 << 1 << 1;
        QTest::newRow("a package by its absolute path") << QStringList{"/AUTOSTART", "/FDIR/a.KDPKG"} << true << "" << 4 << 1 << 1;
        QTest::newRow("switches without a package do nothing") << QStringList{"/AUTOSTART", "/PORTCOM9"} << true << "" << 0 << 2 << 0;
        QTest::newRow("an invalid switch, OK") << QStringList{"/autostart"} << true
                                               << "Invalid Command Line Switch|Invalid command line switch /autostart" << 0 << 2 << 0;
        QTest::newRow("an invalid switch, Cancel") << QStringList{"/X /Y"} << false
                                                   << "Invalid Command Line Switch|Invalid command line switch /Y" << -1 << 0 << 0;
        QTest::newRow("a named package with an invalid switch: an empty list")
            << QStringList{"/Fa.KDPKG", "/BOGUS"} << true << "Invalid Command Line Switch|Invalid command line switch /BOGUS" << 0
            << 0 << 0;
        QTest::newRow("an unknown port, OK goes on") << QStringList{"/PORT COM1 /Fa.KDPKG"} << true << invalid + "PORT COM1" << 2
                                                     << 1 << 0;
        QTest::newRow("an empty port") << QStringList{"/PORT", "/Fa.KDPKG"} << true << invalid + "PORT" << 2 << 1 << 0;
        QTest::newRow("an unknown language, Cancel") << QStringList{"/FIRMWARE_LANGUAGEklingon", "/AUTOSTART", "/Fa.KDPKG"} << false
                                                     << invalid + "FIRMWARE_LANGUAGEKLINGON" << -1 << 1 << 0;
        QTest::newRow("a named package that cannot be loaded, Cancel") << QStringList{"/AUTOSTART", "/Fb.KDPKG"} << false
                                                                       << "Varnolt|Error Occurred reading configuration file" << -1 << 1
                                                                       << 0;
    }
    void startUpSwitches()
    {
        QFETCH(QStringList, arguments);
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
        QStringList enabledUnderABox;
        f.prompt.whileShown = [&] {
            for (frmWizard::Nav button : {frmWizard::BackButton, frmWizard::NextButton, frmWizard::Exit})
                if (f.wizard->navButton(button).isEnabled())
                    enabledUnderABox << f.wizard->navButton(button).text();
        };
        frmWizard &w = f.open(arguments.replaceInStrings(QStringLiteral("DIR"), f.folder.path()));
        QCOMPARE(f.prompt.shown, shown.isEmpty() ? QStringList() : QStringList{shown});
        QCOMPARE(enabledUnderABox, QStringList());
        QCOMPARE(f.programEnds, step < 0 ? 1 : 0);
        QCOMPARE(f.endStatus, step < 0 ? 2 : -1);
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

    // The port and language of the switches, with AUTOSTART or chosen on the Settings step,
    // which reloads the configuration each time it is entered.
    void portAndLanguageSwitches_data()
    {
        QTest::addColumn<bool>("autoStart");
        QTest::newRow("autostart") << true;
        QTest::newRow("the Settings step keeps them") << false;
    }
    void portAndLanguageSwitches()
    {
        QFETCH(bool, autoStart);
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        QString openedWith;
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            QObject::connect(&layer, &QObject::destroyed, [&, calls = layer.callLog()] { openedWith = calls->at(0).args.at(0).toString(); });
        };
        QStringList arguments{"/FIRMWARE_LANGUAGEgerman", "/PORTgpib0", "/Fa.KDPKG"};
        frmWizard &w = f.open(autoStart ? arguments << "/AUTOSTART" : arguments);
        if (!autoStart) {
            f.click(frmWizard::BackButton);
            f.click(frmWizard::NextButton);
            QCOMPARE(w.mnCurStep, int16_t(2));
            QCOMPARE(w.cmbPorts().currentText(), QStringLiteral("GPIB0"));
            f.click(frmWizard::NextButton);
        }
        QVERIFY(f.prompt.shown.isEmpty());
        QCOMPARE(w.cmbFirmwareLanguages().currentText(), QStringLiteral("GERMAN"));
        QCOMPARE(w.engine()->Programs.back().Filename(), QStringLiteral("TEXT_DE.BIN"));
        QCOMPARE(openedWith, QStringLiteral("clsid:C18F5D02-6E47-4A3B-8B91-2D7E4F6A9C03 GPIB0"));
        QVERIFY(w.resultText().startsWith(Success));
    }

    // A port that does not open: the Finished step says so, and a message shows what the port
    // doctor finds there, each problem with its fix.
    void portThatDoesNotOpen()
    {
        WizardFixture f;
        const QString missing = f.folder.filePath(QStringLiteral("ttyUSB9"));
        const QByteArray previousMap = qgetenv("TROVEX_PORTS");
        qputenv("TROVEX_PORTS", "COM1=" + QFile::encodeName(missing));
        f.addPackage(QStringLiteral("a.KDPKG"));
        f.prepareLayer = [&](ScriptedAppLayer &layer) {
            layer.setOpenErrorCode(1);
            layer.setErrorText(QStringLiteral("the serial device %1 does not exist").arg(missing));
        };
        frmWizard &w = f.open();
        execute(f);
        qputenv("TROVEX_PORTS", previousMap);
        QCOMPARE(w.mnCurStep, int16_t(4));
        QVERIFY(w.resultText().startsWith(Failed));
        QCOMPARE(f.prompt.shown.size(), 1);
        const QStringList advice = f.prompt.shown.first().split(QStringLiteral("\r\n"));
        // The exact advice is the doctor's own tests' business; what follows the problem depends
        // on the adapters plugged in here.
        QCOMPARE(advice.mid(0, 4),
                 (QStringList{"Varnolt|COM1 did not open. What the port doctor finds there (varnolt-cli doctor COM1 shows it "
                              "again):",
                              "", "COM1 opens " + missing + ", as TROVEX_PORTS says", ""}));
        QVERIFY(advice.value(4).startsWith("Problem: " + missing + " does not exist"));
        QVERIFY(advice.value(5).startsWith(QStringLiteral("Fix: ")));
    }
};

QTEST_MAIN(WizardRunTest)
#include "tst_wizard_run.moc"
