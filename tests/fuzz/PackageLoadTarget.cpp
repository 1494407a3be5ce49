// Fuzz target for the package and the configuration loader. The first input byte
// picks what the rest is: an archive file as it lies on disk (even), or the text of a
// package's configuration file inside a well-formed package (odd). Either way every package
// operation and a full load must end in a code, never a crash, hang or huge allocation.
#include "engine/QX_UploadProcess.h"
#include "tests/support/RecordingDisplay.h"
#include "tests/support/ScriptedPrompt.h"
#include "tools/package-builder/PackageBuilder.h"
#include "package/Package.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace {

QCoreApplication &application()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

void writeInput(const QString &path, const uint8_t *data, size_t size, bool asConfiguration)
{
    if (!asConfiguration) {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
        return;
    }
    PackageBuilder builder;
    builder.addMember(QStringLiteral("KDCONFIG.INI"), QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    builder.addMember(QStringLiteral("TP.BIN"), QByteArray(300, '\x5A'));
    builder.addMember(QStringLiteral("MAIN.BIN"), QByteArray(1000, '\x11'));
    builder.addMember(QStringLiteral("Readme.txt"), QByteArray("read me"));
    builder.write(path, nullptr);
}

void exercisePackage(const Package &package)
{
    (void)package.comment();
    (void)package.members();
    (void)package.readTextPrefix(QStringLiteral("KDCONFIG.INI"), 5000);
    uint8_t block[4001];
    for (const char *name : {"MAIN.BIN", "TP.BIN", "KDCONFIG.INI"}) {
        const int32_t size = package.PackageFileSize(QLatin1String(name));
        for (int32_t offset = 0; offset < size && offset < 20000; offset += 4000)
            package.ReadPackageFile(QLatin1String(name), block, 4000, offset);
    }
    (void)package.readText(QStringLiteral("Readme.txt"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    application();
    if (size == 0)
        return 0;
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fuzz.KDPKG"));
    writeInput(path, data + 1, size - 1, (data[0] & 1) != 0);
    const Package package(path);

    exercisePackage(package);
    ScriptedPrompt prompt;
    RecordingDisplay display;
    display.advanced = true;
    QX_UploadProcess engine([](const EngineWait &) { return std::unique_ptr<ApplicationLayer>(); }, prompt);
    engine.UploadWizard_Running(display);
    engine.setPackage(package);
    display.onPortText = [&](const QString &port) { engine.setComPort(port.trimmed()); };
    display.onLanguageText = [&](const QString &lang) { engine.setFirmwareLanguage(lang.trimmed()); };
    engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    engine.DisplayConfiguration();
    if (engine.QX_Error_GetLastError() == 0)
        engine.setFirmwareLanguage(QStringLiteral("GERMAN"));
    return 0;
}
