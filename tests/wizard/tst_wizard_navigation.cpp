// The wizard's steps and buttons: the navigation table row by row, the read-me skip, the
// package list, Browse, help and the keys.
#include "tests/wizard/WizardFixture.h"

#include "engine/QX_UploadProcess.h"
#include "wizard/HelpLocation.h"
#include "wizard/MessageBoxPrompt.h"
#include "wizard/PackageList.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

namespace {
const QMap<QString, QByteArray> WithReadme = {{QStringLiteral("Readme.txt"), "Read me first."},
                                              {QStringLiteral("KDNOTES.TXT"), "Release 2.07: faster sweeps."}};

bool enabled(frmWizard &w, frmWizard::Nav button)
{
    return w.navButton(button).isEnabled();
}
} // namespace

class WizardNavigationTest : public QObject {
    Q_OBJECT
private slots:
    void startsOnSelectFirmwareWithTheFolderSearched()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QStringLiteral("Model 7 firmware 2.06"));
        f.addPackage(QStringLiteral("b.kdpkg"), QString(), WithReadme);
        TestPackage junk(QStringLiteral("c.KDPKG"), f.folder.path());
        junk.member(QStringLiteral("OTHER.TXT"), "not a package").write();
        frmWizard &w = f.open();

        QCOMPARE(w.mnCurStep, int16_t(0));
        QVERIFY(w.isVisible());
        QCOMPARE(w.windowTitle(), QStringLiteral("Varnolt Wizard V1.0.0 - Select the Firmware to use"));
        QCOMPARE(w.lstPackages().count(), 2);
        QCOMPARE(w.lstPackages().item(0)->text(), QStringLiteral("Model 7 firmware 2.06"));
        QCOMPARE(w.lstPackages().item(1)->text(), f.folder.filePath(QStringLiteral("b.kdpkg"))); // no comment: the path
        QCOMPARE(w.lstPackages().currentRow(), 1);
        QCOMPARE(w.engine()->package().path(), f.folder.filePath(QStringLiteral("b.kdpkg")));
        QCOMPARE(w.lblPackageNotes().text(), QStringLiteral("Release 2.07: faster sweeps."));
        QVERIFY(f.prompt.shown.isEmpty());
        QVERIFY(!enabled(w, frmWizard::BackButton) && enabled(w, frmWizard::NextButton));
        QVERIFY(!enabled(w, frmWizard::Exit));
        QCOMPARE(w.navButton(frmWizard::Help).text(), QStringLiteral("Help"));
        QCOMPARE(w.navButton(frmWizard::BackButton).text(), QStringLiteral("< &Back"));

        // Selecting another line changes the package and the notes at once.
        w.lstPackages().setCurrentRow(0);
        QCOMPARE(w.engine()->package().path(), f.folder.filePath(QStringLiteral("a.KDPKG")));
        QCOMPARE(w.lblPackageNotes().text(), QString());
    }

    void notesShowTheirFirst256Bytes()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), {{QStringLiteral("KDNOTES.TXT"), QByteArray(300, 'n')}});
        frmWizard &w = f.open();
        QCOMPARE(w.lblPackageNotes().text(), QString(256, QLatin1Char('n')));
    }

    void nextWithAnEmptyListStays()
    {
        WizardFixture f;
        frmWizard &w = f.open();
        f.click(frmWizard::NextButton);
        QCOMPARE(w.mnCurStep, int16_t(0));
        QCOMPARE(f.prompt.shown, QStringList{"Varnolt|Please select a Firmware Package to upload"});
    }

    void theNavigationTable()
    {
        qputenv("TROVEX_PORTS", "COM1=/dev/varnolt-no-such-tty");
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), WithReadme);
        frmWizard &w = f.open();

        f.click(frmWizard::NextButton); // 0 -> 1
        QCOMPARE(w.mnCurStep, int16_t(1));
        QCOMPARE(w.txtReadme().toPlainText(), QStringLiteral("Read me first."));
        QCOMPARE(w.windowTitle(), QStringLiteral("Varnolt Wizard V1.0.0 - Introduction"));
        QVERIFY(enabled(w, frmWizard::BackButton) && enabled(w, frmWizard::NextButton));

        f.click(frmWizard::NextButton); // 1 -> 2 loads the configuration
        QCOMPARE(w.mnCurStep, int16_t(2));
        QCOMPARE(w.navButton(frmWizard::NextButton).text(), QStringLiteral("&Execute >"));
        QCOMPARE(w.cmbPorts().currentText(), QStringLiteral("COM1"));
        QCOMPARE(w.cmbFirmwareLanguages().currentText(), QStringLiteral("ENGLISH"));
        QVERIFY(w.summaryText().startsWith(QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to COM1")));
        QVERIFY(w.lblPortDevice().text().startsWith(QStringLiteral("COM1 opens /dev/varnolt-no-such-tty, which is not there.")));

        w.cmbPorts().setCurrentText(QStringLiteral("GPIB0")); // the user's choice reaches the engine
        QCOMPARE(w.engine()->ComPort, QStringLiteral("GPIB0"));
        QVERIFY(w.summaryText().startsWith(QStringLiteral("Please connect your instrument using a GPIB Cable")));
        QVERIFY(w.lblPortDevice().text().startsWith(QStringLiteral("GPIB0 is not in the port map")));
        w.cmbFirmwareLanguages().setCurrentText(QStringLiteral("GERMAN"));
        QCOMPARE(w.engine()->Programs.back().Filename(), QStringLiteral("TEXT_DE.BIN"));
        w.cmbPorts().setCurrentText(QStringLiteral("COM1"));

        f.click(frmWizard::BackButton); // 2 -> 1
        QCOMPARE(w.mnCurStep, int16_t(1));
        QCOMPARE(w.navButton(frmWizard::NextButton).text(), QStringLiteral("&Next >"));
        f.click(frmWizard::BackButton); // 1 -> 0, the list is not searched again
        QCOMPARE(w.mnCurStep, int16_t(0));
        QCOMPARE(w.lstPackages().count(), 1);

        f.click(frmWizard::NextButton);
        f.click(frmWizard::NextButton);
        f.click(frmWizard::NextButton); // Execute: the run, then the engine moves on to 4
        QCOMPARE(w.mnCurStep, int16_t(4));
        QCOMPARE(f.layersCreated, 1);
        QVERIFY(!enabled(w, frmWizard::NextButton) && enabled(w, frmWizard::BackButton));
        QVERIFY(enabled(w, frmWizard::Exit));
        QCOMPARE(w.windowTitle(), QStringLiteral("Varnolt Wizard V1.0.0 - Finished!"));

        f.click(frmWizard::BackButton); // 4 -> 3 shows the last state, no run
        QCOMPARE(w.mnCurStep, int16_t(3));
        QVERIFY(enabled(w, frmWizard::Exit));
        QCOMPARE(w.actionText(), QStringLiteral("Program File = TEXT_EN.BIN"));
        f.click(frmWizard::NextButton); // 3 -> 4 without a new run
        QCOMPARE(w.mnCurStep, int16_t(4));
        QCOMPARE(f.layersCreated, 1);

        f.click(frmWizard::BackButton);
        f.click(frmWizard::BackButton); // 3 -> 2
        QCOMPARE(w.mnCurStep, int16_t(2));
        QVERIFY(!enabled(w, frmWizard::Exit)); // disabled from the move after going back to 3
        f.click(frmWizard::NextButton); // a new run
        QCOMPARE(f.layersCreated, 2);
        QCOMPARE(w.mnCurStep, int16_t(4));
        qunsetenv("TROVEX_PORTS");
    }

    void theReadMeIsSkippedBothWays()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        frmWizard &w = f.open();
        f.click(frmWizard::NextButton);
        QCOMPARE(w.mnCurStep, int16_t(2));
        QCOMPARE(w.windowTitle(), QStringLiteral("Varnolt Wizard V1.0.0 - Settings"));
        f.click(frmWizard::BackButton);
        QCOMPARE(w.mnCurStep, int16_t(0));
        QCOMPARE(w.windowTitle(), QStringLiteral("Varnolt Wizard V1.0.0 - Select the Firmware to use"));
        QVERIFY(w.stepPanel(0).isVisible());
        QVERIFY(!w.stepPanel(1).isVisible() && !w.stepPanel(2).isVisible());
    }

    void aBrokenConfigurationGoesBackToTheList()
    {
        WizardFixture f;
        QString broken = WizardConfig;
        broken.replace(QStringLiteral("ARCHITECTURE=B16"), QStringLiteral("ARCHITECTURE=B4"));
        f.addPackage(QStringLiteral("a.KDPKG"), QString(), {}, broken);
        frmWizard &w = f.open();
        f.click(frmWizard::NextButton);
        QCOMPARE(w.mnCurStep, int16_t(0));
        QCOMPARE(f.prompt.shown, QStringList{"Varnolt|Error Occurred reading configuration file"});
    }

    void cancelOnTheFirstStep()
    {
        WizardFixture f;
        frmWizard &w = f.open();
        f.click(frmWizard::CancelButton);
        QCOMPARE(w.mnCurStep, int16_t(4));
        QCOMPARE(w.resultText(), QStringLiteral("Firmware Upload Cancelled"));
        QVERIFY(enabled(w, frmWizard::Exit));
    }

    // F1 opens the help, or says where it is when nothing here can show it; Esc cancels, but
    // not when it only closes an open drop-down list.
    void keys()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"));
        frmWizard &w = f.open();
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        const QString helpFile = f.folder.filePath("Varnolt.html");
        QTest::keyClick(&w, Qt::Key_F1);
        QCOMPARE(f.help.requests, QStringList{"open " + helpFile + "#contents"});
        QVERIFY(f.prompt.shown.isEmpty());
        f.help.opens = false;
        QTest::keyClick(&w, Qt::Key_F1);
        QCOMPARE(f.prompt.shown, QStringList{"Varnolt|The help cannot be shown: no program here opens it. The help is the file\r\n"
                                             + helpFile + "\r\nwhich any web browser shows."});

        f.click(frmWizard::NextButton);
        w.cmbPorts().setFocus();
        w.cmbPorts().showPopup();
        QVERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget()->windowHandle(), Qt::Key_Escape);
        QVERIFY(!QApplication::activePopupWidget());
        QCOMPARE(w.mnCurStep, int16_t(2));
        QTest::keyClick(w.windowHandle(), Qt::Key_Escape); // to the list, closed now
        QCOMPARE(w.mnCurStep, int16_t(4));
        w.close();
        QCOMPARE(f.help.requests.last(), "close " + f.folder.filePath("Varnolt.html"));
        QVERIFY(w.engine() == nullptr); // released with the window
    }

    // The real message boxes: centred on the window, which is placed before the start-up's
    // boxes can come (not left at the screen's corner), and a package's text in them (a name,
    // a note) is never read as markup.
    void messageBoxes()
    {
        WizardFixture f;
        frmWizard &w = f.open();
        const QPoint offScreenCentre = w.frameGeometry().center() - w.screen()->availableGeometry().center();
        constexpr int Frame = 8; // the window frame's width, which the window manager adds
        QVERIFY(offScreenCentre.manhattanLength() <= Frame);
        MessageBoxPrompt prompt(&w);
        const QString text = QStringLiteral("<b>Model 7</b> & <i>notes</i>");
        QString shownText;
        QPoint offCentre;
        QTimer::singleShot(0, &w, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QVERIFY(box);
            shownText = box->textFormat() == Qt::PlainText ? box->text() : QString();
            offCentre = box->frameGeometry().center() - w.frameGeometry().center();
            box->accept();
        });
        prompt.showMessage(QStringLiteral("Varnolt"), text);
        QCOMPARE(shownText, text);
        QVERIFY(offCentre.manhattanLength() <= Frame);
    }

    void helpNeverOpenedIsNeverClosed()
    {
        WizardFixture f;
        frmWizard &w = f.open();
        w.close();
        QVERIFY(f.help.requests.isEmpty());
    }

    void browse()
    {
        WizardFixture f;
        f.addPackage(QStringLiteral("a.KDPKG"), QStringLiteral("First"));
        TestPackage other(QStringLiteral("other.bin"));
        other.member(QStringLiteral("KDCONFIG.INI"), WizardConfig.toLatin1()).comment(QStringLiteral("Browsed")).write();
        TestPackage junk(QStringLiteral("junk.KDPKG"));
        junk.member(QStringLiteral("X"), "x").write();
        frmWizard &w = f.open();
        const QString selected = w.engine()->package().path();

        f.chosenFiles = {QString()}; // Cancel
        w.packages().browse();
        QCOMPARE(w.lstPackages().count(), 1);
        QVERIFY(f.prompt.shown.isEmpty());

        f.chosenFiles = {junk.path()};
        w.packages().browse();
        QCOMPARE(f.prompt.shown, QStringList{"Varnolt|File is not a valid Firmware Package"});
        QCOMPARE(w.lstPackages().count(), 1);
        QCOMPARE(w.engine()->package().path(), selected);

        f.chosenFiles = {other.path(), other.path()}; // the same file twice: two lines
        w.packages().browse();
        w.packages().browse();
        QCOMPARE(w.lstPackages().count(), 3);
        QCOMPARE(w.lstPackages().item(2)->text(), QStringLiteral("Browsed"));
        QCOMPARE(w.lstPackages().currentRow(), 2);
        QCOMPARE(w.engine()->package().path(), other.path());
    }

    // The help next to the program (a build tree) or in the installation's shared data (a
    // package: bin/../share/varnolt); when neither holds it, the place next to the program.
    void helpLocation_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("expected");
        const QString beside = QStringLiteral("bin/Varnolt.html");
        const QString installed = QStringLiteral("share/varnolt/Varnolt.html");
        QTest::newRow("build tree") << QStringList{beside} << beside;
        QTest::newRow("installed") << QStringList{installed} << installed;
        QTest::newRow("both") << QStringList{beside, installed} << beside;
        QTest::newRow("neither") << QStringList{} << beside;
    }
    void helpLocation()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, expected);
        QTemporaryDir prefix;
        QVERIFY(QDir(prefix.path()).mkpath(QStringLiteral("bin")));
        for (const QString &file : files) {
            QVERIFY(QDir(prefix.path()).mkpath(QFileInfo(file).path()));
            QFile help(prefix.filePath(file));
            QVERIFY(help.open(QIODevice::WriteOnly));
        }
        QCOMPARE(HelpLocation::find(prefix.filePath(QStringLiteral("bin"))), prefix.filePath(expected));
    }
};

QTEST_MAIN(WizardNavigationTest)
#include "tst_wizard_navigation.moc"
