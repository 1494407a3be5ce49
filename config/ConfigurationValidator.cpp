#include "config/ConfigurationValidator.h"

#include "config/PackageConfiguration.h"
#include "config/QX_Error.h"
#include "config/TextFormat.h"
#include "config/UpdateJournal.h"

namespace {
constexpr int32_t FastestSerialBaud = 115200; // every serial rate must divide the UART clock's top rate
}

bool ConfigurationValidator::ValidateConfiguration(PackageConfiguration &config, QX_Error &errors,
                                                   UserPrompt &prompt, bool readBackFiles)
{
    bool result = true;
    QString collected;
    const auto complain = [&](const QString &text) {
        collected += TextFormat::CrLf + text;
        result = false;
    };

    if (config.ComPort.contains(QStringLiteral("COM"), Qt::CaseInsensitive)
        && (config.BaudRate == 0 || FastestSerialBaud % config.BaudRate != 0))
        complain(QStringLiteral("Invalid Communication Speed"));

    for (const QX_Memory &memory : config.Memories)
        if (!memory.Validate())
            complain(memory.QX_Error_GetLastErrorString());

    if (!config.TransferProgram.Validate())
        complain(config.TransferProgram.QX_Error_GetLastErrorString());

    const UpdateJournal journal = readBackFiles ? UpdateJournal::load() : UpdateJournal();
    for (QX_Download &download : config.Downloads)
        if (readBackFiles && !download.Validate(prompt, journal))
            complain(download.QX_Error_GetLastErrorString());

    for (QX_Program &program : config.Programs) {
        if (const QX_Download *readBack = config.readBackWrittenBy(program))
            program.setWriteBack(readBack->Filename(), readBack->Length());
        if (!program.Validate())
            complain(program.QX_Error_GetLastErrorString());
    }

    if (!result)
        errors.SetLastErrorString(collected);
    return result;
}
