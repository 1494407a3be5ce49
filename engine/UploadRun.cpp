// The whole update run: validate, open the channel, load and start the transfer program,
// identify the flash memories, read back, erase, program, restart, close. Every step logs
// one line; every path ends in the same shutdown and the elapsed-time line.
#include "engine/QX_UploadProcess.h"

#include "config/ErrorCodes.h"
#include "config/TextFormat.h"
#include "config/UpdateJournal.h"
#include "engine/UploadDisplay.h"

#include <vector>

using TextFormat::dec;
using TextFormat::hex;

namespace {
constexpr int32_t ProgressUnitsPerStep = 10;
constexpr int SecondsPerDay = 24 * 60 * 60;
const QString SerialClass = QStringLiteral("clsid:7A3E21C4-5B90-4D17-9E2A-3C6F0B8D1E55 ");
const QString GpibInit = QStringLiteral("clsid:C18F5D02-6E47-4A3B-8B91-2D7E4F6A9C03 GPIB0");
const QString DefaultSerial = QStringLiteral("COM1:115200,E,8,1");
} // namespace

bool QX_UploadProcess::Upload()
{
    const int startSecond = wholeSecondOfDay();
    beginRun();

    bool result = false;
    if (!ValidateConfiguration()) {
        holder().SetLastError(ErrorCode::ValidationFailed);
    } else {
        fail(0, QString());
        if (WizardRunning)
            m_display->setBackNextEnabled(false);
        else
            DisplayConfiguration();
        int16_t percent = 0;
        ShowAction(QStringLiteral("Upload Firmware"), percent);
        AddLogLine(QStringLiteral("UPLOAD FIRMWARE STARTED"));
        m_lastLogLine.clear(); // a failure's line is one its step wrote
        UpdateEntireProgress();
        result = openChannel() && uploadTransferProgram() && (m_transferOnly || updateFlash());
        if (result && !m_transferOnly && !ContinueFlag) {
            request([](ApplicationLayer &layer) { layer.Restart(); });
            AddLogLine(QStringLiteral("Instrument Restarted"));
        }
    }
    if (holder().GetLastError() != 0)
        result = false;
    m_failureLine = result ? QString() : m_lastLogLine;
    finishRun(startSecond);
    return result;
}

void QX_UploadProcess::beginRun()
{
    ProgressCount = 0;
    ProgressDrawn = 0;
    CancelRequested = false;
    m_openFailureReason.clear();
    holder().SetLastError(0);
    m_lastLogLine.clear();
    m_eraseBegan = false;
    m_identifiedChips.clear();
    BytesWritten = 0;
    BytesVerified = 0;
    m_imageChecks.clear();
    m_readBackRereads = 0;
    m_comparisons.clear();
    m_notices.clear();
    m_restoredUnits.reset();
    m_rangeCrcOffered = false;
}

QString QX_UploadProcess::initString() const
{
    if (ComPort.contains(QStringLiteral("COM"), Qt::CaseInsensitive))
        return SerialClass + ComPort.trimmed() + QLatin1Char(':') + BaudText.trimmed() + QStringLiteral(",E,8,1");
    if (ComPort.contains(QStringLiteral("GPIB"), Qt::CaseInsensitive))
        return GpibInit; // the board number is always 0
    return SerialClass + DefaultSerial;
}

bool QX_UploadProcess::openChannel()
{
    ApplicationLayer *layer = CreateAppLayer();
    int16_t code = -1;
    QString reason;
    if (layer) {
        AnimateStep();
        layer->OpenChannel(initString());
        layer->GetErrorCode(code);
        if (code != 0)
            layer->GetErrorText(reason);
    }
    if (code == 0)
        return true;
    if (CancelRequested) {
        DropAppLayer(); // the cancel's code 11 stays the outcome
        return false;
    }
    // The layer's reason says what to check (a missing device, the dialout group, a busy port):
    // a line of its own, kept for the headless tool, so that the message stays the fixed one.
    m_openFailureReason = reason;
    if (!reason.isEmpty())
        AddLogLine(reason);
    fail(ErrorCode::CommunicationsLayer, QStringLiteral("Communications Port failed to initialise"));
    DropAppLayer();
    return false;
}

bool QX_UploadProcess::uploadTransferProgram()
{
    AnimateStep();
    const QString name = TransferProgram.Filename();
    const int32_t size = m_package.PackageFileSize(name);
    std::vector<uint8_t> image(static_cast<size_t>(size) + 1);
    const int32_t length = m_package.ReadPackageFile(name, image.data(), size, 0);
    AddLogLine(QStringLiteral("Transfer Program Read (") + name + QStringLiteral(")"));
    AnimateStep();

    int32_t resultCode = 0;
    AppLayer->UploadTransferProgram(image.data(), length, TransferProgram.LoadAddress(), TransferProgram.ExecAddress(),
                                    resultCode);
    if (resultCode != 0) {
        AddLogLine(QStringLiteral("Transfer Program Failed, Error Code = ") + hex(resultCode));
        if (CancelRequested)
            return false; // the cancel's code 11 stays the outcome
        QString text;
        AppLayer->GetErrorText(text);
        fail(ErrorCode::TransferFailed, text);
        return false;
    }
    m_rangeCrcOffered = AppLayer->OffersRangeCrc();
    if (m_transferOnly)
        return true;
    AddLogLine(QStringLiteral("Transfer Program Running"));
    ProgressCount += ProgressUnitsPerStep;
    UpdateEntireProgress();
    AnimateStep();
    return true;
}

bool QX_UploadProcess::updateFlash()
{
    if (!identifyFlashMemories() || !DownloadFlashMemories() || !loadWriteBackImages())
        return false;
    // From the erase on, the read-back files may hold the only copy of what they saved.
    if (QString why; !Downloads.empty() && !UpdateJournal::begin(m_package.path(), Downloads, &why)) {
        fail(ErrorCode::UploadEntryInvalid, QLatin1Char(' ') + why + QStringLiteral("; nothing was erased"));
        return false;
    }
    if (!m_fullUpdate)
        announceFlashPlan();
    m_eraseBegan = true;
    if (!EraseFlashMemories() || !ProgramFlashMemories())
        return false;
    UpdateJournal::end();
    return true;
}

bool QX_UploadProcess::identifyFlashMemories()
{
    for (const QX_Memory &memory : Memories) {
        AnimateStep();
        if (!request([&](ApplicationLayer &layer) {
                layer.QueryManufacturerCode(memory.StartAddress(), static_cast<uint8_t>(ArchitectureIndex),
                                            static_cast<uint8_t>(memory.FlashnameIndex()));
            })) {
            AddLogLine(QStringLiteral("QueryManufacturerCode ERROR"));
            return false;
        }
        AddLogLine(QStringLiteral("Manufacturer H") + hex(ManufacturerCode) + QStringLiteral(", Device H") + hex(DeviceCode));
        m_identifiedChips.push_back({memory.Flashname(), ManufacturerCode, DeviceCode});
        ProgressCount += ProgressUnitsPerStep;
        UpdateEntireProgress();
    }
    return true;
}

void QX_UploadProcess::finishRun(int startSecond, const QString &process)
{
    if (AppLayer) {
        AddLogLine(QStringLiteral("Close Communication Channel"));
        AppLayer->CloseChannel();
        AddLogLine(QStringLiteral("Shutdown Application Layer"));
        AppLayer->Shutdown();
        AddLogLine(QStringLiteral("Shutdown Complete"));
        DropAppLayer();
    }
    int elapsed = wholeSecondOfDay() - startSecond;
    if (elapsed < 0)
        elapsed += SecondsPerDay; // the run went past midnight
    const int minutes = elapsed / 60;
    AddLogLine(process + QStringLiteral(" completed in ") + dec(minutes) + QStringLiteral(" Minutes ")
               + dec(elapsed - 60 * minutes) + QStringLiteral(" Seconds"));
    if (!WizardRunning)
        return;
    if (CancelRequested) {
        fail(ErrorCode::Cancelled, QString());
        return;
    }
    m_display->setBackNextEnabled(true);
    m_display->pressNext();
}

int QX_UploadProcess::wholeSecondOfDay() const
{
    return static_cast<int>(TextFormat::roundHalfEven(m_clock.secondsSinceMidnight()));
}
