#pragma once
// The application layer's own error codes (GetErrorCode and the error event), and its own
// results of UploadTransferProgram.
#include <cstdint>

namespace TrovexError {
inline constexpr int16_t None = 0;
inline constexpr int16_t BadInitString = 1;   // the channel description is not understood
inline constexpr int16_t PortUnavailable = 2; // the port cannot be opened
inline constexpr int16_t NotOpen = 3;         // a request without an open channel
inline constexpr int16_t NoAnswer = 10;       // the instrument stopped answering
inline constexpr int16_t PortLost = 11;       // the port went away while open
inline constexpr int16_t BadReply = 12;       // an answer that does not fit its request
inline constexpr int16_t InstrumentRefused = 13; // the instrument said no (the text says why)
inline constexpr int16_t TransferFailed = 14; // the transfer program could not be loaded
inline constexpr int16_t ProgramFailed = 15;  // a block answered early was not programmed after all
inline constexpr int16_t Cancelled = 16;      // the user cancelled while the layer waited for the line
}

// UploadTransferProgram's result when it is not the boot ROM's own Start result
// (Protocol::StartResult: 0 running, 2 and 3 refused).
namespace TransferResult {
inline constexpr int32_t LinkFailed = 1;   // the load did not get through; the error text says why
inline constexpr int32_t Cancelled = 0xCA; // the user cancelled the load; the run's log shows "CA"
}
