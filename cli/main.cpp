// varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]
// Updates an instrument without the wizard: loads the package as the wizard does, runs the
// update, prints every log line and ends with the result text.
// Exit status: 0 success, 1 the update failed, 2 bad usage or a package that cannot be loaded.
#include "cli/ConsolePrompt.h"
#include "engine/QX_UploadProcess.h"
#include "engine/ResultText.h"
#include "trovex/Trovex.h"
#include "wizard/QX_CommandLine.h"
#include "wizard/package/PackageAccess.h"
#include "wizard/package/PackagePath.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

namespace {
enum Exit { Success = 0, UpdateFailed = 1, BadUsage = 2 };

QString forConsole(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("varnolt-cli"));
    QTextStream out(stdout), err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Updates an instrument's firmware from a package."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("update"), QStringLiteral("The command."));
    parser.addPositionalArgument(QStringLiteral("package"), QStringLiteral("The firmware package (.KDPKG)."));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("The port, one of the package's."), QStringLiteral("NAME"));
    const QCommandLineOption language(QStringLiteral("language"), QStringLiteral("The firmware language."), QStringLiteral("NAME"));
    const QCommandLineOption transferOnly(QStringLiteral("transfer-only"), QStringLiteral("Only load the transfer program."));
    parser.addOptions({port, language, transferOnly});
    parser.process(app);
    const QStringList args = parser.positionalArguments();
    if (args.size() != 2 || args[0] != QStringLiteral("update")) {
        err << parser.helpText();
        return BadUsage;
    }
    if (!QFileInfo(args[1]).isFile()) {
        err << "varnolt-cli: no package " << args[1] << Qt::endl;
        return BadUsage;
    }

    PackagePath = QFileInfo(args[1]).absoluteFilePath();
    ConsolePrompt prompt;
    QX_CommandLine switches;
    if (parser.isSet(transferOnly))
        switches.setCommandLine(QStringLiteral("/TRANSFERONLY"));
    QX_UploadProcess engine([] { return std::make_unique<Trovex>(); }, prompt);
    engine.setCommandLine(switches);
    QObject::connect(&engine, &QX_UploadProcess::ActionUpdate, &app,
                     [&](const QString &line) { out << forConsole(line) << Qt::endl; });

    engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    if (engine.QX_Error_GetLastError() != 0) {
        err << "varnolt-cli: the package cannot be loaded: " << forConsole(engine.QX_Error_GetLastErrorString()) << Qt::endl;
        return BadUsage;
    }
    if (parser.isSet(port))
        engine.setComPort(parser.value(port).trimmed().toUpper());
    if (parser.isSet(language))
        engine.setFirmwareLanguage(parser.value(language));

    ResetUnzipper();
    const std::optional<QString> closingText = ReadPackageText(QStringLiteral("Final.txt"));
    const bool succeeded = engine.Upload();
    out << Qt::endl
        << forConsole(ResultText::compose(switches.TransferOnly(), succeeded, closingText, engine.RestartInstrument(),
                                          engine.QX_Error_GetLastErrorString()))
        << Qt::endl;
    return succeeded ? Success : UpdateFailed;
}
