// Applying the command line once the window has loaded.
#include "wizard/frmWizard.h"

#include "engine/QX_UploadProcess.h"
#include "wizard/PackageList.h"
#include "wizard/WizardPrompt.h"

#include <QComboBox>
#include <QListWidget>

namespace {
const QString ProgramTitle = QStringLiteral("Varnolt");
const QString PortSwitch = QStringLiteral("PORT");
const QString LanguageSwitch = QStringLiteral("FIRMWARE_LANGUAGE");
// The status of a start-up the user ends on a message about the command line: scripts that
// start the wizard see that it did not do what they asked.
constexpr int SwitchErrorStatus = 2;
} // namespace

void frmWizard::startUp(const QStringList &arguments)
{
    if (arguments.isEmpty()) {
        GoToStep(SelectFirmware, None);
        return;
    }
    m_commandLine.setCommandLine(arguments);
    if (m_commandLine.QX_Error_GetLastError() != 0) {
        if (!m_prompt->askOkCancel(QStringLiteral("Invalid Command Line Switch"), m_commandLine.QX_Error_GetLastErrorString()))
            return endProgramAtOnce(SwitchErrorStatus);
        GoToStep(SelectFirmware, None);
        return;
    }
    if (m_commandLine.Advanced()) {
        Advanced = true;
        m_lstStep->show();
    }
    if (!m_commandLine.Filename()) {
        GoToStep(SelectFirmware, None);
        return;
    }
    m_packages->AddPackageEntry(m_commandLine.FilePath());
    m_engine->setFilename(QStringLiteral("KDCONFIG.INI"));

    if (m_engine->QX_Error_GetLastError() != 0) {
        if (!m_prompt->askOkCancel(ProgramTitle, QStringLiteral("Error Occurred reading configuration file")))
            return endProgramAtOnce(SwitchErrorStatus);
        GoToStep(SelectFirmware, None);
        return;
    }
    m_switchesApplied = true;
    const auto applySwitch = [this](bool set, const QString &value, QComboBox &selector, const QString &name) {
        if (!set)
            return true;
        const QString wanted = value.toUpper();
        if (selectListEntry(selector, wanted))
            return true;
        return m_prompt->askOkCancel(ProgramTitle, QStringLiteral("Invalid Command Line Switch /") + name + wanted);
    };
    if (!applySwitch(m_commandLine.FirmwareLanguageSet(), m_commandLine.FirmwareLanguage(), *m_cmbFirmwareLanguages,
                     LanguageSwitch)
        || !applySwitch(m_commandLine.PortSet(), m_commandLine.Port(), *m_cmbPorts, PortSwitch))
        return endProgramAtOnce(SwitchErrorStatus);

    if (m_commandLine.AutoStart()) {
        m_engine->DisplayConfiguration();
        GoToStep(UploadStep, Next);
    } else {
        GoToStep(Introduction, Next);
    }
}

void frmWizard::preselectFromSwitches()
{
    if (!m_switchesApplied)
        return;
    if (m_commandLine.FirmwareLanguageSet())
        selectListEntry(*m_cmbFirmwareLanguages, m_commandLine.FirmwareLanguage().toUpper());
    if (m_commandLine.PortSet())
        selectListEntry(*m_cmbPorts, m_commandLine.Port().toUpper());
}
