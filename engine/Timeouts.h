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

}
