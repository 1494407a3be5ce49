#include "cli/UpdateCommand.h"

#include "cli/EngineCommand.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "config/UpdateJournal.h"

#include <unistd.h>

namespace UpdateCommand {

int run(const CliOptions &options, const ApplicationLayerFactory &makeLayer)
{
    std::optional<QString> closingText;
    EngineCommand::Work work;
    work.prepare = [&](QX_UploadProcess &engine) {
        closingText = engine.package().readText(QStringLiteral("Final.txt"));
        // Whose calibration data goes back is for a person to say: unasked, nothing is touched.
        if (options.sameInstrument || isatty(STDIN_FILENO))
            return QString();
        const UpdateJournal journal = UpdateJournal::load();
        for (const QX_Download &readBack : engine.Downloads)
            if (journal.holdsInterruptedCopy(readBack.Filename()))
                return QStringLiteral("an update in this folder was cut short after it began to erase (see %1), and %2 holds what "
                                      "it saved; say whether this is the same instrument: --same-instrument writes that back, "
                                      "--other-instrument reads this instrument's own and keeps the saved file aside")
                    .arg(UpdateJournal::FileName, readBack.Filename());
        return QString();
    };
    work.run = [](QX_UploadProcess &engine) { return engine.Upload(); };
    work.text = [&](const QX_UploadProcess &engine, bool succeeded) { return ResultText::compose(engine, succeeded, closingText); };
    work.exitStatus = [](const QX_UploadProcess &, bool succeeded) { return succeeded ? ExitStatus::Success : ExitStatus::UpdateFailed; };
    return EngineCommand::run(options, makeLayer, work);
}

} // namespace UpdateCommand
