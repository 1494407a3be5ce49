#pragma once
// The headless tool's command line:
//   varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]
//                              [--overwrite | --keep-existing] [--log FILE] [--json] [--quiet]
//   varnolt-cli info PACKAGE [--json]
//   varnolt-cli ports
//   varnolt-cli doctor [PORT...] [--loopback]   (DoctorCommand)
//   varnolt-cli --help | --version
#include <QString>
#include <QStringList>

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

    // Parses the arguments after the program name; false with a reason in *error.
    static bool parse(const QStringList &arguments, CliOptions &options, QString *error);
    static QString usage();

private:
    // The one positional argument: the package, which ports has none of.
    static bool takePackage(const QStringList &positional, CliOptions &options, QString *error);
};
