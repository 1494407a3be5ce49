// The handlers of the application layer's two events. They read what the answer carries,
// store it, record a failure in the engine's holder, and always end the pending wait. They
// never clear an error and never send a request.
#include "engine/QX_UploadProcess.h"

#include "config/ErrorCodes.h"
#include "config/TextFormat.h"
#include "engine/AnswerCodes.h"


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
    case ResponseId::General:
        AppLayer->GetStatus(status);
        checkStatus(status == AnswerStatus::Ok, status, ErrorCode::GeneralError);
        break;
    case ResponseId::ManufacturerCode:
        if (failIfLayerError())
            break;
        AppLayer->GetManufacturerCode(ManufacturerCode);
        if (failIfLayerError())
            break;
        AppLayer->GetDeviceCode(DeviceCode);
        failIfLayerError();
        break;
    case ResponseId::VoltageOn:
        AppLayer->GetStatus(status);
        checkStatus(status == AnswerStatus::VoltageIsOn, status, ErrorCode::VoltageOnRefused);
        break;
    case ResponseId::VoltageOff:
        AppLayer->GetStatus(status);
        checkStatus(status == AnswerStatus::VoltageIsOff, status, ErrorCode::VoltageOffRefused);
        break;
    case ResponseId::Read:
        AppLayer->GetStatus(status);
        checkStatus(status != AnswerStatus::ReadFailed, status, ErrorCode::ReadFailed);
        break;
    case ResponseId::Program:
        AppLayer->GetProgramResult(address, status);
        if (status != AnswerStatus::Ok)
            fail(ErrorCode::ProgrammingFailed, TextFormat::hex(address));
        break;
    case ResponseId::Checksum:
        if (failIfLayerError())
            break;
        AppLayer->GetChecksum(TargetChecksum);
        failIfLayerError();
        break;
    case ResponseId::RangeCrc:
        if (failIfLayerError())
            break;
        AppLayer->GetRangeCrc(TargetRangeCrc);
        failIfLayerError();
        break;
    case ResponseId::Erase:
        AppLayer->GetEraseResult(address, status);
        if (status == AnswerStatus::EraseFailed)
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
