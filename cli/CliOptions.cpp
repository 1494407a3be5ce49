#include "cli/CliOptions.h"

namespace {
bool takeValue(const QStringList &args, qsizetype &i, QString &value, QString *error)
{
    if (i + 1 >= args.size() || args[i + 1].startsWith(QLatin1Char('-'))) {
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
        "                          [--max-baud N]\n"
        "       varnolt-cli info PACKAGE [--json]\n"
        "       varnolt-cli ports\n"
        "       varnolt-cli doctor [PORT...] [--loopback]\n"
        "       varnolt-cli --help | --version\n"
        "\n"
        "update         update the instrument from the firmware package\n"
        "info           show what the package holds and its configuration\n"
        "ports          list the ports the application layer knows and whether they open\n"
        "doctor         why a port does not work, and the command that fixes it; --loopback\n"
        "               (TX bridged to RX) also tests the bytes at each rate\n"
        "-p, --port     the port to use, one of the package's (default: the package's)\n"
        "-l, --language the firmware language, one of the package's\n"
        "--transfer-only  only load and start the transfer program\n"
        "--overwrite    replace existing read-back files without asking\n"
        "--keep-existing  never replace them (the update then fails)\n"
        "--log FILE     also write the run to FILE: a header (tool, package and its SHA-256,\n"
        "               port and device, language), the log lines with timestamps, the result\n"
        "               and the exit status\n"
        "--json         one JSON object per line for machines (also for info)\n"
        "--quiet        only the result\n"
        "--max-baud N   once the transfer program runs, move a serial line to the fastest rate\n"
        "               up to N that the instrument and the port take (default: TROVEX_MAX_BAUD,\n"
        "               else 921600); 0 or the package's rate keeps the package's rate\n"
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
        } else if (updateOnly && (arg == QLatin1String("--port") || arg == QLatin1String("-p"))) {
            if (!takeValue(args, i, options.port, error))
                return false;
        } else if (updateOnly && (arg == QLatin1String("--language") || arg == QLatin1String("-l"))) {
            if (!takeValue(args, i, options.language, error))
                return false;
        } else if (updateOnly && arg == QLatin1String("--log")) {
            if (!takeValue(args, i, options.logFile, error))
                return false;
        } else if (updateOnly && arg == QLatin1String("--max-baud")) {
            QString value;
            if (!takeValue(args, i, value, error))
                return false;
            bool ok = false;
            options.maxBaud = value.toInt(&ok);
            if (!ok || *options.maxBaud < 0) {
                *error = QStringLiteral("--max-baud needs a rate in baud (0 keeps the package's rate), not %1").arg(value);
                return false;
            }
        } else if (updateOnly && arg == QLatin1String("--transfer-only")) {
            options.transferOnly = true;
        } else if (updateOnly && (arg == QLatin1String("--overwrite") || arg == QLatin1String("--keep-existing"))) {
            const Overwrite wanted = arg == QLatin1String("--overwrite") ? Overwrite::Always : Overwrite::Never;
            if (options.overwrite != Overwrite::Ask && options.overwrite != wanted) {
                *error = QStringLiteral("--overwrite and --keep-existing exclude each other");
                return false;
            }
            options.overwrite = wanted;
        } else if (options.command != Command::Ports && arg == QLatin1String("--json")) {
            options.json = true;
        } else if (updateOnly && arg == QLatin1String("--quiet")) {
            options.quiet = true;
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            *error = QStringLiteral("unknown option %1").arg(arg);
            return false;
        } else {
            positional << arg;
        }
    }
    return takePackage(positional, options, error);
}

bool CliOptions::takePackage(const QStringList &positional, CliOptions &options, QString *error)
{
    if (options.command == Command::Ports) {
        if (!positional.isEmpty())
            *error = QStringLiteral("ports takes no package");
        return positional.isEmpty();
    }
    const QString command = options.command == Command::Update ? QStringLiteral("update") : QStringLiteral("info");
    if (positional.isEmpty()) {
        *error = QStringLiteral("%1 needs the package (the .KDPKG file) to %2").arg(command,
                     options.command == Command::Update ? QStringLiteral("install") : QStringLiteral("show"));
        return false;
    }
    if (positional.size() > 1) {
        *error = QStringLiteral("one package is needed, not %1").arg(positional.join(QStringLiteral(", ")));
        return false;
    }
    options.package = positional.first();
    return true;
}
