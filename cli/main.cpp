// varnolt-cli: updates an instrument's firmware without the wizard, for scripts, test benches
// and production lines. See CliOptions for the commands.
#include "Version.h"
#include "cli/CliOptions.h"
#include "cli/DoctorCommand.h"
#include "cli/ExitStatus.h"
#include "cli/InfoCommand.h"
#include "cli/PortsCommand.h"
#include "cli/ServiceCommands.h"
#include "cli/UpdateCommand.h"
#include "link/LineRateLimit.h"
#include "trovex/Trovex.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // The doctor has options of its own.
    if (app.arguments().value(1) == QLatin1String("doctor"))
        return DoctorCommand::run(app.arguments().mid(2));
    CliOptions options;
    QString error;
    if (!CliOptions::parse(app.arguments().mid(1), options, &error)) {
        QTextStream(stderr) << "varnolt-cli: " << error << "\n\n" << CliOptions::usage();
        return ExitStatus::BadUsage;
    }
    switch (options.command) {
    case CliOptions::Command::Help:
        QTextStream(stdout) << CliOptions::usage();
        return ExitStatus::Success;
    case CliOptions::Command::Version:
        QTextStream(stdout) << "varnolt-cli " << Version::Text << '\n';
        return ExitStatus::Success;
    case CliOptions::Command::Ports:
        return PortsCommand::run();
    case CliOptions::Command::Info:
        return InfoCommand::run(options);
    case CliOptions::Command::Update:
    case CliOptions::Command::Verify:
    case CliOptions::Command::Read:
    case CliOptions::Command::Restore:
        break;
    }
    if (!options.maxBaud)
        options.maxBaud = LineRateLimit::fromEnvironment();
    const ApplicationLayerFactory layer = [&options](const EngineWait &wait) {
        return std::make_unique<Trovex>(wait, PortMap::fromEnvironment(), *options.maxBaud);
    };
    switch (options.command) {
    case CliOptions::Command::Verify: return ServiceCommands::verify(options, layer);
    case CliOptions::Command::Read: return ServiceCommands::read(options, layer);
    case CliOptions::Command::Restore: return ServiceCommands::restore(options, layer);
    default: return UpdateCommand::run(options, layer);
    }
}
