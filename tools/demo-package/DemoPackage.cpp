#include "tools/demo-package/DemoPackage.h"

#include "tools/package-builder/PackageBuilder.h"

#include <QByteArray>

namespace DemoPackage {
namespace {

// Deterministic bytes that look like firmware rather than a pattern or noise: code is mostly
// a small vocabulary of instruction words, a few of them frequent, between operand bytes. It
// compresses about as real firmware does (1.4 times in 240-byte blocks, 2.3 in 4000).
QByteArray image(int size, uint32_t seed)
{
    uint32_t state = seed;
    const auto next = [&state] {
        state = state * 1664525u + 1013904223u;
        return uint8_t(state >> 24);
    };
    constexpr int Words = 16;
    constexpr int WordShare = 208; // of 256: the rest are operand bytes
    QByteArray words[Words];
    for (QByteArray &word : words)
        for (int length = 2 + next() % 3; word.size() < length;)
            word.append(char(next()));
    QByteArray bytes;
    while (bytes.size() < size) {
        if (next() < WordShare)
            bytes += words[next() * next() * Words / 65536]; // the product favours the first words
        else
            bytes.append(char(next()));
    }
    return bytes.left(size);
}

QByteArray configuration()
{
    return QStringLiteral(
               "; Model 7 signal analyser, firmware 2.07\r\n"
               "[HOST]\r\n"
               "MAXPROGLEN=240\r\n"
               "PORTS=COM1,COM2,GPIB0\r\n"
               "UART=COM1\r\n"
               "GPIB0=number 6\r\n"
               "BAUD=115200\r\n"
               "CONTINUE=NO\r\n"
               "TRANSFER=TP207.BIN,0X20000,0X20000\r\n"
               "FIRMWARE_LANGUAGES=ENGLISH,GERMAN\r\n"
               "FIRMWARE_LANGUAGE=ENGLISH\r\n"
               "[TARGET]\r\n"
               "PROCESSOR=I80X86\r\n"
               "ARCHITECTURE=B16\r\n"
               "MEMORY=0X0,0X80000,AM29F040 ; boot and main flash\r\n"
               "MEMORY1=0X100000,0X100000,AM29LV800 ; language flash\r\n"
               "ERASE=0X0,0X40000 ; the boot sector with the calibration data, and the main firmware\r\n"
               "ERASE1=0X100000,0X10000\r\n"
               "[FILES]\r\n"
               "UPLOAD=0X0,0X400,%1\r\n"
               "PROGRAM=0X10000,MAIN207.BIN\r\n"
               "PROGRAM1=0X0,%1 ; the calibration data as read back\r\n"
               "[ENGLISH]\r\n"
               "PROGRAM2=0X100000,TEXT_EN.BIN\r\n"
               "[GERMAN]\r\n"
               "PROGRAM2=0X100000,TEXT_DE.BIN\r\n")
        .arg(CalibrationFile)
        .toLatin1();
}

constexpr int MainChipBytes = 512 * 1024;
constexpr int LanguageChipBytes = 1024 * 1024;

QByteArray mainImage()
{
    return image(96 * 1024, 11);
}

QByteArray englishText()
{
    return image(12 * 1024, 13);
}

} // namespace

QByteArray noise(int size, uint32_t seed)
{
    QByteArray bytes(size, '\0');
    for (char &byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = char(seed >> 24);
    }
    return bytes;
}

Flash olderFlash(const QByteArray &calibration)
{
    Flash flash{QByteArray(MainChipBytes, '\xFF'), QByteArray(LanguageChipBytes, '\xFF')};
    flash.main.replace(0, calibration.size(), calibration);
    flash.main.replace(calibration.size(), 0x1000, noise(0x1000, 7));
    flash.main.replace(0x10000, 0x30000, noise(0x30000, 5));
    flash.language.replace(0, 0x4000, noise(0x4000, 6));
    return flash;
}

Flash updatedFlash(const QByteArray &calibration)
{
    Flash flash{QByteArray(MainChipBytes, '\xFF'), QByteArray(LanguageChipBytes, '\xFF')};
    flash.main.replace(0, calibration.size(), calibration);
    flash.main.replace(0x10000, mainImage().size(), mainImage());
    flash.language.replace(0, englishText().size(), englishText());
    return flash;
}

QString write(const QString &folder, QString *error)
{
    PackageBuilder builder;
    builder.setComment(QStringLiteral("Model 7 Signal Analyser - Firmware 2.07"));
    builder.addMember(QStringLiteral("KDCONFIG.INI"), configuration());
    builder.addMember(QStringLiteral("KDNOTES.TXT"),
                      "Firmware 2.07 (November 2026)\nFaster sweeps below 10 kHz, corrected marker readout, "
                      "new German online help.");
    builder.addMember(QStringLiteral("Readme.txt"),
                      "Model 7 Signal Analyser - Firmware 2.07\r\n\r\n"
                      "Before you start:\r\n"
                      " - Connect the instrument with a null-modem serial cable (or a GPIB cable).\r\n"
                      " - Keep the instrument switched off until the Settings step says how to switch it on.\r\n"
                      " - The calibration data is saved to a file before the flash is erased, and written back.\r\n\r\n"
                      "The update takes a few minutes at 115200 baud. Do not switch the instrument off while it runs.\r\n");
    builder.addMember(QStringLiteral("Final.txt"),
                      "Firmware 2.07 is now installed and the instrument has been restarted.\r\n\r\n"
                      "Please run the calibration routines before using the instrument for measurements. "
                      "The saved calibration data stays in the file named in the package.");
    builder.addMember(QStringLiteral("TP207.BIN"), QByteArray("KDTP") + image(2044, 7)); // the boot ROM checks the header
    builder.addMember(QStringLiteral("MAIN207.BIN"), mainImage());
    builder.addMember(QStringLiteral("TEXT_EN.BIN"), englishText());
    builder.addMember(QStringLiteral("TEXT_DE.BIN"), image(13 * 1024, 17));
    const QString path = folder + QStringLiteral("/Model7-Firmware-2.07.KDPKG");
    return builder.write(path, error) ? path : QString();
}

} // namespace DemoPackage
