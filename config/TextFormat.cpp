#include "config/TextFormat.h"

#include <cmath>

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
    // nearbyint follows the current rounding mode, which is round-to-nearest-even by default.
    return static_cast<int64_t>(std::nearbyint(value));
}

int16_t actionPercent(int64_t done, int64_t total)
{
    const double percent = 100.0 * static_cast<double>(done) / static_cast<double>(total) - 1.0;
    return static_cast<int16_t>(roundHalfEven(percent));
}

} // namespace TextFormat
