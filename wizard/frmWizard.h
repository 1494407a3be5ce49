#pragma once
// The wizard window: five steps shown one at a time above a bar of navigation buttons.
// Select the firmware package, read its read-me, confirm port and language while reading
// the configuration summary, run the update, read the result. The engine writes straight
// into the Upload step's controls through the display interface this window implements.
#include "engine/UploadDisplay.h"
#include "wizard/QX_CommandLine.h"
#include "wizard/WizardServices.h"

#include <QWidget>
#include <array>
#include <memory>

class DesktopHelpViewer;
class QCheckBox;
class MessageBoxPrompt;
class PackageList;
class ProgressBox;
class QComboBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QX_ErrorInterface;
class QX_UploadProcess;

class frmWizard : public QWidget, public UploadDisplay {
    Q_OBJECT
public:
    enum Step : int16_t { SelectFirmware = 0, Introduction, Settings, UploadStep, Finished };
    enum Direction { None = 0, Back = 1, Next = 2 };
    enum Nav { Help = 0, CancelButton, BackButton, NextButton, Exit };

    explicit frmWizard(WizardServices services, QWidget *parent = nullptr);
    ~frmWizard() override;

    // Form load: prepares the steps, puts the engine into wizard mode and shows the window,
    // then applies the command line (the program's arguments, each one switch).
    void load(const QStringList &arguments);
    void GoToStep(int16_t step, Direction direction);

    // Public state of the form
    int16_t mnCurStep = 0;
    bool Advanced = false;

    // For the engine's owner and for tests
    QX_UploadProcess *engine() const { return m_engine.get(); }
    PackageList &packages() const { return *m_packages; }
    QPushButton &navButton(Nav which) const { return *m_cmdNav[which]; }
    QListWidget &lstPackages() const { return *m_lstPackages; }
    QLabel &lblPackageNotes() const { return *m_lblPackageNotes; }
    QLabel &lblPortDevice() const { return *m_lblPortDevice; }
    QComboBox &cmbPorts() const { return *m_cmbPorts; }
    QComboBox &cmbFirmwareLanguages() const { return *m_cmbFirmwareLanguages; }
    QCheckBox &chkWriteEverything() const { return *m_chkWriteEverything; }
    QListWidget &lstStep() const { return *m_lstStep; }
    QPlainTextEdit &txtReadme() const { return *m_txtReadme; }
    ProgressBox &stepBar() const { return *m_pboxStep; }
    ProgressBox &entireBar() const { return *m_pboxEntireProcess; }
    QWidget &stepPanel(int16_t step) const { return *m_fraStep[step]; }
    // The texts as the engine and the result wrote them (line breaks CR LF).
    QString summaryText() const { return m_summary; }
    QString resultText() const { return m_result; }
    QString actionText() const;
    bool isUploadRunning() const { return m_uploadRunning; }
    bool helpOpened() const { return m_helpOpened; }
    bool finishAllowed() const { return m_finishAllowed; }
    // The Finished step's picture: "finished", "failed" or "cancelled".
    QString finishedPicture() const { return m_finishedPicture; }

    // UploadDisplay
    bool showWindow() override;
    void insertLogLineOnTop(const QString &line) override;
    void setActionText(const QString &text) override;
    void drawStepBar(double percent) override;
    void drawEntireBar(int32_t value, int32_t total) override;
    void showAnimationFrame(int frame) override;
    void setBackNextEnabled(bool enabled) override;
    void pressNext() override;
    void setResultText(const QString &text) override;
    void clearSummary() override;
    void appendSummary(const QString &piece) override;
    bool advancedDisplay() const override { return Advanced; }
    void clearPorts() override;
    void addPort(const QString &port) override;
    void setPortText(const QString &port) override;
    void clearLanguages() override;
    void addLanguage(const QString &language) override;
    void setLanguageText(const QString &language) override;
    void setReadmeText(const QString &text) override;

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void buildSteps();
    void buildNavigationBar();
    QWidget *buildSelectFirmwareStep();
    QWidget *buildIntroductionStep();
    QWidget *buildSettingsStep();
    QWidget *buildUploadStep();
    QWidget *buildFinishedStep();
    void showStepPicture(int16_t step);
    void showFinishedPicture(const QString &name);
    // Says which device the chosen port opens.
    void showPortDevice();

    void UpdateNavButtons(int16_t step);
    void UpdateStepCaption(int16_t step);
    void runEntryActions(int16_t step, Direction direction);
    void onHelp();
    void onCancel();
    // True when the update may be cancelled: after the erase began, only once the user agreed.
    bool cancelConfirmed();
    void onBack();
    void onNext();
    void RunUpload();
    // Marks a run as on the stack (or over) and sets the buttons that could start another.
    void setRunning(bool running);
    void startUp(const QStringList &arguments);
    // The port and language the switches named stay chosen when the Settings step reloads
    // the configuration, where the package offers them.
    void preselectFromSwitches();
    // Selects the entry equal to value in selector; false when there is none.
    bool selectListEntry(QComboBox &selector, const QString &value);
    // A selector's change handler: hands the chosen port or language to the engine.
    void selectorChosen(QComboBox &selector, int index);
    void endProgramAtOnce(int status);

    WizardServices m_services;
    std::unique_ptr<MessageBoxPrompt> m_ownPrompt;
    std::unique_ptr<DesktopHelpViewer> m_ownHelp;
    WizardPrompt *m_prompt = nullptr;
    HelpViewer *m_help = nullptr;
    QX_CommandLine m_commandLine;
    std::unique_ptr<QX_UploadProcess> m_engine;
    std::unique_ptr<PackageList> m_packages;
    QX_ErrorInterface *EngineError = nullptr;

    bool m_finishAllowed = false;
    bool m_helpOpened = false;
    bool m_uploadRunning = false;
    bool m_closeWhenUploadEnds = false;
    bool m_switchesApplied = false; // the start-up chose port and language from the switches
    QString m_finishedPicture;
    QString m_summary;
    QString m_result;

    std::array<QWidget *, 5> m_fraStep{};
    std::array<QLabel *, 5> m_imgStep{};
    std::array<QLabel *, 5> m_lblStep{};
    std::array<QPushButton *, 5> m_cmdNav{};
    QListWidget *m_lstPackages = nullptr;
    QLabel *m_lblPackageNotes = nullptr;
    QPushButton *m_cmdBrowse = nullptr;
    QPlainTextEdit *m_txtReadme = nullptr;
    QComboBox *m_cmbPorts = nullptr;
    QComboBox *m_cmbFirmwareLanguages = nullptr;
    QLabel *m_lblPortDevice = nullptr;
    QPlainTextEdit *m_txtSummary = nullptr; // the configuration summary of the Settings step
    QCheckBox *m_chkWriteEverything = nullptr; // also what the instrument holds already
    QListWidget *m_lstStep = nullptr;
    QLabel *m_lblActionText = nullptr;
    ProgressBox *m_pboxStep = nullptr;
    ProgressBox *m_pboxEntireProcess = nullptr;
};
