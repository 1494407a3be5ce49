#pragma once
// How numbers and line breaks are written in log lines, messages and summaries: upper-case
// hexadecimal without leading zeros (negative values in their two's-complement width),
// plain decimal, rounding halves to even, and the action-line percentage.
#include <QString>
#include <cstdint>

namespace TextFormat {

// Line break inside messages: carriage return and line feed.
inline const QString CrLf = QStringLiteral("\r\n");

// Upper-case hexadecimal without leading zeros; a negative value as 8 digits.
QString hex(int32_t value);
// Upper-case hexadecimal of a 16-bit status; a negative value as 4 digits.
QString hex16(int16_t value);
// Decimal without padding, a minus sign when negative.
QString dec(int64_t value);

// Nearest integer, halves to the even neighbour (2.5 -> 2, 3.5 -> 4, -2.5 -> -2). Values
// beyond int64_t give its limits; NaN gives 0.
int64_t roundHalfEven(double value);

// What the action line shows for a finished operation.
inline constexpr int16_t FinishedPercent = 99;
// The percentage shown on the action line: 100 * done / total - 1, rounded half to even,
// so a finished operation shows 99, as does one with nothing to do (total 0).
int16_t actionPercent(int64_t done, int64_t total);

}
