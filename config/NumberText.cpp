#include "config/NumberText.h"

#include "config/TextFormat.h"

#include <cmath>
#include <limits>

namespace NumberText {
namespace {

// Reads &H / &O digits of text from pos on. The value is the 32-bit pattern: positive for
// up to four digits, signed for more; overflow says the digits went past 32 bits.
struct Radix {
    double value = 0;
    int digits = 0;
    bool overflow = false;
};

int digitValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'A' && u <= u'F')
        return 10 + (u - u'A');
    if (u >= u'a' && u <= u'f')
        return 10 + (u - u'a');
    return -1;
}

Radix readRadix(const QString &text, qsizetype &pos, int base)
{
    constexpr uint64_t Top = 0xFFFFFFFFull;
    Radix r;
    uint64_t pattern = 0;
    for (; pos < text.size(); ++pos) {
        const int digit = digitValue(text[pos]);
        if (digit < 0 || digit >= base)
            break;
        ++r.digits;
        if (r.overflow)
            continue;
        pattern = pattern * uint64_t(base) + uint64_t(digit);
        if (pattern > Top) {
            r.overflow = true;
            pattern &= Top;
        }
    }
    const auto low = static_cast<uint32_t>(pattern);
    r.value = r.digits <= 4 ? double(low) : double(static_cast<int32_t>(low));
    return r;
}

bool startsRadix(const QString &text, qsizetype pos, QChar letter)
{
    return pos + 1 < text.size() && text[pos] == QLatin1Char('&') && text[pos + 1].toUpper() == letter;
}

// A decimal number at text[pos...]: sign, digits, fraction, exponent. Returns the characters
// it took (0 when there is no number) and its value.
qsizetype readDecimal(const QString &text, qsizetype pos, double &value)
{
    QString number;
    qsizetype p = pos;
    if (p < text.size() && (text[p] == QLatin1Char('+') || text[p] == QLatin1Char('-')))
        number += text[p++];
    qsizetype digits = 0;
    while (p < text.size() && text[p].isDigit() && text[p].unicode() < 128) {
        number += text[p++];
        ++digits;
    }
    if (p < text.size() && text[p] == QLatin1Char('.')) {
        number += text[p++];
        while (p < text.size() && text[p].isDigit() && text[p].unicode() < 128) {
            number += text[p++];
            ++digits;
        }
    }
    if (digits == 0)
        return 0;
    if (p < text.size() && (text[p].toUpper() == QLatin1Char('E') || text[p].toUpper() == QLatin1Char('D'))) {
        qsizetype q = p + 1;
        QString exponent = QStringLiteral("e");
        if (q < text.size() && (text[q] == QLatin1Char('+') || text[q] == QLatin1Char('-')))
            exponent += text[q++];
        qsizetype expDigits = 0;
        while (q < text.size() && text[q].isDigit() && text[q].unicode() < 128) {
            exponent += text[q++];
            ++expDigits;
        }
        if (expDigits > 0) {
            number += exponent;
            p = q;
        }
    }
    bool ok = false;
    value = number.toDouble(&ok);
    if (!ok) // out of the range of a double
        value = number.startsWith(QLatin1Char('-')) ? -std::numeric_limits<double>::infinity()
                                                     : std::numeric_limits<double>::infinity();
    return p - pos;
}

} // namespace

double leadingNumber(const QString &text)
{
    QString compact;
    for (QChar c : text)
        if (c != QLatin1Char(' ') && c != QLatin1Char('\t') && c != QLatin1Char('\n'))
            compact += c;
    qsizetype pos = 0;
    if (startsRadix(compact, 0, QLatin1Char('H'))) {
        pos = 2;
        return readRadix(compact, pos, 16).value;
    }
    if (startsRadix(compact, 0, QLatin1Char('O'))) {
        pos = 2;
        return readRadix(compact, pos, 8).value;
    }
    double value = 0;
    return readDecimal(compact, 0, value) > 0 ? value : 0.0;
}

std::optional<int32_t> toInt32(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    for (QChar letter : {QLatin1Char('H'), QLatin1Char('O')}) {
        if (!startsRadix(trimmed, 0, letter))
            continue;
        qsizetype pos = 2;
        const Radix r = readRadix(trimmed, pos, letter == QLatin1Char('H') ? 16 : 8);
        if (r.digits == 0 || r.overflow || pos != trimmed.size())
            return std::nullopt;
        return static_cast<int32_t>(r.value);
    }
    double value = 0;
    if (readDecimal(trimmed, 0, value) != trimmed.size() || !std::isfinite(value))
        return std::nullopt;
    const double rounded = std::nearbyint(value);
    if (rounded < double(std::numeric_limits<int32_t>::min()) || rounded > double(std::numeric_limits<int32_t>::max()))
        return std::nullopt;
    return static_cast<int32_t>(TextFormat::roundHalfEven(value));
}

std::optional<int32_t> fieldToInt32(const QString &field)
{
    QString text = field;
    const qsizetype at = text.indexOf(QLatin1String("0X"), 0, Qt::CaseInsensitive);
    if (at >= 0)
        text.replace(at, 2, QStringLiteral("&H"));
    return toInt32(text);
}

} // namespace NumberText
