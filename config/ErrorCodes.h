#pragma once
// The error codes of the program; the message of code N is string 40000 + N.
#include <cstdint>

namespace ErrorCode {
inline constexpr int32_t Ok = 0;
inline constexpr int32_t FilenameInvalid = 1;
inline constexpr int32_t FlashNameInvalid = 2;
inline constexpr int32_t ArchitectureInvalid = 3;
inline constexpr int32_t ProcessorInvalid = 4;
inline constexpr int32_t ConfigurationInvalid = 5;
inline constexpr int32_t KeyNotFound = 6;
inline constexpr int32_t MemoryEntryInvalid = 7;
inline constexpr int32_t EraseEntryInvalid = 8;
inline constexpr int32_t UploadEntryInvalid = 9;
inline constexpr int32_t ProgramEntryInvalid = 10;
inline constexpr int32_t Cancelled = 11;
inline constexpr int32_t ValidationFailed = 12;
inline constexpr int32_t TransferEntryInvalid = 13;
inline constexpr int32_t InvalidSwitch = 14;
inline constexpr int32_t ProgrammingFailed = 101;
inline constexpr int32_t VoltageOnRefused = 104;
inline constexpr int32_t VoltageOffRefused = 105;
inline constexpr int32_t ReadFailed = 106;
inline constexpr int32_t EraseFailed = 107;
inline constexpr int32_t GeneralError = 109;
inline constexpr int32_t TransferFailed = 110;
inline constexpr int32_t CommunicationsLayer = 111;
// The instrument's CRC-32 of a range read back never matched the bytes received.
inline constexpr int32_t ReadBackUnverified = 112;
// The instrument's CRC-32 of an image's range is not the image's.
inline constexpr int32_t ImageCrcMismatch = 113;
}
