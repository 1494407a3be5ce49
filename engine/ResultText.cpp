#include "engine/ResultText.h"

namespace ResultText {

QString compose(bool transferOnly, bool succeeded, const std::optional<QString> &closingText, bool instrumentRestarted,
                const QString &lastError)
{
    const QString twoLineBreaks = QStringLiteral("\r\n\r\n");
    if (transferOnly)
        return succeeded ? QStringLiteral("The Transfer Program has been uploaded successfully to your instrument.")
                         : QStringLiteral("The Transfer Program Upload process failed.");
    if (!succeeded)
        return QStringLiteral("The Firmware Upload process failed.") + twoLineBreaks + lastError;
    if (closingText)
        return *closingText;
    return QStringLiteral("The Firmware has been uploaded successfully to your instrument.") + twoLineBreaks
           + (instrumentRestarted ? QStringLiteral("Your instrument has been restarted please run the calibration routines.")
                                  : QStringLiteral("Please restart your instrument and run the calibration routines."));
}

} // namespace ResultText
