#include "cli/EngineCommand.h"

#include "cli/ConsolePrompt.h"
#include "cli/ExitStatus.h"
#include "cli/InterruptCancel.h"
#include "cli/RunReporter.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "package/Package.h"
#include "trovex/Trovex.h"

#include <QFileInfo>
#include <QPointer>

namespace EngineCommand {
namespace {
// From the erase on, a cancelled run may leave the instrument without working firmware.
const QString EraseWarning = QStringLiteral("the erase has begun: stopping now may leave the instrument without working "
                                            "firmware until the update is run again. Press Ctrl-C again to stop anyway.");

QStringList listItems(const QString &list)
{
    QStringList items;
    for (const QString &item : list.split(QLatin1Char(',')))
        items << item.trimmed().toUpper();
    return items;
}

// The selectors' rule: a value must be one of the package's; "" when it is, else why not.
QString checkChoice(const QString &what, const QString &wanted, const QString &offered)
{
    const QStringList items = listItems(offered);
    if (items.contains(wanted.trimmed().toUpper()))
        return QString();
    return QStringLiteral("the package offers no %1 %2; it offers %3").arg(what, wanted, items.join(QStringLiteral(", ")));
}

// Loads the package as the wizard does and applies --port and --language; "" or the reason
// the command cannot start.
QString prepare(const CliOptions &options, QX_UploadProcess &engine)
{
    if (!QFileInfo(options.package).isFile())
        return QStringLiteral("no package %1").arg(options.package);
    engine.setPackage(Package(QFileInfo(options.package).absoluteFilePath()));
    engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    if (engine.QX_Error_GetLastError() != 0)
        return QStringLiteral("the package cannot be loaded: ") + engine.QX_Error_GetLastErrorString();
    if (!options.port.isEmpty()) {
        if (QString why = checkChoice(QStringLiteral("port"), options.port, engine.PortList); !why.isEmpty())
            return why;
        engine.setComPort(options.port.trimmed().toUpper());
    }
    if (!options.language.isEmpty()) {
        if (QString why = checkChoice(QStringLiteral("language"), options.language, engine.FirmwareLanguages); !why.isEmpty())
            return why;
        engine.setFirmwareLanguage(options.language);
        if (!engine.BuildProgramList())
            return QStringLiteral("the programs of language %1 cannot be read: ").arg(options.language) + engine.QX_Error_GetLastErrorString();
    }
    return QString();
}

} // namespace

QString failureText(const QString &what, const QX_UploadProcess &engine)
{
    return QStringLiteral("The %1 failed.\r\n\r\n").arg(what) + ResultText::message(engine, false);
}

int run(const CliOptions &options, const ApplicationLayerFactory &makeLayer, const Work &work)
{
    ConsolePrompt prompt(options.overwrite, options.sameInstrument);
    // The layer lives only while the channel is open; the rate needs it while it does.
    QPointer<ApplicationLayer> layer;
    RunReporter *reporting = nullptr; // the reporter below, which the layer's runs tell how the line was set up
    QX_UploadProcess engine(
        [&](const EngineWait &wait) {
            auto created = makeLayer(wait);
            layer = created.get();
            if (const auto *trovex = qobject_cast<const Trovex *>(created.get())) {
                QObject::connect(trovex, &Trovex::lineSettled, trovex,
                                 [&](int rate, bool packed, const QString &note) { reporting->lineSettled(rate, packed, note); });
                QObject::connect(trovex, &Trovex::blockAlreadyRight, trovex, [&](int bytes) { reporting->blockAlreadyRight(bytes); });
            }
            return created;
        },
        prompt);
    engine.setTransferOnly(options.transferOnly);
    engine.setFullUpdate(options.full);
    int64_t bytesMoved = 0; // kept after the channel has closed
    RunReporter reporter(options, engine, [&] {
        if (const auto *trovex = qobject_cast<const Trovex *>(layer.data()))
            bytesMoved = trovex->payloadBytes();
        return bytesMoved;
    });
    reporting = &reporter;
    QString error;
    if (!reporter.open(&error) || !(error = prepare(options, engine)).isEmpty() || !(error = work.prepare(engine)).isEmpty()) {
        reporter.error(error, ExitStatus::BadUsage);
        return ExitStatus::BadUsage;
    }
    reporter.begin();

    InterruptCancel interrupt([&] { engine.Cancel(); }, [&] { reporter.warning(EraseWarning); });
    QObject::connect(&engine, &QX_UploadProcess::ActionUpdate, &reporter, [&](const QString &line) {
        reporter.logLine(line);
        if (engine.eraseBegan())
            interrupt.warnFirst();
    });
    QObject::connect(&engine, &QX_UploadProcess::ProgressUpdate, &reporter, &RunReporter::progress);

    const bool succeeded = work.run(engine);
    const int status = interrupt.interrupted() ? ExitStatus::Cancelled : work.exitStatus(engine, succeeded);
    reporter.result(succeeded, work.text(engine, succeeded), status, work.resultFields(engine));
    return status;
}

} // namespace EngineCommand
