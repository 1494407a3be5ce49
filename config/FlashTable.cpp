#include "config/FlashTable.h"

#include <array>
#include <utility>

namespace FlashTable {

int32_t indexOf(const QString &flashname)
{
    static const std::array<std::pair<const char *, int32_t>, 8> chips = {{
        {"AM28F010", 17},
        {"I28F010", 18},
        {"AM28F020", 19},
        {"I28F020", 20},
        {"AM29F010", 21},
        {"AM29F040", 22},
        {"I28F016", 23},
        {"AM29LV800", 24},
    }};
    for (const auto &[name, index] : chips)
        if (flashname == QLatin1String(name))
            return index;
    return 0;
}

} // namespace FlashTable
