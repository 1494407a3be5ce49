#include "wizard/frmWizard.h"

#include "engine/QX_UploadProcess.h"
#include "link/LineRateLimit.h"
#include "resources/StringTable.h"
#include "wizard/DesktopHelpViewer.h"
#include "wizard/HelpLocation.h"
#include "wizard/MessageBoxPrompt.h"
#include "wizard/PackageList.h"
#include "wizard/ResourceTexts.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QCheckBox>
#include <QCoreApplication>
#include <QFileDialog>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>
#include <cstdlib>

frmWizard::frmWizard(WizardServices services, QWidget *parent) : QWidget(parent), m_services(std::move(services))
{
    if (!m_services.prompt)
        m_ownPrompt = std::make_unique<MessageBoxPrompt>(this);
    m_prompt = m_services.prompt ? m_services.prompt : m_ownPrompt.get();
    if (!m_services.help)
        m_ownHelp = std::make_unique<DesktopHelpViewer>();
    m_help = m_services.help ? m_services.help : m_ownHelp.get();
    if (!m_services.chooseFile)
        m_services.chooseFile = [this](const QString &title, const QString &filter) {
            return QFileDialog::getOpenFileName(this, title, QString(), filter);
        };
    if (m_services.helpPath.isEmpty())
        m_services.helpPath = HelpLocation::find(QCoreApplication::applicationDirPath());

    m_engine = std::make_unique<QX_UploadProcess>(m_services.appLayerFactory, *m_prompt);
    m_engine->setHighestLineRate(m_services.highestLineRate.value_or(LineRateLimit::fromEnvironment()));
    buildSteps();
    m_packages = std::make_unique<PackageList>(*m_lstPackages, *m_lblPackageNotes, *m_prompt, m_services.chooseFile);
    connect(m_packages.get(), &PackageList::packageSelected, m_engine.get(), &QX_UploadProcess::setPackage);

    connect(m_cmdNav[Help], &QPushButton::clicked, this, &frmWizard::onHelp);
    connect(m_cmdNav[CancelButton], &QPushButton::clicked, this, &frmWizard::onCancel);
    connect(m_cmdNav[BackButton], &QPushButton::clicked, this, &frmWizard::onBack);
    connect(m_cmdNav[NextButton], &QPushButton::clicked, this, &frmWizard::onNext);
    connect(m_cmdNav[Exit], &QPushButton::clicked, this, &QWidget::close);
    connect(m_cmdBrowse, &QPushButton::clicked, m_packages.get(), &PackageList::browse);
    connect(new QShortcut(Qt::Key_F1, this), &QShortcut::activated, this, &frmWizard::onHelp);
    for (QComboBox *selector : {m_cmbPorts, m_cmbFirmwareLanguages})
        connect(selector, &QComboBox::currentIndexChanged, this,
                [this, selector](int index) { selectorChosen(*selector, index); });
    connect(m_cmbPorts, &QComboBox::currentIndexChanged, this, &frmWizard::showPortDevice);
    connect(m_chkWriteEverything, &QCheckBox::toggled, m_engine.get(), &QX_UploadProcess::setFullUpdate);
}

frmWizard::~frmWizard() = default;

void frmWizard::load(const QStringList &arguments)
{
    m_finishAllowed = false;
    Advanced = false;
    for (QWidget *panel : m_fraStep)
        panel->hide();
    ResourceTexts::ApplyResourceTexts(*this);
    setResultText(m_lblStep[Finished]->text()); // CR LF from the string table, shown as line breaks
    // Nothing is chosen before the command line has been applied: its messages come first,
    // and the first step shown sets the buttons.
    for (Nav button : {BackButton, NextButton, Exit})
        m_cmdNav[button]->setEnabled(false);
    m_engine->UploadWizard_Running(*this);
    startUp(arguments);
}

void frmWizard::closeEvent(QCloseEvent *event)
{
    // The engine must outlive a run that is still unwinding after Cancel: close once it has.
    if (m_uploadRunning) {
        if (!cancelConfirmed()) {
            event->ignore();
            return;
        }
        m_closeWhenUploadEnds = true;
        m_engine->Cancel();
        event->ignore();
        return;
    }
    m_engine.reset();
    if (m_helpOpened)
        m_help->close(m_services.helpPath);
    event->accept();
}

void frmWizard::endProgramAtOnce(int status)
{
    if (m_services.endProgram) {
        m_services.endProgram(status);
        return;
    }
    m_engine.reset(); // the temporary configuration copies go with it
    std::_Exit(status);
}
