#pragma once
// Turning text into numbers the way the old platform did, for configuration values.
//
// Hexadecimal ("&H", digits 0-9 A-F in any case) and octal ("&O") numbers are 32-bit
// patterns: eight hex digits with the top bit set give the negative value (&HFFFFFFFF is
// -1), while four or fewer digits always give the positive number (&H8000 is 32768).
#include <QString>
#include <cstdint>
#include <optional>

namespace NumberText {

// The leading number of text, as Val() reads it: blanks (space, tab, line feed) anywhere are
// skipped; an optional sign, digits, an optional "." fraction and an optional exponent (E or
// D); or "&H" hex / "&O" octal digits. Reading stops at the first character that does not
// fit; no leading number gives 0. Hex or octal digits beyond 32 bits are ignored.
double leadingNumber(const QString &text);

// The whole text (surrounding blanks allowed) as a signed 32-bit integer: decimal with an
// optional fraction and exponent, rounded to the nearest integer with halves to even, or
// "&H" / "&O". Empty text, anything else in it, or a value outside 32 bits gives nullopt.
std::optional<int32_t> toInt32(const QString &text);

// An entry field: its first "0X" (any case) becomes "&H", then toInt32.
std::optional<int32_t> fieldToInt32(const QString &field);

}
