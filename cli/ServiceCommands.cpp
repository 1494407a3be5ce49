#include "cli/ServiceCommands.h"

#include "cli/EngineCommand.h"
#include "cli/ExitStatus.h"
#include "engine/QX_UploadProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace ServiceCommands {
namespace {
const QString LineBreak = QStringLiteral("\r\n");

QString hexAddress(int32_t address)
{
    return QStringLiteral("H") + QString::number(uint32_t(address), 16).toUpper();
}

bool allEqual(const QX_UploadProcess &engine)
{
    return std::all_of(engine.comparisons().begin(), engine.comparisons().end(),
                       [](const QX_UploadProcess::ImageComparison &c) { return !c.firstDifference; });
}

QString comparisonLine(const QX_UploadProcess::ImageComparison &c)
{
    const QString image = QStringLiteral("%1 (%2, %3 bytes): ").arg(c.file, hexAddress(c.address)).arg(c.length);
    if (!c.notCompared.isEmpty())
        return image + QStringLiteral("not compared, ") + c.notCompared;
    return image + (c.firstDifference ? QStringLiteral("differs, first at ") + hexAddress(*c.firstDifference) : QStringLiteral("equal"));
}

// The first name FILE.before-restore-N in the working folder that is free: an earlier one may
// be the only copy of what a failed restore erased.
QString freeBackupName(const QString &file)
{
    const QString base = QFileInfo(file).fileName() + QStringLiteral(".before-restore-");
    for (int n = 1;; ++n)
        if (!QFileInfo::exists(base + QString::number(n)))
            return base + QString::number(n);
}
} // namespace

int verify(const CliOptions &options, const ApplicationLayerFactory &makeLayer)
{
    EngineCommand::Work work;
    work.run = [](QX_UploadProcess &engine) { return engine.VerifyInstrument(); };
    work.text = [](const QX_UploadProcess &engine, bool succeeded) {
        if (!succeeded)
            return EngineCommand::failureText(QStringLiteral("verify"), engine);
        QStringList lines{allEqual(engine) ? QStringLiteral("The instrument holds the package's images.")
                                           : QStringLiteral("The instrument differs from the package.")};
        for (const QX_UploadProcess::ImageComparison &c : engine.comparisons())
            lines << comparisonLine(c);
        return lines.join(LineBreak);
    };
    work.exitStatus = [](const QX_UploadProcess &engine, bool succeeded) {
        return !succeeded ? ExitStatus::UpdateFailed : allEqual(engine) ? ExitStatus::Success : ExitStatus::Differs;
    };
    work.resultFields = [](const QX_UploadProcess &engine) {
        QJsonArray images;
        for (const QX_UploadProcess::ImageComparison &c : engine.comparisons()) {
            QJsonObject image{{QStringLiteral("file"), c.file},
                              {QStringLiteral("address"), qint64(uint32_t(c.address))},
                              {QStringLiteral("length"), c.length}};
            if (!c.notCompared.isEmpty())
                image.insert(QStringLiteral("notCompared"), c.notCompared);
            else
                image.insert(QStringLiteral("equal"), !c.firstDifference);
            if (c.firstDifference)
                image.insert(QStringLiteral("firstDifference"), qint64(uint32_t(*c.firstDifference)));
            images.append(image);
        }
        return QJsonObject{{QStringLiteral("comparisons"), images}, {QStringLiteral("equal"), allEqual(engine)}};
    };
    return EngineCommand::run(options, makeLayer, work);
}

int read(const CliOptions &options, const ApplicationLayerFactory &makeLayer)
{
    EngineCommand::Work work;
    work.run = [&](QX_UploadProcess &engine) { return engine.ReadInstrument(options.rangeStart, options.rangeLength, options.outFile); };
    work.text = [&](const QX_UploadProcess &engine, bool succeeded) {
        if (!succeeded)
            return EngineCommand::failureText(QStringLiteral("read"), engine);
        return QStringLiteral("The %1 bytes at %2 are in %3, %4.")
            .arg(options.rangeLength)
            .arg(hexAddress(options.rangeStart), options.outFile,
                 engine.rangeCrcOffered() ? QStringLiteral("checked against the instrument's CRC-32 of the range")
                                          : QStringLiteral("not checked: the transfer program does not answer range checksums"));
    };
    work.exitStatus = [](const QX_UploadProcess &, bool succeeded) { return succeeded ? ExitStatus::Success : ExitStatus::UpdateFailed; };
    work.resultFields = [&](const QX_UploadProcess &) {
        return QJsonObject{{QStringLiteral("file"), options.outFile},
                           {QStringLiteral("address"), qint64(uint32_t(options.rangeStart))},
                           {QStringLiteral("length"), options.rangeLength}};
    };
    return EngineCommand::run(options, makeLayer, work);
}

int restore(const CliOptions &options, const ApplicationLayerFactory &makeLayer)
{
    QByteArray data;
    int32_t address = 0;
    const QString backup = freeBackupName(options.restoreFile);
    EngineCommand::Work work;
    work.prepare = [&](QX_UploadProcess &engine) {
        QFile file(options.restoreFile);
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("cannot read %1: %2").arg(options.restoreFile, file.errorString());
        data = file.readAll();
        if (data.isEmpty())
            return QStringLiteral("%1 is empty: there is nothing to restore").arg(options.restoreFile);
        if (options.restoreAt) {
            address = *options.restoreAt;
            return QString();
        }
        // By default the file is one the package reads back into: it goes back to that range.
        const QString wanted = QFileInfo(options.restoreFile).absoluteFilePath();
        QStringList names;
        for (const QX_Download &entry : engine.Downloads) {
            names << entry.Filename();
            if (QFileInfo(entry.Filename()).absoluteFilePath().compare(wanted, Qt::CaseInsensitive) != 0)
                continue;
            if (data.size() != entry.Length())
                return QStringLiteral("%1 holds %2 bytes, but the package reads back %3 into it; give --at to restore it elsewhere")
                    .arg(options.restoreFile)
                    .arg(data.size())
                    .arg(entry.Length());
            address = entry.StartAddress();
            return QString();
        }
        return QStringLiteral("%1 is no read-back file of the package (%2): give the address with --at")
            .arg(options.restoreFile, names.isEmpty() ? QStringLiteral("it has none") : names.join(QStringLiteral(", ")));
    };
    work.run = [&](QX_UploadProcess &engine) { return engine.RestoreInstrument(data, options.restoreFile, address, backup); };
    work.text = [&](const QX_UploadProcess &engine, bool succeeded) {
        const auto units = engine.restoredUnits();
        const QString saved = units && QFileInfo::exists(backup)
                                  ? QStringLiteral("The erase units %1 to %2 as they were before are in %3; \"varnolt-cli restore "
                                                   "%4 %3 --at 0x%5\" writes them back.")
                                        .arg(hexAddress(units->first), hexAddress(units->first + units->second - 1), backup,
                                             options.package, QString::number(uint32_t(units->first), 16).toUpper())
                                  : QString();
        if (!succeeded)
            return EngineCommand::failureText(QStringLiteral("restore"), engine) + (saved.isEmpty() ? QString() : LineBreak + LineBreak + saved);
        return QStringLiteral("%1 is back in the instrument at %2 (%3 bytes), verified.").arg(options.restoreFile, hexAddress(address)).arg(data.size())
               + LineBreak + saved;
    };
    work.exitStatus = [](const QX_UploadProcess &, bool succeeded) { return succeeded ? ExitStatus::Success : ExitStatus::UpdateFailed; };
    work.resultFields = [&](const QX_UploadProcess &) {
        QJsonObject fields{{QStringLiteral("file"), options.restoreFile},
                           {QStringLiteral("address"), qint64(uint32_t(address))},
                           {QStringLiteral("length"), qint64(data.size())}};
        if (QFileInfo::exists(backup))
            fields.insert(QStringLiteral("before"), backup);
        return fields;
    };
    return EngineCommand::run(options, makeLayer, work);
}

} // namespace ServiceCommands
