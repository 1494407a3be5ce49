// The handlers of the application layer's two events. They read what the answer carries,
// store it, record a failure in the engine's holder, and always end the pending wait. They
// never clear an error and never send a request.
#include "engine/QX_UploadProcess.h"

#include "config/ErrorCodes.h"
#include "config/TextFormat.h"

namespace {

enum ResponseId : int32_t {
    General = 32,
    ManufacturerCodeAnswer = 161,
    VoltageOnAnswer = 162,
    VoltageOffAnswer = 163,
    ReadAnswer = 164,
    ProgramAnswer = 165,
    ChecksumAnswer = 166,
    EraseAnswer = 167,
};

// Status values of the answers
constexpr int16_t StatusOk = 66;
constexpr int16_t StatusVoltageOn = 68;
constexpr int16_t StatusVoltageOff = 70;
constexpr int16_t StatusReadFailed = 32;  // the one value that fails a read
constexpr int16_t StatusEraseFailed = 65; // the one value that fails an erase

} // namespace

bool QX_UploadProcess::failIfLayerError()
{
    int16_t code = 0;
    AppLayer->GetErrorCode(code);
    if (code == 0)
        return false;
    QString text;
    AppLayer->GetErrorText(text);
    fail(ErrorCode::CommunicationsLayer, text);
    return true;
}

void QX_UploadProcess::Trovex_Response(int32_t enumResponseID)
{
    const auto checkStatus = [this](bool passes, int16_t status, int32_t code) {
        if (!passes)
            fail(code, TextFormat::hex16(status));
    };
    int16_t status = 0;
    int32_t address = 0;

    switch (enumResponseID) {
    case General:
        AppLayer->GetStatus(status);
        checkStatus(status == StatusOk, status, ErrorCode::GeneralError);
        break;
    case ManufacturerCodeAnswer:
        if (failIfLayerError())
            break;
        AppLayer->GetManufacturerCode(ManufacturerCode);
        if (failIfLayerError())
            break;
        AppLayer->GetDeviceCode(DeviceCode);
        failIfLayerError();
        break;
    case VoltageOnAnswer:
        AppLayer->GetStatus(status);
        checkStatus(status == StatusVoltageOn, status, ErrorCode::VoltageOnRefused);
        break;
    case VoltageOffAnswer:
        AppLayer->GetStatus(status);
        checkStatus(status == StatusVoltageOff, status, ErrorCode::VoltageOffRefused);
        break;
    case ReadAnswer:
        AppLayer->GetStatus(status);
        checkStatus(status != StatusReadFailed, status, ErrorCode::ReadFailed);
        break;
    case ProgramAnswer:
        AppLayer->GetProgramResult(address, status);
        if (status != StatusOk)
            fail(ErrorCode::ProgrammingFailed, TextFormat::hex(address));
        break;
    case ChecksumAnswer:
        if (failIfLayerError())
            break;
        AppLayer->GetChecksum(TargetChecksum);
        failIfLayerError();
        break;
    case EraseAnswer:
        AppLayer->GetEraseResult(address, status);
        if (status == StatusEraseFailed)
            fail(ErrorCode::EraseFailed, TextFormat::hex(address));
        break;
    default:
        break; // any other answer only ends the wait
    }
    ResponseReceived = true;
}

void QX_UploadProcess::Trovex_Error(int16_t iLastError)
{
    QString text;
    AppLayer->GetErrorText(text);
    fail(ErrorCode::CommunicationsLayer, TextFormat::dec(iLastError) + QLatin1Char(' ') + text.trimmed());
    ResponseReceived = true;
}
