#pragma once
// A wizard window with every outside service scripted: the application layer, message
// boxes, the help viewer, the file dialog and ending the program. It works in a temporary
// working folder where tests put their packages.
#include "tests/support/ScriptedAppLayer.h"
#include "tests/support/TestPackage.h"
#include "wizard/HelpViewer.h"
#include "wizard/WizardPrompt.h"
#include "wizard/frmWizard.h"

#include <QDir>
#include <QPushButton>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <memory>

class ScriptedWizardPrompt : public WizardPrompt {
public:
    QList<bool> answers; // yes/no and OK/Cancel answers in order; true when the script has run out
    QStringList shown;   // "title|text" of every box
    std::function<void()> whileShown; // runs while each box is up

    bool askYesNo(const QString &title, const QString &text) override { return answer(title, text); }
    void showMessage(const QString &title, const QString &text) override { record(title, text); }
    bool askOkCancel(const QString &title, const QString &text) override { return answer(title, text); }

private:
    void record(const QString &title, const QString &text)
    {
        shown << title + QLatin1Char('|') + text;
        if (whileShown)
            whileShown();
    }
    bool answer(const QString &title, const QString &text)
    {
        record(title, text);
        return answers.isEmpty() ? true : answers.takeFirst();
    }
};

class RecordingHelpViewer : public HelpViewer {
public:
    QStringList requests;
    bool opens = true; // whether a viewer could show the help
    bool open(const QString &path, const QString &anchor) override
    {
        requests << "open " + path + "#" + anchor;
        return opens;
    }
    void close(const QString &path) override { requests << "close " + path; }
};

// The configuration of the wizard tests' packages: a serial port, one memory, one image.
inline const QString WizardConfig = QStringLiteral(
    "[HOST]\r\nPORTS=COM1,COM2,GPIB0\r\nUART=COM1\r\nBAUD=115200\r\nCONTINUE=NO\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
    "FIRMWARE_LANGUAGES=ENGLISH,GERMAN\r\nFIRMWARE_LANGUAGE=ENGLISH\r\n"
    "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\nMEMORY=0X0,0X80000,AM29F040\r\n"
    "[FILES]\r\nPROGRAM=0X10000,MAIN.BIN\r\n[ENGLISH]\r\nPROGRAM1=0X20000,TEXT_EN.BIN\r\n[GERMAN]\r\nPROGRAM1=0X20000,TEXT_DE.BIN\r\n");

struct WizardFixture {
    QTemporaryDir folder;
    QString previousFolder = QDir::currentPath();
    ScriptedWizardPrompt prompt;
    RecordingHelpViewer help;
    QStringList chosenFiles; // what the file dialog answers, in order; "" is Cancel
    int programEnds = 0;
    int endStatus = -1; // the status the program ended with
    std::function<void(ScriptedAppLayer &)> prepareLayer;
    int layersCreated = 0;
    std::unique_ptr<frmWizard> wizard;

    WizardFixture() { QDir::setCurrent(folder.path()); }
    ~WizardFixture()
    {
        wizard.reset();
        QDir::setCurrent(previousFolder);
    }

    // A package in the working folder with the test configuration and images.
    void addPackage(const QString &fileName, const QString &comment = QString(), const QMap<QString, QByteArray> &extra = {},
                    const QString &config = WizardConfig)
    {
        TestPackage package(fileName, folder.path());
        package.config(config)
            .member(QStringLiteral("TP.BIN"), TestPackage::pattern(300))
            .member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(1000))
            .member(QStringLiteral("TEXT_EN.BIN"), TestPackage::pattern(480))
            .member(QStringLiteral("TEXT_DE.BIN"), TestPackage::pattern(720))
            .comment(comment);
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            package.member(it.key(), it.value());
        package.write();
    }

    frmWizard &open(const QStringList &arguments = {})
    {
        WizardServices services;
        services.appLayerFactory = [this](const EngineWait &wait) {
            auto layer = std::make_unique<ScriptedAppLayer>(wait);
            ++layersCreated;
            if (prepareLayer)
                prepareLayer(*layer);
            return layer;
        };
        services.prompt = &prompt;
        services.help = &help;
        services.chooseFile = [this](const QString &, const QString &) {
            return chosenFiles.isEmpty() ? QString() : chosenFiles.takeFirst();
        };
        services.endProgram = [this](int status) {
            ++programEnds;
            endStatus = status;
        };
        services.helpPath = folder.filePath(QStringLiteral("Varnolt.html"));
        wizard = std::make_unique<frmWizard>(std::move(services));
        wizard->load(arguments);
        return *wizard;
    }

    void click(frmWizard::Nav button) { wizard->navButton(button).click(); }
};
