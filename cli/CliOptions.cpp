#include "cli/CliOptions.h"

namespace {
bool takeValue(const QStringList &args, qsizetype &i, QString &value, QString *error)
{
    if (i + 1 >= args.size() || args[i + 1].startsWith(QLatin1String("--"))) {
        *error = QStringLiteral("%1 needs a value").arg(args[i]);
        return false;
    }
    value = args[++i];
    return true;
}
} // namespace

QString CliOptions::usage()
{
    return QStringLiteral(
        "usage: varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]\n"
        "                          [--overwrite | --keep-existing] [--log FILE] [--json] [--quiet]\n"
        "       varnolt-cli info PACKAGE\n"
        "       varnolt-cli ports\n"
        "       varnolt-cli --help | --version\n"
        "\n"
        "update         update the instrument from the firmware package\n"
        "info           show what the package holds and its configuration\n"
        "ports          list the ports the application layer knows and whether they open\n"
        "--port         the port to use, one of the package's (default: the package's)\n"
        "--language     the firmware language, one of the package's\n"
        "--transfer-only  only load and start the transfer program\n"
        "--overwrite    replace existing read-back files without asking\n"
        "--keep-existing  never replace them (the update then fails)\n"
        "--log FILE     also write the log lines with timestamps to FILE\n"
        "--json         one JSON object per line for machines\n"
        "--quiet        only the result\n"
        "\n"
        "Exit status: 0 success, 1 the update failed, 2 bad usage or a package that cannot be\n"
        "loaded, 130 cancelled (Ctrl-C).\n");
}

bool CliOptions::parse(const QStringList &args, CliOptions &options, QString *error)
{
    if (args.isEmpty()) {
        *error = QStringLiteral("a command is needed");
        return false;
    }
    const QString first = args.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        options.command = Command::Help;
        return true;
    }
    if (first == QLatin1String("--version")) {
        options.command = Command::Version;
        return true;
    }
    if (first == QLatin1String("update"))
        options.command = Command::Update;
    else if (first == QLatin1String("info"))
        options.command = Command::Info;
    else if (first == QLatin1String("ports"))
        options.command = Command::Ports;
    else {
        *error = QStringLiteral("unknown command %1").arg(first);
        return false;
    }
    QStringList positional;
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString &arg = args[i];
        const bool updateOnly = options.command == Command::Update;
        if (arg == QLatin1String("--help")) {
            options.command = Command::Help;
            return true;
        } else if (updateOnly && arg == QLatin1String("--port")) {
            if (!takeValue(args, i, options.port, error))
                return false;
        } else if (updateOnly && arg == QLatin1String("--language")) {
            if (!takeValue(args, i, options.language, error))
                return false;
        } else if (updateOnly && arg == QLatin1String("--log")) {
            if (!takeValue(args, i, options.logFile, error))
                return false;
        } else if (updateOnly && arg == QLatin1String("--transfer-only")) {
            options.transferOnly = true;
        } else if (updateOnly && (arg == QLatin1String("--overwrite") || arg == QLatin1String("--keep-existing"))) {
            const Overwrite wanted = arg == QLatin1String("--overwrite") ? Overwrite::Always : Overwrite::Never;
            if (options.overwrite != Overwrite::Ask && options.overwrite != wanted) {
                *error = QStringLiteral("--overwrite and --keep-existing exclude each other");
                return false;
            }
            options.overwrite = wanted;
        } else if (updateOnly && arg == QLatin1String("--json")) {
            options.json = true;
        } else if (updateOnly && arg == QLatin1String("--quiet")) {
            options.quiet = true;
        } else if (arg.startsWith(QLatin1String("--"))) {
            *error = QStringLiteral("unknown option %1").arg(arg);
            return false;
        } else {
            positional << arg;
        }
    }
    const qsizetype wanted = options.command == Command::Ports ? 0 : 1;
    if (positional.size() != wanted) {
        *error = wanted == 0 ? QStringLiteral("ports takes no package") : QStringLiteral("one package is needed");
        return false;
    }
    if (wanted == 1)
        options.package = positional.first();
    return true;
}
