#pragma once
// Every time interval and retry count of the engine, each with the reason for its value.
#include <chrono>

namespace Timeouts {
using namespace std::chrono_literals;

// Animation and erase-progress tick while a request is pending: often enough that the
// picture visibly moves, rarely enough that the event loop sleeps between ticks.
inline constexpr auto ProgressTick = 200ms;

// Read-backs that deliver no byte before the instrument is given up on. A healthy transfer
// program always delivers something; a few tries ride out a glitch without looping for
// ever on a range the instrument cannot read.
inline constexpr int EmptyReadAttempts = 3;

// Reads of a range read back again after the instrument's CRC-32 of it did not match the bytes
// received. A frame damaged on the line is caught by the frame's CRC; what gets past it (a
// read-back garbled before its frame was made) is rare and seldom twice in a row, while a
// range that never matches is a fault to report, not to retry for ever.
inline constexpr int ReadBackRereads = 3;

}
