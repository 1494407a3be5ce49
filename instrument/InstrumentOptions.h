#pragma once
// How the simulated instrument is built and what goes wrong with it, from its command line.
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

struct InstrumentOptions {
    QList<QPair<QString, uint32_t>> flash; // chip name, base address
    QList<QPair<QString, uint32_t>> loads; // file, address: contents at start
    QString dumpFolder;                    // where the flash goes at exit and on SIGUSR1
    int baud = 115200;                     // the package's rate: the line's at power-on
    int maxBaud = 921600;                  // the fastest rate its UART takes once switched
    bool pacing = true;                    // paced at the line rate (11 bits per byte)
    double timeScale = 1.0;                // flash erase and program times
    uint16_t tcpPort = 0;                  // also listen on this local TCP port
    std::optional<int> gpibAddress;        // behind an emulated "++" GPIB controller, at this address
    int gpibRate = 100000;                 // bytes a second through that controller, when paced
    // Faults
    uint32_t seed = 1;
    double corruptRate = 0;                // per byte sent: one bit flipped
    double dropRate = 0;                   // per byte sent: byte lost
    int64_t disconnectAfterBytes = -1;     // the port vanishes after this many bytes received
    int stallAfterFrames = -1;             // stops answering after this many frames...
    int stallMs = 0;                       // ...for this long
    std::optional<uint8_t> stallAtType;    // or from the first request of this type on
    bool refuseVoltage = false;
    std::optional<uint32_t> failEraseAt;
    std::optional<uint32_t> failProgramAt;
    bool wrongChecksum = false;
    std::optional<uint8_t> unknownType;    // a request the transfer program does not know
    bool refuseBaud = false;               // declines every SwitchRate
    bool loseSwitch = false;               // switches, but hears nothing at the new rate
    bool basicTransferProgram = false;     // a transfer program from before Abilities
    bool packedBlocks = true;              // it takes ProgramPacked (and names it)
    // Power lost once this many bytes have been received...
    int64_t cutPowerAfterBytes = -1;
    // ...or halfway through the cutPowerInCount-th request of this type (erase, program).
    std::optional<uint8_t> cutPowerInType;
    int cutPowerInCount = 1;
    enum class Garble { Never, Once, Always };
    Garble garbleRead = Garble::Never;     // a bit flipped in Read answers before framing

    // Parses the arguments; false with a reason in *error.
    static bool parse(const QStringList &arguments, InstrumentOptions &options, QString *error);
};
