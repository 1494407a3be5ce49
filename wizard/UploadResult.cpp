// Running the update from the Upload step and writing its result on the Finished step.
#include "wizard/frmWizard.h"

#include "config/ErrorCodes.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "wizard/StepPictures.h"

#include <QCoreApplication>
#include <QPushButton>
#include <QTimer>
#include <optional>

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
