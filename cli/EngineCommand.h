#pragma once
// What every command that talks to the instrument shares: the package loaded as the wizard
// loads it, --port and --language applied as the selectors would, the run reported (log
// lines, progress, --log, --json), Ctrl-C that cancels through the engine (and only warns
// first once the erase has begun), and the outcome's text and exit status.
#include "cli/CliOptions.h"
#include "engine/ApplicationLayer.h"

#include <QJsonObject>
#include <QString>
#include <functional>

class QX_UploadProcess;

namespace EngineCommand {
struct Work {
    // Checks what the command needs once the package is loaded: "" or why it cannot start.
    std::function<QString(QX_UploadProcess &)> prepare = [](QX_UploadProcess &) { return QString(); };
    // The run; true when it succeeded.
    std::function<bool(QX_UploadProcess &)> run;
    // The outcome for people (the Finished text of the wizard, for an update) and its exit
    // status, when the run was not cancelled.
    std::function<QString(const QX_UploadProcess &, bool succeeded)> text;
    std::function<int(const QX_UploadProcess &, bool succeeded)> exitStatus;
    // What the command adds to the JSON result.
    std::function<QJsonObject(const QX_UploadProcess &)> resultFields = [](const QX_UploadProcess &) { return QJsonObject(); };
};

// makeLayer: the application layer of the run (the serial one, or a scripted one in tests).
// Returns the ExitStatus.
int run(const CliOptions &options, const ApplicationLayerFactory &makeLayer, const Work &work);

// "The ... failed." and the engine's message, for a command's failure.
QString failureText(const QString &what, const QX_UploadProcess &engine);
}
