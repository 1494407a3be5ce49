#include "instrument/FlashBank.h"

const FlashChip *FlashBank::chipAt(uint32_t address, int32_t index) const
{
    for (const FlashChip &chip : m_chips)
        if (chip.holds(address, 1) && (index == 0 || chip.model().index == index))
            return &chip;
    return nullptr;
}

std::optional<std::vector<FlashBank::Piece>> FlashBank::pieces(uint32_t address, uint32_t length, int32_t index) const
{
    std::vector<Piece> result;
    uint64_t at = address;
    const uint64_t end = uint64_t(address) + length;
    while (at < end) {
        const auto chip = std::find_if(m_chips.begin(), m_chips.end(), [&](const FlashChip &c) {
            return c.holds(uint32_t(at), 1) && (index == 0 || c.model().index == index);
        });
        if (chip == m_chips.end())
            return std::nullopt;
        const uint64_t chipEnd = uint64_t(chip->base()) + uint32_t(chip->model().size);
        const uint64_t pieceEnd = std::min(end, chipEnd);
        result.push_back({size_t(chip - m_chips.begin()), uint32_t(at), uint32_t(pieceEnd - at)});
        at = pieceEnd;
    }
    if (result.empty() && !chipAt(address, index))
        return std::nullopt; // an empty range still has to be somewhere
    return result;
}

std::optional<double> FlashBank::erase(uint32_t address, uint32_t length, int32_t index)
{
    const auto cut = pieces(address, length, index);
    if (!cut)
        return std::nullopt;
    double ms = 0;
    for (const Piece &p : *cut)
        ms += m_chips[p.chip].erase(p.address, p.length);
    return ms;
}

std::vector<std::pair<uint32_t, uint32_t>> FlashBank::eraseUnits(uint32_t address, uint32_t length, int32_t index) const
{
    std::vector<std::pair<uint32_t, uint32_t>> units;
    if (const auto cut = pieces(address, length, index))
        for (const Piece &p : *cut)
            for (const auto &unit : m_chips[p.chip].unitsTouching(p.address, p.length))
                units.push_back(unit);
    return units;
}

std::optional<uint32_t> FlashBank::refusal(uint32_t address, const QByteArray &bytes, int32_t index) const
{
    const auto cut = pieces(address, uint32_t(bytes.size()), index);
    if (!cut)
        return address;
    for (const Piece &p : *cut)
        if (const auto at = m_chips[p.chip].firstBitToRaise(p.address, bytes.mid(qsizetype(p.address - address), qsizetype(p.length))))
            return at;
    return std::nullopt;
}

double FlashBank::program(uint32_t address, const QByteArray &bytes, int32_t index)
{
    double us = 0;
    const auto cut = pieces(address, uint32_t(bytes.size()), index);
    for (const Piece &p : *cut)
        us += m_chips[p.chip].program(p.address, bytes.mid(qsizetype(p.address - address), qsizetype(p.length)));
    return us;
}

std::optional<QByteArray> FlashBank::read(uint32_t address, uint32_t length) const
{
    const auto cut = pieces(address, length, 0);
    if (!cut)
        return std::nullopt;
    QByteArray bytes;
    bytes.reserve(qsizetype(length));
    for (const Piece &p : *cut)
        bytes += m_chips[p.chip].read(p.address, p.length);
    return bytes;
}

bool FlashBank::load(uint32_t address, const QByteArray &bytes)
{
    const auto cut = pieces(address, uint32_t(bytes.size()), 0);
    if (!cut)
        return false;
    for (const Piece &p : *cut)
        m_chips[p.chip].load(p.address, bytes.mid(qsizetype(p.address - address), qsizetype(p.length)));
    return true;
}
