#pragma once
// The headless tool's command line:
//   varnolt-cli update PACKAGE [--port NAME] [--language NAME] [--transfer-only]
//                              [--overwrite | --keep-existing] [--log FILE] [--json] [--quiet]
//                              [--max-baud N] [--full] [--same-instrument | --other-instrument]
//   varnolt-cli verify PACKAGE [--port NAME] [--language NAME] [--log FILE] [--json] [--quiet] [--max-baud N]
//   varnolt-cli read PACKAGE --range START,LENGTH --out FILE [--port NAME] [--log FILE] [--json] [--quiet] [--max-baud N]
//   varnolt-cli restore PACKAGE FILE [--at ADDRESS] [--port NAME] [--log FILE] [--json] [--quiet] [--max-baud N] [--full]
//   varnolt-cli info PACKAGE [--json]
//   varnolt-cli ports
//   varnolt-cli doctor [PORT...] [--loopback]   (DoctorCommand)
//   varnolt-cli --help | --version
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

struct CliOptions {
    enum class Command { Update, Verify, Read, Restore, Info, Ports, Help, Version };
    enum class Overwrite { Ask, Always, Never };

    Command command = Command::Help;
    QString package;
    QString port;
    QString language;
    bool transferOnly = false;
    bool full = false; // erase and program everything, also what holds its final content
    Overwrite overwrite = Overwrite::Ask;
    // update: whether the instrument is the one an update cut short in this folder was for
    // (--same-instrument, --other-instrument); asked on a terminal when not given.
    std::optional<bool> sameInstrument;
    QString logFile;
    bool json = false;
    bool quiet = false;
    // The fastest line rate allowed once the transfer program runs; without --max-baud,
    // TROVEX_MAX_BAUD or LineRateLimit::Default.
    std::optional<int> maxBaud;
    // read: the range and the file it goes to.
    int32_t rangeStart = 0;
    int32_t rangeLength = 0;
    QString outFile;
    // restore: the file to write back, and where (default: the range of the package's
    // read-back entry of that file).
    QString restoreFile;
    std::optional<int32_t> restoreAt;

    // Parses the arguments after the program name; false with a reason in *error.
    static bool parse(const QStringList &arguments, CliOptions &options, QString *error);
    static QString usage();
    // The command's word, as typed.
    static QString name(Command command);
    // Whether the command talks to the instrument through the engine.
    bool runsEngine() const
    {
        return command == Command::Update || command == Command::Verify || command == Command::Read || command == Command::Restore;
    }

private:
    // The positional arguments: the package (which ports has none of), and restore's file.
    bool takePositional(const QStringList &positional, QString *error);
    // The value of an option of the command only; false (with the reason) when it is missing.
    bool takeOption(const QStringList &args, qsizetype &i, QString *error);
};
