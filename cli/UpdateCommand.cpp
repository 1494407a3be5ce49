#include "cli/UpdateCommand.h"

#include "cli/EngineCommand.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"

namespace UpdateCommand {

int run(const CliOptions &options, const ApplicationLayerFactory &makeLayer)
{
    std::optional<QString> closingText;
    EngineCommand::Work work;
    work.prepare = [&](QX_UploadProcess &engine) {
        closingText = engine.package().readText(QStringLiteral("Final.txt"));
        return QString();
    };
    work.run = [](QX_UploadProcess &engine) { return engine.Upload(); };
    work.text = [&](const QX_UploadProcess &engine, bool succeeded) { return ResultText::compose(engine, succeeded, closingText); };
    work.exitStatus = [](const QX_UploadProcess &, bool succeeded) { return succeeded ? ExitStatus::Success : ExitStatus::UpdateFailed; };
    return EngineCommand::run(options, makeLayer, work);
}

} // namespace UpdateCommand
