#pragma once
// Every time interval of the program, each with the reason for its value.
#include <chrono>

namespace Timeouts {
using namespace std::chrono_literals;

// Animation and erase-progress tick while a request is pending: often enough that the
// picture visibly moves, rarely enough that the event loop sleeps between ticks.
inline constexpr auto ProgressTick = 200ms;

}
