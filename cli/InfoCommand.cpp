#include "cli/InfoCommand.h"

#include "cli/ConsolePrompt.h"
#include "cli/ConsoleText.h"
#include "cli/ExitStatus.h"
#include "config/TextFormat.h"
#include "engine/QX_UploadProcess.h"
#include "package/Package.h"

#include <QFileInfo>
#include <QTextStream>

using TextFormat::hex;

namespace InfoCommand {
namespace {

// First and last address, both included, as people read memory maps.
QString range(int32_t start, int32_t length)
{
    const int64_t last = int64_t(start) + length - 1;
    return QStringLiteral("H%1..H%2 (%3 bytes)").arg(hex(start), hex(int32_t(last))).arg(length);
}

void printPrograms(QTextStream &out, const QX_UploadProcess &engine)
{
    for (const QX_Program &program : engine.Programs)
        out << "    " << program.Filename() << "  " << range(program.LoadAddress(), program.Length())
            << (program.Validate() ? "" : "  (not in the package)") << '\n';
}

} // namespace

int run(const CliOptions &options)
{
    QTextStream out(stdout);
    if (!QFileInfo(options.package).isFile()) {
        QTextStream(stderr) << "varnolt-cli: no package " << options.package << Qt::endl;
        return ExitStatus::BadUsage;
    }
    const Package package(QFileInfo(options.package).absoluteFilePath());
    out << "Package:   " << package.path() << '\n';
    out << "Name:      " << package.comment().value_or(QStringLiteral("(none)")) << '\n';
    const auto members = package.members();
    if (members.isEmpty()) {
        QTextStream(stderr) << "varnolt-cli: " << options.package << " is not a firmware package (no zip archive)" << Qt::endl;
        return ExitStatus::BadUsage;
    }
    out << "Members:\n";
    for (const auto &[name, size] : members)
        out << "  " << name << "  " << size << " bytes\n";
    const std::optional<QString> notes = package.readText(QStringLiteral("KDNOTES.TXT"));
    out << "Notes:     " << (notes ? notes->trimmed() : QStringLiteral("(none)")) << "\n\n";

    ConsolePrompt prompt(CliOptions::Overwrite::Never);
    QX_UploadProcess engine([](const EngineWait &) { return std::unique_ptr<ApplicationLayer>(); }, prompt);
    engine.setPackage(package);
    engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    if (engine.QX_Error_GetLastError() != 0) {
        out << Qt::flush;
        QTextStream(stderr) << "varnolt-cli: the configuration cannot be loaded: "
                            << forConsole(engine.QX_Error_GetLastErrorString())
                            << Qt::endl;
        return ExitStatus::BadUsage;
    }
    out << "Configuration:\n";
    out << "  Ports:         " << engine.PortList << " (default " << engine.ComPort << ")\n";
    out << "  Baud:          " << engine.BaudText << '\n';
    out << "  Processor:     " << engine.ProcessorName << '\n';
    out << "  Architecture:  " << engine.ArchitectureName << '\n';
    out << "  Restart:       " << (engine.RestartInstrument() ? "yes" : "no") << '\n';
    out << "  Block size:    " << engine.MaxProgLen << " bytes\n";
    out << "  Languages:     " << engine.FirmwareLanguages << " (default " << engine.FirmwareLanguage << ")\n";
    const QX_TransferProgram &transfer = engine.TransferProgram;
    out << "  Transfer:      " << transfer.Filename() << "  " << transfer.Length() << " bytes, load H" << hex(transfer.LoadAddress())
        << ", start H" << hex(transfer.ExecAddress()) << '\n';
    for (const QX_Memory &memory : engine.Memories)
        out << "  Memory:        " << memory.Flashname() << " (" << hex(memory.FlashnameIndex()) << ") "
            << range(memory.StartAddress(), memory.Length()) << '\n';
    for (const QX_Erase &erase : engine.Erases)
        out << "  Erase:         " << range(erase.EraseAddress(), erase.Length()) << '\n';
    for (const QX_Download &download : engine.Downloads)
        out << "  Read back:     " << download.Filename() << "  " << range(download.StartAddress(), download.Length())
            << '\n';
    const QStringList languages = engine.FirmwareLanguages.split(QLatin1Char(','));
    for (const QString &language : languages) {
        engine.setFirmwareLanguage(language);
        out << "  Programs (" << engine.FirmwareLanguage << "):\n";
        if (engine.BuildProgramList())
            printPrograms(out, engine);
        else
            out << "    cannot be read: " << engine.QX_Error_GetLastErrorString().replace(QStringLiteral("\r\n"), QStringLiteral(" ")) << '\n';
    }
    return ExitStatus::Success;
}

} // namespace InfoCommand
