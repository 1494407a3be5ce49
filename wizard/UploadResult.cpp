// Running the update from the Upload step and writing its result on the Finished step.
#include "wizard/frmWizard.h"

#include "config/ErrorCodes.h"
#include "doctor/DoctorText.h"
#include "doctor/PortDoctor.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "wizard/StepPictures.h"
#include "wizard/WizardPrompt.h"

#include <QCoreApplication>
#include <QPushButton>
#include <QTimer>
#include <optional>

namespace {
// A port that did not open: what the port doctor finds there, each problem with the command
// that fixes it. A message box wraps long lines, so the terminal's indents give way to a
// blank line before each problem.
QString portAdvice(const QString &port)
{
    const PortDoctor doctor(PortMap::fromEnvironment(), SystemPaths{}, UserIdentity::current());
    QStringList text{QStringLiteral("%1 did not open. What the port doctor finds there (varnolt-cli doctor %1 shows it again):")
                         .arg(port),
                     QString()};
    for (const QString &line : DoctorText::lines(doctor.examine(port))) {
        if (line.trimmed().startsWith(QLatin1String("Problem:")))
            text << QString();
        text << line.trimmed();
    }
    return text.join(QStringLiteral("\r\n"));
}
} // namespace

void frmWizard::RunUpload()
{
    if (m_uploadRunning)
        return; // one run at a time: the engine and its layer belong to the run on the stack
    setRunning(true); // before the yield below, where a click could otherwise start another
    const std::optional<QString> closingText = m_engine->package().readText(QStringLiteral("Final.txt"));
    QCoreApplication::processEvents();
    EngineError = m_engine.get();

    m_engine->setTransferOnly(m_commandLine.TransferOnly());
    const bool succeeded = m_engine->Upload();
    setRunning(false);

    setResultText(ResultText::compose(*m_engine, succeeded, closingText));
    const bool cancelled = EngineError->QX_Error_GetLastError() == ErrorCode::Cancelled;
    showFinishedPicture(QLatin1String(succeeded ? StepPictures::Succeeded : cancelled ? StepPictures::Cancelled : StepPictures::Failed));
    if (!m_engine->openFailureReason().isEmpty() && !m_closeWhenUploadEnds)
        m_prompt->showMessage(QStringLiteral("Varnolt"), portAdvice(m_engine->ComPort.trimmed()));

    if (m_closeWhenUploadEnds)
        QTimer::singleShot(0, this, &QWidget::close);
}

void frmWizard::setRunning(bool running)
{
    m_uploadRunning = running;
    // Back, Next and Browse could lead to a second run while this one is on the stack.
    m_cmdBrowse->setEnabled(!running);
    UpdateNavButtons(mnCurStep);
}
