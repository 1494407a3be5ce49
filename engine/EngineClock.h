#pragma once
// The two clocks the engine reads: a millisecond tick for the 200 ms progress ticks, and
// the time of day in seconds for the elapsed time of a run. Tests replace both.
#include <cstdint>
#include <functional>

struct EngineClock {
    std::function<int64_t()> tickMs;
    std::function<double()> secondsSinceMidnight;

    static EngineClock system();
};
