#pragma once
// An update of the simulated instrument through the real application layer: a package with a
// transfer program, two images and a calibration range, an engine on a Trovex whose port map
// points the package's port at the instrument, and the images the flash should end up with.
#include "engine/QX_UploadProcess.h"
#include "tests/e2e/InstrumentProcess.h"
#include "tests/support/ScriptedPrompt.h"
#include "tests/support/TestPackage.h"
#include "trovex/Trovex.h"

#include <QFile>
#include <QTemporaryDir>

inline QByteArray randomBytes(int size, uint32_t seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        seed = seed * 1103515245u + 12345u;
        bytes[i] = char(seed >> 16);
    }
    return bytes;
}

inline const QByteArray Calibration = randomBytes(0x400, 1);
inline const QByteArray MainImage = randomBytes(20000, 2);
inline const QByteArray TextImage = randomBytes(5000, 3);
inline const QByteArray TransferProgram = QByteArray("KDTP") + randomBytes(1500, 4);

// One update: a package in a folder, an engine on the real layer, and the instrument.
struct Update {
    QTemporaryDir folder;
    TestPackage package;
    ScriptedPrompt prompt;
    QString portMap; // the layer's map, e.g. "COM1=/dev/pts/4"
    QStringList log;
    QX_UploadProcess engine{[this](const EngineWait &wait) { return std::make_unique<Trovex>(wait, PortMap(portMap)); }, prompt};

    // On COM1, a serial line to the instrument's pseudo-terminal.
    explicit Update(const QString &instrumentDevice, const QByteArray &transfer = TransferProgram)
        : Update(QStringLiteral("COM1"), QStringLiteral("COM1=") + instrumentDevice, transfer)
    {
    }
    // On the named port, which the map sends to the instrument.
    Update(const QString &port, const QString &map, const QByteArray &transfer = TransferProgram) : portMap(map)
    {
        const QString config = QStringLiteral(
            "[HOST]\r\nPORTS=%2\r\nUART=%2\r\nBAUD=115200\r\nCONTINUE=NO\r\nTRANSFER=TP.BIN,0X20000,0X20000\r\n"
            "[TARGET]\r\nPROCESSOR=I80X86\r\nARCHITECTURE=B16\r\n"
            "MEMORY=0X0,0X80000,AM29F040\r\nMEMORY1=0X100000,0X100000,AM29LV800\r\n"
            "ERASE=0X10000,0X30000\r\nERASE1=0X100000,0X10000\r\n"
            "[FILES]\r\nUPLOAD=0X0,0X400,%1/CAL.BIN\r\nPROGRAM=0X10000,MAIN.BIN\r\nPROGRAM1=0X100000,TEXT.BIN\r\n")
                                   .arg(folder.path(), port);
        engine.setPackage(package.config(config).member(QStringLiteral("TP.BIN"), transfer)
                              .member(QStringLiteral("MAIN.BIN"), MainImage).member(QStringLiteral("TEXT.BIN"), TextImage)
                              .write());
        QObject::connect(&engine, &QX_UploadProcess::ActionUpdate, &engine, [this](const QString &line) { log << line; });
        engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    }
    bool run() { return engine.Upload(); }
    QString message() const { return engine.QX_Error_GetLastErrorString(); }
    QByteArray savedCalibration() const
    {
        QFile file(folder.filePath(QStringLiteral("CAL.BIN")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

// The instrument for the package: fast (no pacing, instant flash) unless realTiming.
inline QStringList instrumentArgs(const QString &calibrationFile, const QStringList &faults = {}, bool realTiming = false)
{
    QStringList args{QStringLiteral("--flash"), QStringLiteral("AM29F040@0x0"), QStringLiteral("--flash"),
                     QStringLiteral("AM29LV800@0x100000"), QStringLiteral("--load"), calibrationFile + QStringLiteral("@0x0")};
    if (!realTiming)
        args << QStringLiteral("--no-pacing") << QStringLiteral("--time-scale") << QStringLiteral("0");
    return args + faults;
}

// The instrument's calibration data in a file, for its --load.
class CalibrationFile {
public:
    CalibrationFile()
    {
        QFile file(path());
        if (file.open(QIODevice::WriteOnly))
            file.write(Calibration);
    }
    QString path() const { return m_dir.filePath(QStringLiteral("calibration.bin")); }

private:
    QTemporaryDir m_dir;
};

// The flash the instrument should hold after a full update.
inline QByteArray expectedMainChip()
{
    QByteArray chip(512 * 1024, '\xFF');
    chip.replace(0, Calibration.size(), Calibration);
    chip.replace(0x10000, MainImage.size(), MainImage);
    return chip;
}
inline QByteArray expectedLanguageChip()
{
    QByteArray chip(1024 * 1024, '\xFF');
    chip.replace(0, TextImage.size(), TextImage);
    return chip;
}

