#include "config/FlashTable.h"

#include <array>

namespace FlashTable {
namespace {

// The chips, with their sizes and erase units as docs/protocol.md's flash table gives them.
struct Chip {
    const char *name;
    int32_t index;
    int32_t size;
    int32_t sector;                    // the erase unit; the whole chip for the bulk-erase parts
    std::array<int32_t, 4> topUnits;   // the boot sectors in place of the top sector, lowest first
};
constexpr int32_t KiB = 1024;
constexpr std::array<Chip, 8> Chips = {{
    {"AM28F010", 17, 128 * KiB, 128 * KiB, {}},
    {"I28F010", 18, 128 * KiB, 128 * KiB, {}},
    {"AM28F020", 19, 256 * KiB, 256 * KiB, {}},
    {"I28F020", 20, 256 * KiB, 256 * KiB, {}},
    {"AM29F010", 21, 128 * KiB, 16 * KiB, {}},
    {"AM29F040", 22, 512 * KiB, 64 * KiB, {}},
    {"I28F016", 23, 2048 * KiB, 64 * KiB, {}},
    {"AM29LV800", 24, 1024 * KiB, 64 * KiB, {32 * KiB, 8 * KiB, 8 * KiB, 16 * KiB}},
}};

const Chip *chip(int32_t index)
{
    for (const Chip &c : Chips)
        if (c.index == index)
            return &c;
    return nullptr;
}

} // namespace

int32_t indexOf(const QString &flashname)
{
    for (const Chip &c : Chips)
        if (flashname == QLatin1String(c.name))
            return c.index;
    return 0;
}

int32_t chipSize(int32_t index)
{
    const Chip *c = chip(index);
    return c ? c->size : 0;
}

QList<int32_t> eraseUnits(int32_t index)
{
    const Chip *c = chip(index);
    if (!c)
        return {};
    QList<int32_t> units(c->size / c->sector, c->sector);
    if (c->topUnits[0] != 0) {
        units.removeLast();
        for (const int32_t unit : c->topUnits)
            units << unit;
    }
    return units;
}

} // namespace FlashTable
