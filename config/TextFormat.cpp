#include "config/TextFormat.h"

#include <cmath>
#include <limits>

namespace TextFormat {

QString hex(int32_t value)
{
    return QString::number(static_cast<uint32_t>(value), 16).toUpper();
}

QString hex16(int16_t value)
{
    return QString::number(static_cast<uint16_t>(value), 16).toUpper();
}

QString dec(int64_t value)
{
    return QString::number(value);
}

int64_t roundHalfEven(double value)
{
    // Converting NaN or a value beyond int64_t to an integer is undefined: those are settled
    // first.
    constexpr double Beyond = 9223372036854775808.0; // 2^63
    if (std::isnan(value))
        return 0;
    if (value >= Beyond)
        return std::numeric_limits<int64_t>::max();
    if (value < -Beyond)
        return std::numeric_limits<int64_t>::min();
    // nearbyint follows the current rounding mode, which is round-to-nearest-even by default.
    return static_cast<int64_t>(std::nearbyint(value));
}

int16_t actionPercent(int64_t done, int64_t total)
{
    if (total <= 0)
        return FinishedPercent; // nothing to do is done, and 0 / 0 has no value
    const double percent = 100.0 * static_cast<double>(done) / static_cast<double>(total) - 1.0;
    return static_cast<int16_t>(roundHalfEven(percent));
}

} // namespace TextFormat
