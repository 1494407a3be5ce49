#pragma once
// Everything a package's configuration file says, as the loader leaves it. The engine
// carries these as its own fields.
#include "config/QX_Download.h"
#include "config/QX_Erase.h"
#include "config/QX_Memory.h"
#include "config/QX_Program.h"
#include "config/QX_TransferProgram.h"

#include <QString>
#include <cstdint>
#include <vector>

struct PackageConfiguration {
    QString ConfigTempFile;     // the temporary copy every key is read from
    bool ConfigInvalid = true;  // from the start of a load until it finished successfully
    int32_t MaxProgLen = 0;     // block size for programming and reading back
    QString PortList;
    QString ComPort;
    QString PortKeyValue;       // the key to hold while switching on, for ComPort; may be ""
    QString BaudText;
    int32_t BaudRate = 0;
    QString ProcessorName;
    int32_t ProcessorIndex = 0;
    QString ArchitectureName;
    int32_t ArchitectureIndex = 0; // 1 B8, 2 B16, 3 B32
    bool ContinueFlag = true;      // false: the run restarts the instrument at its end
    QX_TransferProgram TransferProgram;
    std::vector<QX_Memory> Memories;
    std::vector<QX_Erase> Erases;
    std::vector<QX_Download> Downloads;
    std::vector<QX_Program> Programs;
    QString FirmwareLanguages;
    QString FirmwareLanguage;
    int32_t ProgressTotal = 0;          // budget of the whole-run progress bar
    int32_t ProgressAfterErase = 0;     // the most that waits may reach by themselves
    int32_t ProgressAfterDownloads = 0; // where the program list is counted on from

    // The read-back entry a program entry is named like: such a program writes back what the
    // run reads into that file. None for an image of the package.
    const QX_Download *readBackWrittenBy(const QX_Program &program) const
    {
        for (const QX_Download &download : Downloads)
            if (download.Filename().compare(program.Filename(), Qt::CaseInsensitive) == 0)
                return &download;
        return nullptr;
    }
};
