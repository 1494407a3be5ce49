#include "config/ConfigurationSummary.h"

#include "config/PackageConfiguration.h"
#include "config/QX_Error.h"
#include "config/TextFormat.h"

using TextFormat::hex;

QStringList ConfigurationSummary::pieces(const PackageConfiguration &config, bool withSettings, int highestLineRate,
                                         QX_Error &errors)
{
    QStringList out;
    const bool serial = config.ComPort.contains(QStringLiteral("COM"), Qt::CaseInsensitive);
    if (serial)
        out << QStringLiteral("Please connect your instrument using a Serial Cable (null modem) to ")
                   + config.ComPort.trimmed();
    else
        out << QStringLiteral("Please connect your instrument using a GPIB Cable");

    if (config.PortKeyValue.isEmpty()) {
        out << (serial ? QStringLiteral(" and then switch on your instrument whilst pressing the number 5")
                       : QStringLiteral(" and then switch on your instrument whilst pressing the number 6"));
        errors.SetLastError(0);
    } else {
        out << QStringLiteral(" and then switch on your instrument whilst pressing the ") + config.PortKeyValue;
    }

    if (withSettings)
        out << settingsPieces(config, highestLineRate);
    return out;
}

QStringList ConfigurationSummary::settingsPieces(const PackageConfiguration &config, int highestLineRate)
{
    QStringList out;
    out << QStringLiteral(" ");
    out << QStringLiteral("Communications Channel = ") + config.ComPort;
    if (config.ComPort.contains(QStringLiteral("COM"), Qt::CaseInsensitive)) {
        out << QStringLiteral("At BAUD rate = ") + config.BaudText;
        if (highestLineRate > config.BaudRate) // once the transfer program runs
            out << QStringLiteral("Faster BAUD rate tried = up to ") + QString::number(highestLineRate);
    }
    out << QStringLiteral("Instrument Processor = ") + config.ProcessorName;
    out << QStringLiteral("Instrument Architecture = ") + config.ArchitectureName + QStringLiteral(" (")
               + hex(config.ArchitectureIndex) + QStringLiteral(")");
    if (!config.ContinueFlag)
        out << QStringLiteral("Restart Instrument");
    out << QStringLiteral("Firmware Language = ") + config.FirmwareLanguage;
    out << QStringLiteral("Transfer Program = ") + config.TransferProgram.Filename();
    for (const QX_Memory &m : config.Memories)
        out << QStringLiteral("Flash Memory=") + m.Flashname() + QStringLiteral(" (") + hex(m.FlashnameIndex())
                   + QStringLiteral(") ") + hex(m.StartAddress()) + QStringLiteral("~") + QStringLiteral(" H")
                   + hex(m.EndAddress()) + QStringLiteral(":") + QStringLiteral(" H") + hex(m.Length());
    for (const QX_Erase &e : config.Erases)
        out << QStringLiteral("Erase=") + QStringLiteral("H") + hex(e.EraseAddress()) + QStringLiteral("~")
                   + hex(e.EndAddress()) + QStringLiteral(":") + hex(e.Length());
    for (const QX_Download &d : config.Downloads)
        out << QStringLiteral("Download=") + d.Filename() + QStringLiteral("  ") + hex(d.StartAddress())
                   + QStringLiteral("~") + hex(d.EndAddress()) + QStringLiteral(":") + hex(d.Length());
    for (const QX_Program &p : config.Programs)
        out << QStringLiteral("Program=") + p.Filename() + QStringLiteral("  ") + hex(p.LoadAddress())
                   + QStringLiteral("~") + hex(p.EndAddress()) + QStringLiteral(":") + hex(p.Length());
    return out;
}
