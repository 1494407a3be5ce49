#include "engine/ResultText.h"

#include "engine/QX_UploadProcess.h"

namespace ResultText {
namespace {
const QString TwoLineBreaks = QStringLiteral("\r\n\r\n");
const QString RunAgainAdvice = QStringLiteral(
    "The instrument may now hold no working firmware: run the update again. If the transfer program no longer "
    "answers, switch the instrument off and on first, as the Settings step says.");
} // namespace

QString message(const QX_UploadProcess &engine, bool succeeded)
{
    if (!succeeded && engine.QX_Error_GetLastError() == 0 && !engine.failureLine().isEmpty())
        return engine.failureLine();
    return engine.QX_Error_GetLastErrorString();
}

QString compose(const QX_UploadProcess &engine, bool succeeded, const std::optional<QString> &closingText)
{
    if (engine.transferOnly())
        return succeeded ? QStringLiteral("The Transfer Program has been uploaded successfully to your instrument.")
                         : QStringLiteral("The Transfer Program Upload process failed.");
    if (!succeeded)
        return QStringLiteral("The Firmware Upload process failed.") + TwoLineBreaks + message(engine, succeeded)
               + (engine.eraseBegan() ? TwoLineBreaks + RunAgainAdvice : QString());
    if (closingText)
        return *closingText;
    return QStringLiteral("The Firmware has been uploaded successfully to your instrument.") + TwoLineBreaks
           + (engine.RestartInstrument() ? QStringLiteral("Your instrument has been restarted please run the calibration routines.")
                                         : QStringLiteral("Please restart your instrument and run the calibration routines."));
}

} // namespace ResultText
