#include "config/ConfigurationLoader.h"

#include "config/ConfigurationReader.h"
#include "config/ErrorCodes.h"
#include "config/NumberText.h"
#include "config/PackageConfiguration.h"
#include "config/QX_Error.h"
#include "config/SelectorView.h"
#include "config/TextFormat.h"
#include "package/Package.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryFile>

namespace {
constexpr int32_t ConfigBufferBytes = 5000; // only this much of the configuration member is read
constexpr int32_t ProgressUnitsPerStep = 10;
constexpr double EraseBytesPerUnit = 4000.0;
const QString None = QStringLiteral("None");

QStringList commaPieces(const QString &list)
{
    QStringList pieces;
    for (const QString &piece : list.split(QLatin1Char(',')))
        pieces << piece.trimmed();
    return pieces;
}
} // namespace

bool ConfigurationLoader::failed() const
{
    return m_errors.GetLastError() != 0;
}

void ConfigurationLoader::clearError()
{
    m_errors.SetLastError(0);
    m_errors.SetLastErrorString(QString());
}

QString ConfigurationLoader::read(const QString &section, const QString &key) const
{
    return ConfigurationReader(m_config.ConfigTempFile, m_errors).ReadConfigValue(section, key);
}

void ConfigurationLoader::addToBudget(double units)
{
    m_config.ProgressTotal = static_cast<int32_t>(TextFormat::roundHalfEven(m_config.ProgressTotal + units));
}

void ConfigurationLoader::load(const QString &memberName)
{
    m_config.ConfigInvalid = true;
    m_config.Erases.clear();
    m_config.Memories.clear();
    m_config.Downloads.clear();
    m_config.Programs.clear();
    m_config.TransferProgram = QX_TransferProgram();
    m_errors.SetLastError(0);
    m_config.ProgressTotal = ProgressUnitsPerStep;

    if (!makeTempCopy(memberName))
        return;
    QCoreApplication::processEvents();

    if (!readMaxProgLen() || !readPorts() || !readBaud() || !readTarget())
        return;
    readContinue();
    if (failed() || !readTransfer() || !readLists())
        return;
    readLanguages();
    if (BuildProgramList())
        m_config.ConfigInvalid = false;
}

bool ConfigurationLoader::makeTempCopy(const QString &memberName)
{
    // A unique name that nobody else can have taken, made the way mkstemp makes it.
    QTemporaryFile temp(QDir::tempPath() + QLatin1Char('/') + QLatin1String(TempPrefix) + QStringLiteral("XXXXXX.TMP"));
    temp.setAutoRemove(false);
    if (!temp.open()) {
        m_errors.SetLastError(ErrorCode::ConfigurationInvalid);
        m_errors.SetLastErrorString(TextFormat::CrLf + QStringLiteral(" No temporary copy could be made in ")
                                    + QDir::tempPath() + QStringLiteral(": ") + temp.errorString());
        return false;
    }
    m_config.ConfigTempFile = temp.fileName();

    const QString name = memberName.trimmed();
    if (!m_package.PackageFileExists(name)) {
        m_errors.SetLastError(ErrorCode::FilenameInvalid);
        m_errors.SetLastErrorString(QStringLiteral("Configuration file not found"));
        return false;
    }
    // The bytes as they are: the profile reader reads them as the platform's reader does.
    const std::optional<QByteArray> bytes = m_package.readPrefix(name, ConfigBufferBytes);
    if (!bytes) {
        // Present but damaged: say so rather than report every key as missing.
        m_errors.SetLastError(ErrorCode::FilenameInvalid);
        m_errors.SetLastErrorString(QStringLiteral("Configuration file not readable"));
        return false;
    }
    temp.write(*bytes + TextFormat::CrLf.toLatin1());
    temp.close();
    return true;
}

bool ConfigurationLoader::readMaxProgLen()
{
    const QString value = read(QStringLiteral("HOST"), QStringLiteral("MAXPROGLEN"));
    if (m_errors.GetLastError() == ErrorCode::KeyNotFound) {
        m_config.MaxProgLen = DefaultMaxProgLen;
        clearError();
        return true;
    }
    const double number = NumberText::leadingNumber(value.toUpper());
    if (number > LargestMaxProgLen) {
        m_config.MaxProgLen = LargestMaxProgLen;
        return true;
    }
    m_config.MaxProgLen = static_cast<int32_t>(TextFormat::roundHalfEven(std::max(number, -1.0)));
    if (m_config.MaxProgLen > 0)
        return true;
    // Every block loop divides by the block size and advances by it: refuse it here.
    m_errors.SetLastError(ErrorCode::ConfigurationInvalid);
    m_errors.SetLastErrorString(TextFormat::CrLf + QStringLiteral(" Section:HOST Key:MAXPROGLEN Value:") + value
                                + QStringLiteral(" (the block size must be at least 1 byte)"));
    return false;
}

bool ConfigurationLoader::readPorts()
{
    m_config.PortList = read(QStringLiteral("HOST"), QStringLiteral("PORTS")).toUpper();
    if (failed())
        return false;
    if (m_selectors) {
        m_selectors->clearPorts();
        for (const QString &port : commaPieces(m_config.PortList))
            m_selectors->addPort(port);
    }
    m_config.ComPort = read(QStringLiteral("HOST"), QStringLiteral("UART")).toUpper();
    if (failed())
        return false;
    if (m_selectors)
        m_selectors->setPortText(m_config.ComPort);
    m_config.PortKeyValue = read(QStringLiteral("HOST"), m_config.ComPort);
    if (failed()) {
        m_config.PortKeyValue.clear();
        m_errors.SetLastError(0);
    }
    return true;
}

bool ConfigurationLoader::readBaud()
{
    m_config.BaudText = read(QStringLiteral("HOST"), QStringLiteral("BAUD")).toUpper();
    if (failed())
        return false;
    const auto rate = NumberText::toInt32(m_config.BaudText);
    if (!rate) {
        m_errors.SetLastError(ErrorCode::ConfigurationInvalid);
        return false;
    }
    m_config.BaudRate = *rate;
    return true;
}

bool ConfigurationLoader::readTarget()
{
    m_config.ProcessorName = read(QStringLiteral("TARGET"), QStringLiteral("PROCESSOR")).toUpper();
    if (failed())
        return false;
    const QStringList processors = {QStringLiteral("I80X86"), QStringLiteral("TMS320C30"), QStringLiteral("MCC960")};
    m_config.ProcessorIndex = static_cast<int32_t>(processors.indexOf(m_config.ProcessorName));
    if (m_config.ProcessorIndex < 0) {
        m_config.ProcessorIndex = 0;
        m_errors.SetLastError(ErrorCode::ProcessorInvalid);
        m_errors.SetLastErrorString(QLatin1Char(' ') + m_config.ProcessorName);
        return false;
    }

    m_config.ArchitectureName = read(QStringLiteral("TARGET"), QStringLiteral("ARCHITECTURE")).toUpper();
    if (failed())
        return false;
    const QStringList architectures = {QStringLiteral("B8"), QStringLiteral("B16"), QStringLiteral("B32")};
    m_config.ArchitectureIndex = static_cast<int32_t>(architectures.indexOf(m_config.ArchitectureName)) + 1;
    if (m_config.ArchitectureIndex == 0) {
        m_errors.SetLastError(ErrorCode::ArchitectureInvalid);
        m_errors.SetLastErrorString(QLatin1Char(' ') + m_config.ArchitectureName);
        return false;
    }
    return true;
}

void ConfigurationLoader::readContinue()
{
    const QString value = read(QStringLiteral("HOST"), QStringLiteral("CONTINUE")).toUpper().trimmed();
    m_config.ContinueFlag = value != QStringLiteral("NO");
    if (m_errors.GetLastError() == ErrorCode::KeyNotFound)
        clearError();
}

bool ConfigurationLoader::readTransfer()
{
    const QString value = read(QStringLiteral("HOST"), QStringLiteral("TRANSFER"));
    if (failed())
        return false;
    if (!m_config.TransferProgram.Init(value, QString(), m_package)) {
        m_errors.SetLastError(ErrorCode::ConfigurationInvalid);
        m_errors.SetLastErrorString(m_config.TransferProgram.QX_Error_GetLastErrorString());
        return false;
    }
    m_config.ProgressTotal += ProgressUnitsPerStep;
    return true;
}

bool ConfigurationLoader::readLists()
{
    ListCursor memories, erases, downloads;
    const bool ok =
        readNumberedList(QStringLiteral("TARGET"), QStringLiteral("MEMORY"), memories, ErrorCode::MemoryEntryInvalid,
                         [this](const QString &value) {
                             QX_Memory entry;
                             if (!entry.Init(value))
                                 return false;
                             m_config.ProgressTotal += ProgressUnitsPerStep;
                             m_config.Memories.push_back(std::move(entry));
                             return true;
                         })
        && readNumberedList(QStringLiteral("TARGET"), QStringLiteral("ERASE"), erases, ErrorCode::EraseEntryInvalid,
                            [this](const QString &value) {
                                QX_Erase entry;
                                if (!entry.Init(value))
                                    return false;
                                addToBudget(entry.Length() / EraseBytesPerUnit);
                                m_config.Erases.push_back(std::move(entry));
                                return true;
                            });
    if (!ok)
        return false;
    m_config.ProgressAfterErase = m_config.ProgressTotal;
    if (!readNumberedList(QStringLiteral("FILES"), QStringLiteral("UPLOAD"), downloads, ErrorCode::UploadEntryInvalid,
                          [this](const QString &value) {
                              QX_Download entry;
                              if (!entry.Init(value, QString()))
                                  return false;
                              addToBudget(double(entry.Length()) / m_config.MaxProgLen);
                              m_config.Downloads.push_back(std::move(entry));
                              return true;
                          }))
        return false;
    m_config.ProgressAfterDownloads = m_config.ProgressTotal;
    return true;
}

void ConfigurationLoader::readLanguages()
{
    m_config.FirmwareLanguages = read(QStringLiteral("HOST"), QStringLiteral("FIRMWARE_LANGUAGES"));
    if (failed()) {
        m_errors.SetLastError(0);
        m_config.FirmwareLanguages = None;
    }
    if (m_selectors) {
        m_selectors->clearLanguages();
        for (const QString &language : commaPieces(m_config.FirmwareLanguages))
            m_selectors->addLanguage(language.toUpper());
    }
    m_config.FirmwareLanguage = read(QStringLiteral("HOST"), QStringLiteral("FIRMWARE_LANGUAGE")).toUpper();
    if (failed()) {
        m_errors.SetLastError(0);
        m_config.FirmwareLanguage = None;
    }
    if (m_selectors)
        m_selectors->setLanguageText(m_config.FirmwareLanguage);
}

bool ConfigurationLoader::BuildProgramList()
{
    m_config.Programs.clear();
    m_config.ProgressTotal = m_config.ProgressAfterDownloads;
    const AddEntry addProgram = [this](const QString &value) {
        QX_Program entry;
        if (!entry.Init(value, QString(), m_package))
            return false;
        addToBudget(double(entry.Length()) / m_config.MaxProgLen);
        m_config.Programs.push_back(std::move(entry));
        return true;
    };
    // The language's own entries continue the numbering where the common ones stopped.
    ListCursor cursor;
    return readNumberedList(QStringLiteral("FILES"), QStringLiteral("PROGRAM"), cursor, ErrorCode::ProgramEntryInvalid, addProgram)
           && readNumberedList(m_config.FirmwareLanguage, QStringLiteral("PROGRAM"), cursor, ErrorCode::ProgramEntryInvalid,
                               addProgram);
}

bool ConfigurationLoader::readNumberedList(const QString &section, const QString &base, ListCursor &cursor,
                                           int32_t failureCode, const AddEntry &addEntry)
{
    QString value = read(section, base + cursor.suffix);
    if (m_errors.GetLastError() == ErrorCode::KeyNotFound) {
        clearError();
        return true;
    }
    for (;;) {
        if (!addEntry(value)) {
            m_errors.SetLastError(failureCode);
            m_errors.SetLastErrorString(TextFormat::CrLf + value);
            return false;
        }
        cursor.suffix = TextFormat::dec(cursor.counter);
        ++cursor.counter;
        value = read(section, base + cursor.suffix);
        // A key with nothing after "=" reads as "NA" and goes on, so that its entry is rejected.
        if (failed() && value.isEmpty())
            break;
    }
    clearError(); // the missing key that ended the list
    return true;
}
