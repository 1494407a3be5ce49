#include "trovex/DifferentialPlan.h"

#include "engine/Crc32.h"

#include <algorithm>
#include <map>

namespace {
constexpr uint8_t Erased = 0xFF;

struct Image {
    uint32_t address;
    uint32_t length;
    const FlashPlan::Image *source;
    uint64_t end() const { return uint64_t(address) + length; }
};
} // namespace

std::optional<DifferentialPlan> DifferentialPlan::make(const FlashPlan &plan)
{
    DifferentialPlan result;
    for (const FlashPlan::Memory &memory : plan.memories)
        result.m_layout.addMemory(memory.start, memory.length, memory.flashIndex);

    std::map<uint32_t, Range> eraseUnits;
    for (const FlashPlan::Erase &erase : plan.erases) {
        const auto units = result.m_layout.unitsTouching(uint32_t(erase.address), uint32_t(std::max(erase.length, 0)));
        if (!units)
            return std::nullopt;
        for (const Range &unit : *units)
            eraseUnits.emplace(unit.address, unit);
    }
    std::vector<Image> images;
    for (const FlashPlan::Image &image : plan.images)
        if (image.length > 0)
            images.push_back({uint32_t(image.address), uint32_t(image.length), &image});
    std::sort(images.begin(), images.end(), [](const Image &a, const Image &b) { return a.address < b.address; });
    for (size_t i = 1; i < images.size(); ++i)
        if (images[i - 1].end() > images[i].address)
            return std::nullopt; // what the second leaves over the first is the flash's business

    for (const auto &[address, unit] : eraseUnits)
        result.m_regions.push_back({unit, true});
    for (const Image &image : images) {
        const auto units = result.m_layout.unitsTouching(image.address, image.length);
        if (!units)
            return std::nullopt;
        for (const Range &unit : *units) {
            if (eraseUnits.count(unit.address))
                continue;
            const uint64_t from = std::max<uint64_t>(unit.address, image.address);
            const uint64_t to = std::min(unit.end(), image.end());
            result.m_regions.push_back({Range{uint32_t(from), uint32_t(to - from)}, false});
        }
    }
    std::sort(result.m_regions.begin(), result.m_regions.end(),
              [](const Region &a, const Region &b) { return a.range.address < b.range.address; });

    // What each region must hold at the end: FF in an erase unit, where no image lands.
    for (const Region &region : result.m_regions) {
        Crc32 crc;
        uint64_t at = region.range.address;
        for (const Image &image : images) {
            const uint64_t from = std::max<uint64_t>(at, image.address);
            const uint64_t to = std::min(region.range.end(), image.end());
            if (from >= to)
                continue;
            crc.addRepeated(Erased, int64_t(from - at));
            const auto offset = int32_t(from - image.address);
            const auto count = int32_t(to - from);
            const QByteArray bytes = image.source->read(offset, count);
            if (bytes.size() != count)
                return std::nullopt; // an image that cannot be read is sent whole, and fails there
            crc.add(bytes);
            at = to;
        }
        crc.addRepeated(Erased, int64_t(region.range.end() - at));
        result.m_checks.push_back({region.range, crc.value()});
    }
    return result;
}

void DifferentialPlan::found(size_t index, std::optional<uint32_t> crc)
{
    if (index < m_regions.size())
        m_regions[index].inPlace = crc == m_checks[index].finalCrc;
}

std::vector<DifferentialPlan::Range> DifferentialPlan::eraseParts(uint32_t address, uint32_t length)
{
    const auto units = m_layout.unitsTouching(address, length);
    if (!units)
        return {Range{address, length}};
    std::vector<Region *> touched;
    for (const Range &unit : *units) {
        const auto region = std::find_if(m_regions.begin(), m_regions.end(), [&](const Region &r) {
            return r.eraseUnit && r.range.address == unit.address;
        });
        if (region == m_regions.end())
            return {Range{address, length}}; // not in the plan: as the engine asks
        touched.push_back(&*region);
    }
    const bool all = std::none_of(touched.begin(), touched.end(), [](const Region *r) { return r->inPlace; });
    std::vector<Range> parts;
    for (Region *region : touched) {
        if (region->inPlace)
            continue;
        region->erased = true;
        if (!all && !parts.empty() && parts.back().end() == region->range.address)
            parts.back().length += region->range.length;
        else if (!all)
            parts.push_back(region->range);
    }
    if (all)
        parts.push_back({address, length});
    return parts;
}

const DifferentialPlan::Region *DifferentialPlan::regionAt(uint64_t address) const
{
    const auto after = std::upper_bound(m_regions.begin(), m_regions.end(), address,
                                        [](uint64_t a, const Region &r) { return a < r.range.address; });
    if (after == m_regions.begin())
        return nullptr;
    const Region &region = *(after - 1);
    return address < region.range.end() ? &region : nullptr;
}

bool DifferentialPlan::blockInPlace(uint32_t address, const QByteArray &data) const
{
    const uint64_t end = uint64_t(address) + uint64_t(data.size());
    for (uint64_t at = address; at < end;) {
        const Region *region = regionAt(at);
        if (!region)
            return false;
        const uint64_t to = std::min(end, region->range.end());
        if (!region->inPlace) {
            if (!region->erased)
                return false;
            const auto first = data.cbegin() + qsizetype(at - address);
            if (!std::all_of(first, first + qsizetype(to - at), [](char c) { return uint8_t(c) == Erased; }))
                return false;
        }
        at = to;
    }
    return true;
}
