#pragma once
// What an update must still change, erase unit by erase unit. From the engine's plan it knows
// what every unit that the erases touch must hold at the end (the image bytes where programs
// land, FF elsewhere) and what every programmed range outside them must hold (the image
// bytes), and the CRC-32 of each. Once the instrument has said what each holds now (checks(),
// found()), it says which parts of an erase still need it and which blocks need not be sent:
// those whose every byte is in place already, in a unit or range that holds its final content,
// or FF in a unit that was just erased.
//
// A plan it cannot follow unit by unit (a range in no memory that the flash table describes,
// images that overlap) makes none: the update then erases and programs everything.
#include "config/FlashLayout.h"
#include "engine/FlashPlan.h"

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <vector>

class DifferentialPlan {
public:
    using Range = FlashLayout::Range;

    // Reads the plan's images, which are valid only during the call that announces it.
    static std::optional<DifferentialPlan> make(const FlashPlan &plan);

    // A range to ask the instrument's CRC-32 of, with the CRC-32 it must have at the end.
    struct Check {
        Range range;
        uint32_t finalCrc;
    };
    const std::vector<Check> &checks() const { return m_checks; }
    // What the instrument answered for checks()[index]; nullopt when it could not say.
    void found(size_t index, std::optional<uint32_t> crc);

    // The parts of the erase of the length bytes at address that must be sent: none when every
    // unit it touches holds its final content, the erase itself when none does, and otherwise
    // one part per run of adjacent units that do not, each from its first unit's first byte to
    // its last unit's end. The units sent are erased from now on.
    std::vector<Range> eraseParts(uint32_t address, uint32_t length);
    // Whether a block need not be sent: every byte of it holds its final value already.
    bool blockInPlace(uint32_t address, const QByteArray &data) const;

private:
    struct Region {
        Range range;
        bool eraseUnit;      // a unit that the erases touch (else a programmed range outside them)
        bool inPlace = false; // holds its final content
        bool erased = false;  // erased in this update
    };
    DifferentialPlan() = default;
    // The region holding the byte at address.
    const Region *regionAt(uint64_t address) const;

    FlashLayout m_layout;
    std::vector<Region> m_regions; // by address, apart from one another
    std::vector<Check> m_checks;   // one for each region, in the same order
};
