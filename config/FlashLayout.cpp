#include "config/FlashLayout.h"

#include "config/FlashTable.h"

void FlashLayout::addMemory(int32_t start, int32_t length, int32_t flashIndex)
{
    const uint64_t from = uint32_t(start);
    m_memories.push_back({from, from + uint32_t(length), flashIndex});
}

std::optional<FlashLayout::Range> FlashLayout::unitAt(uint64_t address) const
{
    for (auto memory = m_memories.rbegin(); memory != m_memories.rend(); ++memory) {
        if (address < memory->start || address >= memory->end)
            continue;
        const int32_t chip = FlashTable::chipSize(memory->flashIndex);
        if (chip <= 0 || (memory->end - memory->start) % uint64_t(chip) != 0)
            return std::nullopt;
        uint64_t unit = memory->start + (address - memory->start) / uint64_t(chip) * uint64_t(chip);
        for (const int32_t size : FlashTable::eraseUnits(memory->flashIndex)) {
            if (address < unit + uint64_t(size))
                return Range{uint32_t(unit), uint32_t(size)};
            unit += uint64_t(size);
        }
        return std::nullopt; // not reached: the units fill the chip
    }
    return std::nullopt;
}

std::optional<std::vector<FlashLayout::Range>> FlashLayout::unitsTouching(uint32_t address, uint32_t length) const
{
    std::vector<Range> units;
    const uint64_t end = uint64_t(address) + length;
    for (uint64_t at = address; at < end;) {
        const std::optional<Range> unit = unitAt(at);
        if (!unit)
            return std::nullopt;
        units.push_back(*unit);
        at = unit->end();
    }
    return units;
}
