#include "cli/CliOptions.h"

#include <QHash>

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

// An address or length in flash: decimal, or hexadecimal after 0x; within 32 bits.
std::optional<uint32_t> flashNumber(const QString &text)
{
    bool ok = false;
    const QString trimmed = text.trimmed();
    const qulonglong value = trimmed.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? trimmed.mid(2).toULongLong(&ok, 16)
                                                                                           : trimmed.toULongLong(&ok, 10);
    return ok && value <= 0xFFFFFFFFull ? std::optional<uint32_t>(uint32_t(value)) : std::nullopt;
}

const QHash<QString, CliOptions::Command> &commands()
{
    static const QHash<QString, CliOptions::Command> words = {
        {QStringLiteral("update"), CliOptions::Command::Update}, {QStringLiteral("verify"), CliOptions::Command::Verify},
        {QStringLiteral("read"), CliOptions::Command::Read},     {QStringLiteral("restore"), CliOptions::Command::Restore},
        {QStringLiteral("info"), CliOptions::Command::Info},     {QStringLiteral("ports"), CliOptions::Command::Ports}};
    return words;
}
} // namespace

QString CliOptions::name(Command command)
{
    return commands().key(command);
}

QString CliOptions::usage()
{
    return QStringLiteral(
        "usage: varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]\n"
        "                          [--overwrite | --keep-existing] [--log FILE] [--json] [--quiet]\n"
        "                          [--max-baud N] [--full] [--same-instrument | --other-instrument]\n"
        "       varnolt-cli verify PACKAGE [--port NAME] [--language NAME] [--log FILE] [--json]\n"
        "                          [--quiet] [--max-baud N]\n"
        "       varnolt-cli read PACKAGE --range START,LENGTH --out FILE [--port NAME] [--log FILE]\n"
        "                          [--json] [--quiet] [--max-baud N]\n"
        "       varnolt-cli restore PACKAGE FILE [--at ADDRESS] [--port NAME] [--log FILE] [--json]\n"
        "                          [--quiet] [--max-baud N] [--full]\n"
        "       varnolt-cli info PACKAGE [--json]\n"
        "       varnolt-cli ports\n"
        "       varnolt-cli doctor [PORT...] [--loopback]\n"
        "       varnolt-cli --help | --version\n"
        "\n"
        "update         update the instrument from the firmware package\n"
        "verify         compare the instrument with the package's images, writing nothing: each\n"
        "               is equal, or differs from its first differing address on (an image that\n"
        "               writes back a read-back file is compared with that file, when it is there)\n"
        "read           read LENGTH bytes from START (0x for hexadecimal) into FILE, checked\n"
        "               against the instrument's CRC-32 of the range\n"
        "restore        write FILE back into the instrument: by default a read-back file of the\n"
        "               package, to its own range, or to ADDRESS with --at. The erase units it\n"
        "               touches are read and saved first (FILE.before-restore-N in the working\n"
        "               folder), merged with FILE, erased and written back whole, and verified\n"
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
        "               port and device, language), the log lines with timestamps, each image's\n"
        "               checksums, the result and the exit status\n"
        "--json         one JSON object per line for machines (also for info)\n"
        "--quiet        only the result\n"
        "--max-baud N   once the transfer program runs, move a serial line to the fastest rate\n"
        "               up to N that the instrument and the port take (default: TROVEX_MAX_BAUD,\n"
        "               else 921600); 0 or the package's rate keeps the package's rate\n"
        "--same-instrument  after an update in this folder was cut short once it began to erase:\n"
        "               this is the same instrument, so the read-back files it saved stay and are\n"
        "               written back (what the instrument holds now is kept as FILE.found-N)\n"
        "--other-instrument  ... this is another instrument: its data is read as usual, and the\n"
        "               files saved then are kept as FILE.interrupted-N. Without either the update\n"
        "               asks on a terminal, and stops before touching the instrument otherwise\n"
        "--full         erase and program everything; without it, where the transfer program\n"
        "               answers range checksums, erase units and blocks that already hold the\n"
        "               new contents are skipped, so a rerun after an interruption writes only\n"
        "               what is still missing\n"
        "\n"
        "Exit status: 0 success, 1 the command failed, 2 bad usage or a package that cannot be\n"
        "loaded, 3 verify found the instrument different from the package, 130 cancelled (Ctrl-C).\n");
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
    if (!commands().contains(first)) {
        *error = QStringLiteral("unknown command %1").arg(first);
        return false;
    }
    options.command = commands().value(first);
    QStringList positional;
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (arg == QLatin1String("--help")) {
            options.command = Command::Help;
            return true;
        }
        if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            if (!options.takeOption(args, i, error))
                return false;
            continue;
        }
        positional << arg;
    }
    if (options.command == Command::Read && (options.outFile.isEmpty() || options.rangeLength == 0)) {
        *error = QStringLiteral("read needs --range START,LENGTH and --out FILE");
        return false;
    }
    return options.takePositional(positional, error);
}

bool CliOptions::takeOption(const QStringList &args, qsizetype &i, QString *error)
{
    const QString &arg = args[i];
    const bool engine = runsEngine();
    const bool update = command == Command::Update;
    const bool choosesImages = update || command == Command::Verify;
    if (engine && (arg == QLatin1String("--port") || arg == QLatin1String("-p")))
        return takeValue(args, i, port, error);
    if (choosesImages && (arg == QLatin1String("--language") || arg == QLatin1String("-l")))
        return takeValue(args, i, language, error);
    if (engine && arg == QLatin1String("--log"))
        return takeValue(args, i, logFile, error);
    if (engine && arg == QLatin1String("--max-baud")) {
        QString value;
        if (!takeValue(args, i, value, error))
            return false;
        bool ok = false;
        maxBaud = value.toInt(&ok);
        if (!ok || *maxBaud < 0) {
            *error = QStringLiteral("--max-baud needs a rate in baud (0 keeps the package's rate), not %1").arg(value);
            return false;
        }
        return true;
    }
    if (update && arg == QLatin1String("--transfer-only"))
        return transferOnly = true;
    if ((update || command == Command::Restore) && arg == QLatin1String("--full"))
        return full = true;
    if (update && (arg == QLatin1String("--same-instrument") || arg == QLatin1String("--other-instrument"))) {
        const bool same = arg == QLatin1String("--same-instrument");
        if (sameInstrument && *sameInstrument != same) {
            *error = QStringLiteral("--same-instrument and --other-instrument exclude each other");
            return false;
        }
        sameInstrument = same;
        return true;
    }
    if (update && (arg == QLatin1String("--overwrite") || arg == QLatin1String("--keep-existing"))) {
        const Overwrite wanted = arg == QLatin1String("--overwrite") ? Overwrite::Always : Overwrite::Never;
        if (overwrite != Overwrite::Ask && overwrite != wanted) {
            *error = QStringLiteral("--overwrite and --keep-existing exclude each other");
            return false;
        }
        overwrite = wanted;
        return true;
    }
    if (command == Command::Read && arg == QLatin1String("--range")) {
        QString value;
        if (!takeValue(args, i, value, error))
            return false;
        const QStringList parts = value.split(QLatin1Char(','));
        const std::optional<uint32_t> start = parts.size() == 2 ? flashNumber(parts[0]) : std::nullopt;
        const std::optional<uint32_t> length = parts.size() == 2 ? flashNumber(parts[1]) : std::nullopt;
        if (!start || !length || *length == 0 || *length > uint32_t(INT32_MAX)) {
            *error = QStringLiteral("--range needs START,LENGTH (a length of at least one byte; 0x for hexadecimal), not %1").arg(value);
            return false;
        }
        rangeStart = int32_t(*start);
        rangeLength = int32_t(*length);
        return true;
    }
    if (command == Command::Read && arg == QLatin1String("--out"))
        return takeValue(args, i, outFile, error);
    if (command == Command::Restore && arg == QLatin1String("--at")) {
        QString value;
        if (!takeValue(args, i, value, error))
            return false;
        const std::optional<uint32_t> at = flashNumber(value);
        if (!at) {
            *error = QStringLiteral("--at needs an address (0x for hexadecimal), not %1").arg(value);
            return false;
        }
        restoreAt = int32_t(*at);
        return true;
    }
    if (command != Command::Ports && arg == QLatin1String("--json"))
        return json = true;
    if (engine && arg == QLatin1String("--quiet"))
        return quiet = true;
    *error = QStringLiteral("unknown option %1").arg(arg);
    return false;
}

bool CliOptions::takePositional(const QStringList &positional, QString *error)
{
    if (command == Command::Ports) {
        if (!positional.isEmpty())
            *error = QStringLiteral("ports takes no package");
        return positional.isEmpty();
    }
    static const QHash<Command, QString> purposes = {{Command::Update, QStringLiteral("install")},
                                                     {Command::Verify, QStringLiteral("compare with")},
                                                     {Command::Read, QStringLiteral("read with")},
                                                     {Command::Restore, QStringLiteral("restore with")},
                                                     {Command::Info, QStringLiteral("show")}};
    if (positional.isEmpty()) {
        *error = QStringLiteral("%1 needs the package (the .KDPKG file) to %2").arg(name(command), purposes.value(command));
        return false;
    }
    const qsizetype wanted = command == Command::Restore ? 2 : 1;
    if (command == Command::Restore && positional.size() == 1) {
        *error = QStringLiteral("restore needs the file to write back after the package");
        return false;
    }
    if (positional.size() > wanted) {
        *error = command == Command::Restore
                     ? QStringLiteral("restore takes the package and one file, not %1").arg(positional.join(QStringLiteral(", ")))
                     : QStringLiteral("one package is needed, not %1").arg(positional.join(QStringLiteral(", ")));
        return false;
    }
    package = positional.first();
    if (command == Command::Restore)
        restoreFile = positional.at(1);
    return true;
}
