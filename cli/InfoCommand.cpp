#include "cli/InfoCommand.h"

#include "cli/ConsolePrompt.h"
#include "cli/ConsoleText.h"
#include "cli/ExitStatus.h"
#include "cli/JsonLine.h"
#include "config/TextFormat.h"
#include "engine/QX_UploadProcess.h"
#include "package/Package.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QTextStream>

using TextFormat::hex;

namespace InfoCommand {
namespace {
// The package is described once, as JSON: what it holds and its configuration as the wizard
// loads it. --json prints that object; the text is printed from it.

QString key(const char *name)
{
    return QString::fromLatin1(name);
}

QJsonObject range(int32_t start, int32_t length, const char *nameKey = nullptr, const QString &name = QString())
{
    QJsonObject object{{key("start"), start}, {key("length"), length}};
    if (nameKey)
        object.insert(key(nameKey), name);
    return object;
}

// First and last address, both included, as people read memory maps.
QString rangeText(const QJsonValue &range)
{
    const int32_t start = range[key("start")].toInt();
    const int32_t length = range[key("length")].toInt();
    const int64_t last = int64_t(start) + length - 1;
    return QStringLiteral("H%1..H%2 (%3 bytes)").arg(hex(start), hex(int32_t(last))).arg(length);
}

QStringList listItems(const QString &list)
{
    QStringList items = list.split(QLatin1Char(','));
    for (QString &item : items)
        item = item.trimmed();
    return items;
}

QJsonObject packageObject(const Package &package)
{
    QJsonArray members;
    for (const auto &[name, size] : package.members())
        members.append(QJsonObject{{key("name"), name}, {key("size"), qint64(size)}});
    QJsonObject object{{key("type"), key("info")}, {key("package"), package.path()}, {key("members"), members}};
    if (const std::optional<QString> comment = package.comment())
        object.insert(key("name"), *comment);
    if (const std::optional<QString> notes = package.readText(QStringLiteral("KDNOTES.TXT")))
        object.insert(key("notes"), notes->trimmed());
    return object;
}

// Each language's programs, each with whether the package holds its file.
QJsonArray programLists(QX_UploadProcess &engine)
{
    QJsonArray lists;
    for (const QString &language : listItems(engine.FirmwareLanguages)) {
        engine.setFirmwareLanguage(language);
        QJsonObject list{{key("language"), engine.FirmwareLanguage}};
        if (!engine.BuildProgramList()) {
            list.insert(key("error"), engine.QX_Error_GetLastErrorString().replace(QStringLiteral("\r\n"), QStringLiteral(" ")));
        } else {
            QJsonArray programs;
            for (const QX_Program &program : engine.Programs) {
                const QX_Download *readBack = engine.readBackWrittenBy(program);
                QJsonObject entry = range(program.LoadAddress(), readBack ? readBack->Length() : program.Length(), "file",
                                          program.Filename());
                entry.insert(key("inPackage"), program.Validate());
                if (readBack)
                    entry.insert(key("writesBack"), true); // what the run reads into that file
                programs.append(entry);
            }
            list.insert(key("programs"), programs);
        }
        lists.append(list);
    }
    return lists;
}

QJsonObject configurationObject(QX_UploadProcess &engine)
{
    QJsonArray memories, erases, readBacks;
    for (const QX_Memory &memory : engine.Memories) {
        QJsonObject entry = range(memory.StartAddress(), memory.Length(), "flash", memory.Flashname());
        entry.insert(key("flashIndex"), memory.FlashnameIndex());
        memories.append(entry);
    }
    for (const QX_Erase &erase : engine.Erases)
        erases.append(range(erase.EraseAddress(), erase.Length()));
    for (const QX_Download &download : engine.Downloads)
        readBacks.append(range(download.StartAddress(), download.Length(), "file", download.Filename()));
    const QX_TransferProgram &transfer = engine.TransferProgram;
    QJsonObject configuration{{key("ports"), QJsonArray::fromStringList(listItems(engine.PortList))},
                              {key("defaultPort"), engine.ComPort},
                              {key("baud"), engine.BaudText},
                              {key("processor"), engine.ProcessorName},
                              {key("architecture"), engine.ArchitectureName},
                              {key("restart"), engine.RestartInstrument()},
                              {key("blockSize"), engine.MaxProgLen},
                              {key("languages"), QJsonArray::fromStringList(listItems(engine.FirmwareLanguages))},
                              {key("defaultLanguage"), engine.FirmwareLanguage},
                              {key("transfer"), QJsonObject{{key("file"), transfer.Filename()},
                                                            {key("length"), transfer.Length()},
                                                            {key("load"), transfer.LoadAddress()},
                                                            {key("start"), transfer.ExecAddress()}}},
                              {key("memories"), memories},
                              {key("erases"), erases},
                              {key("readBacks"), readBacks}};
    configuration.insert(key("programs"), programLists(engine)); // chooses each language in turn
    return configuration;
}

QString joined(const QJsonValue &list)
{
    return list.toVariant().toStringList().join(QLatin1Char(','));
}

void printConfiguration(QTextStream &out, const QJsonObject &c)
{
    const QJsonObject transfer = c[key("transfer")].toObject();
    out << "Configuration:\n";
    out << "  Ports:         " << joined(c[key("ports")]) << " (default " << c[key("defaultPort")].toString() << ")\n";
    out << "  Baud:          " << c[key("baud")].toString() << '\n';
    out << "  Processor:     " << c[key("processor")].toString() << '\n';
    out << "  Architecture:  " << c[key("architecture")].toString() << '\n';
    out << "  Restart:       " << (c[key("restart")].toBool() ? "yes" : "no") << '\n';
    out << "  Block size:    " << c[key("blockSize")].toInt() << " bytes\n";
    out << "  Languages:     " << joined(c[key("languages")]) << " (default " << c[key("defaultLanguage")].toString() << ")\n";
    out << "  Transfer:      " << transfer[key("file")].toString() << "  " << transfer[key("length")].toInt() << " bytes, load H"
        << hex(transfer[key("load")].toInt()) << ", start H" << hex(transfer[key("start")].toInt()) << '\n';
    for (const QJsonValue memory : c[key("memories")].toArray())
        out << "  Memory:        " << memory[key("flash")].toString() << " (" << hex(memory[key("flashIndex")].toInt()) << ") "
            << rangeText(memory) << '\n';
    for (const QJsonValue erase : c[key("erases")].toArray())
        out << "  Erase:         " << rangeText(erase) << '\n';
    for (const QJsonValue readBack : c[key("readBacks")].toArray())
        out << "  Read back:     " << readBack[key("file")].toString() << "  " << rangeText(readBack) << '\n';
    for (const QJsonValue list : c[key("programs")].toArray()) {
        out << "  Programs (" << list[key("language")].toString() << "):\n";
        if (list[key("error")].isString())
            out << "    cannot be read: " << list[key("error")].toString() << '\n';
        for (const QJsonValue program : list[key("programs")].toArray())
            out << "    " << program[key("file")].toString() << "  " << rangeText(program)
                << (program[key("writesBack")].toBool() ? "  (written back from the read-back file)"
                    : program[key("inPackage")].toBool() ? ""
                                                         : "  (not in the package)")
                << '\n';
    }
}

void printText(const QJsonObject &info)
{
    QTextStream out(stdout);
    out << "Package:   " << info[key("package")].toString() << '\n';
    out << "Name:      " << info[key("name")].toString(QStringLiteral("(none)")) << '\n';
    out << "Members:\n";
    for (const QJsonValue member : info[key("members")].toArray())
        out << "  " << member[key("name")].toString() << "  " << member[key("size")].toInteger() << " bytes\n";
    out << "Notes:     " << info[key("notes")].toString(QStringLiteral("(none)")) << "\n\n";
    printConfiguration(out, info[key("configuration")].toObject());
}

int fail(const CliOptions &options, const QString &text)
{
    if (options.json)
        printJsonLine({{key("type"), key("error")}, {key("message"), text}});
    else
        QTextStream(stderr) << "varnolt-cli: " << forConsole(text) << Qt::endl;
    return ExitStatus::BadUsage;
}
} // namespace

int run(const CliOptions &options)
{
    if (!QFileInfo(options.package).isFile())
        return fail(options, QStringLiteral("no package ") + options.package);
    const Package package(QFileInfo(options.package).absoluteFilePath());
    QJsonObject info = packageObject(package);
    if (info[key("members")].toArray().isEmpty())
        return fail(options, options.package + QStringLiteral(" is not a firmware package (no zip archive)"));

    ConsolePrompt prompt(CliOptions::Overwrite::Never);
    QX_UploadProcess engine([](const EngineWait &) { return std::unique_ptr<ApplicationLayer>(); }, prompt);
    engine.setPackage(package);
    engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    if (engine.QX_Error_GetLastError() != 0)
        return fail(options, QStringLiteral("the configuration cannot be loaded: ") + engine.QX_Error_GetLastErrorString());
    info.insert(key("configuration"), configurationObject(engine));
    if (options.json)
        printJsonLine(info);
    else
        printText(info);
    return ExitStatus::Success;
}

} // namespace InfoCommand
