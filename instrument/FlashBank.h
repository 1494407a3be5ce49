#pragma once
// The instrument's flash chips as the processor sees them: chips at adjacent addresses form
// one continuous range, so a block, a read or a sum may run from one chip into the next, as
// on a board with a bank of parts. A range any byte of which lies in no chip (or in a chip of
// another kind, when a kind is asked for) is refused as a whole, before anything changes.
#include "instrument/FlashChip.h"

#include <QByteArray>
#include <optional>
#include <vector>

class FlashBank {
public:
    void add(const FlashChip &chip) { m_chips.push_back(chip); }
    const std::vector<FlashChip> &chips() const { return m_chips; }

    // The chip at address (of kind index, unless 0), or nullptr.
    const FlashChip *chipAt(uint32_t address, int32_t index = 0) const;
    // Erase and program give the time the parts take: milliseconds and microseconds.
    std::optional<double> erase(uint32_t address, uint32_t length, int32_t index);
    // The erase units an erase of the range would erase, lowest first (address, size); none
    // when it would be refused.
    std::vector<std::pair<uint32_t, uint32_t>> eraseUnits(uint32_t address, uint32_t length, int32_t index) const;
    // Where the bytes cannot be programmed: the address when part of the range is in no chip of
    // kind index, else the first byte that would need a 0 turned into a 1; nullopt when they can.
    std::optional<uint32_t> refusal(uint32_t address, const QByteArray &bytes, int32_t index) const;
    // Programs bytes that refusal() lets through.
    double program(uint32_t address, const QByteArray &bytes, int32_t index);
    std::optional<QByteArray> read(uint32_t address, uint32_t length) const;
    // Puts bytes into the chips as they are, as a factory would; false when they do not fit.
    bool load(uint32_t address, const QByteArray &bytes);

private:
    struct Piece {
        size_t chip;
        uint32_t address;
        uint32_t length;
    };
    // The range cut at chip boundaries, or nullopt when part of it is in no chip.
    std::optional<std::vector<Piece>> pieces(uint32_t address, uint32_t length, int32_t index) const;

    std::vector<FlashChip> m_chips;
};
