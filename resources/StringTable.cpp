#include "resources/StringTable.h"

#include <QHash>

namespace StringTable {
namespace {

const QHash<int, QString> &table()
{
    static const QHash<int, QString> strings = {
        // Navigation bar
        {100, QStringLiteral("Help")},
        {101, QStringLiteral("Cancel")},
        {102, QStringLiteral("< &Back")},
        {103, QStringLiteral("&Next >")},
        {104, QStringLiteral("&Exit")},
        // Step titles and the finished text
        {500, QStringLiteral("Select the Firmware to use")},
        {1000, QStringLiteral("Introduction")},
        {2000, QStringLiteral("Settings")},
        {2002, QStringLiteral("Upload Firmware")},
        {3000, QStringLiteral("Finished!")},
        {3001, QStringLiteral("The Varnolt Wizard is finished.\r\n\r\n_")},
        {3002, QStringLiteral("To exit the Wizard click Finish.")},
        // Error messages
        {40000, QStringLiteral("OK")},
        {40001, QStringLiteral("Filename Invalid")},
        {40002, QStringLiteral("Flash Memory Name Invalid")},
        {40003, QStringLiteral("Architecture Invalid")},
        {40004, QStringLiteral("Processor Name Invalid")},
        {40005, QStringLiteral("Configuration File Invalid")},
        {40006, QStringLiteral("Configuration File Key Not Found")},
        {40007, QStringLiteral("Mermory Entry Inalid")},
        {40008, QStringLiteral("Erase Entry Invalid")},
        {40009, QStringLiteral("Upload Entry Invalid")},
        {40010, QStringLiteral("Program Entry Invalid")},
        {40011, QStringLiteral("Process Cancelled by User")},
        {40012, QStringLiteral("Configuration failed Validation Checks")},
        {40013, QStringLiteral("Transfer Entry invalid")},
        {40014, QStringLiteral("Invalid command line switch")},
        {40101, QStringLiteral("PROGRAMMING ERROR, failed at address ")},
        {40102, QStringLiteral("MANUFACTURING CODE ERROR")},
        {40103, QStringLiteral("GET CHECKSUM ERROR")},
        {40104, QStringLiteral("PROGRAMMING POWER ON ERROR")},
        {40105, QStringLiteral("PROGRAMMING POWER OFF ERROR")},
        {40106, QStringLiteral("READ DATA ERROR")},
        {40107, QStringLiteral("FLASH ERASE ERROR, failed at address = ")},
        {40108, QStringLiteral("PROGRAMMING END ERROR")},
        {40109, QStringLiteral("GENERAL ERROR, Code =")},
        {40110, QStringLiteral("Error occurred uploading the Transfer Program ")},
        {40111, QStringLiteral("Error occurred in communications layer, Code = ")},
        {40112, QStringLiteral("READ BACK CHECK ERROR,")},
        {40113, QStringLiteral("PROGRAM CRC-32 ERROR,")},
    };
    return strings;
}

} // namespace

QString load(int id)
{
    return table().value(id);
}

QString loadContinued(int id)
{
    QString result;
    for (;; ++id) {
        const QString piece = load(id);
        if (!piece.endsWith(QLatin1Char('_'))) {
            result += piece;
            return result;
        }
        result += piece.chopped(1);
    }
}

} // namespace StringTable
