// Running the update from the Upload step and writing its result on the Finished step.
#include "wizard/frmWizard.h"

#include "engine/QX_UploadProcess.h"
#include "wizard/package/PackageAccess.h"

#include <QCoreApplication>
#include <QTimer>
#include <optional>

namespace {
const QString TwoLineBreaks = QStringLiteral("\r\n\r\n");
}

void frmWizard::RunUpload()
{
    ResetUnzipper();
    const std::optional<QString> closingText = ReadPackageText(QStringLiteral("Final.txt"));
    QCoreApplication::processEvents();
    EngineError = m_engine.get();

    m_uploadRunning = true;
    const bool succeeded = m_engine->Upload();
    m_uploadRunning = false;

    QString result;
    if (m_commandLine.TransferOnly()) {
        result = succeeded ? QStringLiteral("The Transfer Program has been uploaded successfully to your instrument.")
                           : QStringLiteral("The Transfer Program Upload process failed.");
    } else if (!succeeded) {
        result = QStringLiteral("The Firmware Upload process failed.") + TwoLineBreaks + EngineError->QX_Error_GetLastErrorString();
    } else if (closingText) {
        result = *closingText;
    } else {
        result = QStringLiteral("The Firmware has been uploaded successfully to your instrument.") + TwoLineBreaks
                 + (m_engine->RestartInstrument()
                        ? QStringLiteral("Your instrument has been restarted please run the calibration routines.")
                        : QStringLiteral("Please restart your instrument and run the calibration routines."));
    }
    setResultText(result);

    if (m_closeWhenUploadEnds)
        QTimer::singleShot(0, this, &QWidget::close);
}
