// Running the update from the Upload step and writing its result on the Finished step.
#include "wizard/frmWizard.h"

#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "wizard/PackageList.h"

#include <QCoreApplication>
#include <QTimer>
#include <optional>

void frmWizard::RunUpload()
{
    const std::optional<QString> closingText = m_packages->selectedPackage().readText(QStringLiteral("Final.txt"));
    QCoreApplication::processEvents();
    EngineError = m_engine.get();

    m_engine->setTransferOnly(m_commandLine.TransferOnly());
    m_uploadRunning = true;
    const bool succeeded = m_engine->Upload();
    m_uploadRunning = false;

    setResultText(ResultText::compose(m_commandLine.TransferOnly(), succeeded, closingText, m_engine->RestartInstrument(),
                                      EngineError->QX_Error_GetLastErrorString()));

    if (m_closeWhenUploadEnds)
        QTimer::singleShot(0, this, &QWidget::close);
}
