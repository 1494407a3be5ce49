// Moving between the steps: the navigation buttons, the keys, and each step's entry actions.
#include "wizard/frmWizard.h"

#include "Version.h"
#include "engine/QX_UploadProcess.h"
#include "resources/StringTable.h"
#include "wizard/HelpViewer.h"
#include "wizard/PackageList.h"
#include "wizard/StepPictures.h"
#include "wizard/WizardPrompt.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QListWidget>
#include <QPushButton>

namespace {
const QString ProgramTitle = QStringLiteral("Varnolt");
const QString ConfigMember = QStringLiteral("KDCONFIG.INI");
}

void frmWizard::GoToStep(int16_t step, Direction direction)
{
    if (step == Finished)
        m_finishAllowed = true;
    m_fraStep[mnCurStep]->setEnabled(false);
    m_fraStep[step]->show();
    m_fraStep[step]->raise();
    if (step != mnCurStep)
        m_fraStep[mnCurStep]->hide();
    m_fraStep[step]->setEnabled(true);
    UpdateStepCaption(step);
    UpdateNavButtons(step);
    runEntryActions(step, direction);
}

void frmWizard::runEntryActions(int16_t step, Direction direction)
{
    if (step == SelectFirmware && direction != Back) {
        if (!m_commandLine.Filename())
            m_packages->searchFolder();
    } else if (step == Introduction) {
        // A package without a read-me skips the step, whichever way the user goes.
        if (!m_engine->DisplayReadMe())
            GoToStep(direction == Next ? Settings : SelectFirmware, direction);
    } else if (step == Settings && direction == Next) {
        m_engine->setFilename(ConfigMember);
        if (m_engine->QX_Error_GetLastError() != 0) {
            m_prompt->showMessage(ProgramTitle, QStringLiteral("Error Occurred reading configuration file"));
            GoToStep(SelectFirmware, Back);
        } else {
            preselectFromSwitches();
            m_engine->DisplayConfiguration();
            showPortDevice();
        }
    } else if (step == UploadStep && direction == Back) {
        m_finishAllowed = false; // Exit stays enabled on this screen, off from the next move on
    } else if (step == UploadStep && direction == Next) {
        RunUpload();
    }
}

void frmWizard::UpdateStepCaption(int16_t step)
{
    const QString title = StringTable::load(m_fraStep[step]->property("tag").toInt());
    setWindowTitle(QStringLiteral("Varnolt Wizard V%1.%2.%3 - ").arg(Version::Major).arg(Version::Minor).arg(Version::Revision)
                   + title);
    m_cmdNav[NextButton]->setText(step == Settings ? QStringLiteral("&Execute >") : StringTable::load(103));
}

void frmWizard::UpdateNavButtons(int16_t step)
{
    mnCurStep = step;
    m_cmdNav[BackButton]->setEnabled(step != SelectFirmware && !m_uploadRunning);
    m_cmdNav[NextButton]->setEnabled(step != Finished && !m_uploadRunning);
    m_cmdNav[Exit]->setEnabled(m_finishAllowed);
}

void frmWizard::onHelp()
{
    m_helpOpened = true;
    if (!m_help->open(m_services.helpPath, QStringLiteral("contents")))
        m_prompt->showMessage(ProgramTitle, QStringLiteral("The help cannot be shown: no program here opens it. The help is "
                                                           "the file\r\n") + m_services.helpPath
                                                + QStringLiteral("\r\nwhich any web browser shows."));
}

void frmWizard::onCancel()
{
    if (!cancelConfirmed())
        return;
    m_engine->Cancel();
    showFinishedPicture(QLatin1String(StepPictures::Cancelled));
    QCoreApplication::processEvents();
    GoToStep(Finished, Next);
}

void frmWizard::keyPressEvent(QKeyEvent *event)
{
    // Esc acts as Cancel once no control wanted it: a drop-down list it closes keeps it.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier)
        onCancel();
    else
        QWidget::keyPressEvent(event);
}

bool frmWizard::cancelConfirmed()
{
    // Until the erase the instrument keeps its firmware whatever happens; from there on a
    // cancel may leave it without any until the update is run again.
    if (!m_uploadRunning || m_engine->CancelRequested || !m_engine->eraseBegan())
        return true;
    return m_prompt->askYesNo(ProgramTitle,
                              QStringLiteral("The erase has begun. If you cancel now, the instrument may be left without "
                                             "working firmware until the update is run again.\r\n\r\nCancel the update?"));
}

void frmWizard::onBack()
{
    if (m_uploadRunning)
        return;
    GoToStep(static_cast<int16_t>(mnCurStep - 1), Back);
}

void frmWizard::onNext()
{
    if (m_uploadRunning)
        return;
    if (m_lstPackages->count() == 0 && mnCurStep == SelectFirmware) {
        m_prompt->showMessage(ProgramTitle, QStringLiteral("Please select a Firmware Package to upload"));
        return;
    }
    GoToStep(static_cast<int16_t>(mnCurStep + 1), Next);
}
