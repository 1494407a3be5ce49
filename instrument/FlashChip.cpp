#include "instrument/FlashChip.h"

#include <array>

namespace {
// The parts of the flash table: their JEDEC codes, sizes, erase units and typical timings
// from their data sheets (the 28F parts erase only as a whole; the AM29LV800 with device code
// DA is the top-boot part, whose top 64 KiB are four boot sectors).
constexpr std::array<FlashChip::Part, 8> Parts = {{
    {"AM28F010", 17, 0x01, 0xA7, 128 * 1024, 128 * 1024, {}, 1000, 10},
    {"I28F010", 18, 0x89, 0xB4, 128 * 1024, 128 * 1024, {}, 1000, 10},
    {"AM28F020", 19, 0x01, 0x2A, 256 * 1024, 256 * 1024, {}, 2000, 10},
    {"I28F020", 20, 0x89, 0xBD, 256 * 1024, 256 * 1024, {}, 2000, 10},
    {"AM29F010", 21, 0x01, 0x20, 128 * 1024, 16 * 1024, {}, 1000, 7},
    {"AM29F040", 22, 0x01, 0xA4, 512 * 1024, 64 * 1024, {}, 1000, 7},
    {"I28F016", 23, 0x89, 0xA0, 2 * 1024 * 1024, 64 * 1024, {}, 800, 6},
    {"AM29LV800", 24, 0x01, 0xDA, 1024 * 1024, 64 * 1024, {32 * 1024, 8 * 1024, 8 * 1024, 16 * 1024}, 700, 9},
}};
} // namespace

std::optional<FlashChip::Part> FlashChip::part(const QString &name)
{
    for (const Part &p : Parts)
        if (name.compare(QLatin1String(p.name), Qt::CaseInsensitive) == 0)
            return p;
    return std::nullopt;
}

std::optional<FlashChip::Part> FlashChip::part(int32_t index)
{
    for (const Part &p : Parts)
        if (p.index == index)
            return p;
    return std::nullopt;
}

FlashChip::FlashChip(const Part &part, uint32_t base) : m_part(part), m_base(base), m_bytes(part.size, '\xFF') {}

bool FlashChip::holds(uint32_t address, uint32_t length) const
{
    return address >= m_base && uint64_t(address) + length <= uint64_t(m_base) + uint32_t(m_part.size);
}

std::pair<uint32_t, uint32_t> FlashChip::unitAt(uint32_t offset) const
{
    const auto sector = uint32_t(m_part.sectorSize);
    const uint32_t start = offset / sector * sector;
    const bool bootSectors = m_part.topBootUnits[0] != 0 && start + sector == uint32_t(m_part.size);
    if (!bootSectors)
        return {start, sector};
    uint32_t unit = start;
    for (const int32_t size : m_part.topBootUnits) {
        if (offset < unit + uint32_t(size))
            return {unit, uint32_t(size)};
        unit += uint32_t(size);
    }
    return {start, sector}; // not reached: the boot units fill the top sector
}

double FlashChip::erase(uint32_t address, uint32_t length)
{
    double ms = 0;
    for (const auto &[start, size] : unitsTouching(address, length)) {
        const qsizetype from = qsizetype(start - m_base);
        std::fill(m_bytes.begin() + from, m_bytes.begin() + from + qsizetype(size), '\xFF');
        ms += m_part.eraseMsPerSector;
    }
    return ms;
}

std::vector<std::pair<uint32_t, uint32_t>> FlashChip::unitsTouching(uint32_t address, uint32_t length) const
{
    std::vector<std::pair<uint32_t, uint32_t>> units;
    const uint32_t end = address - m_base + length;
    for (uint32_t offset = address - m_base; offset < end;) {
        const auto [start, size] = unitAt(offset);
        units.emplace_back(m_base + start, size);
        offset = start + size;
    }
    return units;
}

std::optional<uint32_t> FlashChip::firstBitToRaise(uint32_t address, const QByteArray &bytes) const
{
    const qsizetype at = qsizetype(address - m_base);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        if ((uint8_t(bytes[i]) & ~uint8_t(m_bytes[at + i])) != 0)
            return address + uint32_t(i);
    return std::nullopt;
}

double FlashChip::program(uint32_t address, const QByteArray &bytes)
{
    const qsizetype at = qsizetype(address - m_base);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        m_bytes[at + i] = char(uint8_t(m_bytes[at + i]) & uint8_t(bytes[i]));
    return double(bytes.size()) * m_part.programUsPerByte;
}

QByteArray FlashChip::read(uint32_t address, uint32_t length) const
{
    return m_bytes.mid(qsizetype(address - m_base), qsizetype(length));
}

void FlashChip::load(uint32_t address, const QByteArray &bytes)
{
    const qsizetype at = qsizetype(address - m_base);
    for (qsizetype i = 0; i < bytes.size() && at + i < m_bytes.size(); ++i)
        m_bytes[at + i] = bytes[i];
}
