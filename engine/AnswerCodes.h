#pragma once
// The response ids the application layer answers requests with, and the status values that
// the engine takes as success or failure.
#include <cstdint>

namespace ResponseId {
inline constexpr int32_t General = 32; // a general answer, also to Restart
inline constexpr int32_t ManufacturerCode = 161;
inline constexpr int32_t VoltageOn = 162;
inline constexpr int32_t VoltageOff = 163;
inline constexpr int32_t Read = 164;
inline constexpr int32_t Program = 165;
inline constexpr int32_t Checksum = 166;
inline constexpr int32_t Erase = 167;
inline constexpr int32_t RangeCrc = 168;
}

namespace AnswerStatus {
inline constexpr int16_t Ok = 66;           // general answers and program blocks
inline constexpr int16_t VoltageIsOn = 68;
inline constexpr int16_t VoltageIsOff = 70;
inline constexpr int16_t ReadFailed = 32;   // the one value that fails a read
inline constexpr int16_t EraseFailed = 65;  // the one value that fails an erase
}
