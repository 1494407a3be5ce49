#pragma once
// The headless tool's command line:
//   varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]
//                              [--overwrite | --keep-existing] [--log FILE] [--json] [--quiet]
//                              [--max-baud N]
//   varnolt-cli info PACKAGE [--json]
//   varnolt-cli ports
//   varnolt-cli doctor [PORT...] [--loopback]   (DoctorCommand)
//   varnolt-cli --help | --version
#include <QString>
#include <QStringList>
#include <optional>

struct CliOptions {
    enum class Command { Update, Info, Ports, Help, Version };
    enum class Overwrite { Ask, Always, Never };

    Command command = Command::Help;
    QString package;
    QString port;
    QString language;
    bool transferOnly = false;
    Overwrite overwrite = Overwrite::Ask;
    QString logFile;
    bool json = false;
    bool quiet = false;
    // The fastest line rate allowed once the transfer program runs; without --max-baud,
    // TROVEX_MAX_BAUD or LineRateLimit::Default.
    std::optional<int> maxBaud;

    // Parses the arguments after the program name; false with a reason in *error.
    static bool parse(const QStringList &arguments, CliOptions &options, QString *error);
    static QString usage();

private:
    // The one positional argument: the package, which ports has none of.
    static bool takePackage(const QStringList &positional, CliOptions &options, QString *error);
};
