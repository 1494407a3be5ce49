#pragma once
// Where the erase units of the instrument's flash lie: each memory of the package is a bank of
// whole chips of its kind from its start address on, each chip cut into the erase units of
// the flash table. An erase, here as in the instrument, erases every unit it touches.
#include <cstdint>
#include <optional>
#include <vector>

class FlashLayout {
public:
    struct Range {
        uint32_t address;
        uint32_t length;
        uint64_t end() const { return uint64_t(address) + length; }
    };

    // Memories added later win where they overlap earlier ones, as they do for the passes.
    void addMemory(int32_t start, int32_t length, int32_t flashIndex);
    // The erase units that the length bytes at address touch, lowest first (none for length
    // 0); nullopt when a byte of them lies in no memory, or in one that is no whole number of
    // chips the table knows.
    std::optional<std::vector<Range>> unitsTouching(uint32_t address, uint32_t length) const;

private:
    struct Memory {
        uint64_t start;
        uint64_t end;
        int32_t flashIndex;
    };
    // The unit holding the byte at address; nullopt as for unitsTouching.
    std::optional<Range> unitAt(uint64_t address) const;

    std::vector<Memory> m_memories;
};
