#pragma once
// One flash chip of the simulated instrument, as the real part behaves: it reads FF when
// erased, erases by sector (or only as a whole, for the bulk-erase parts; the top-boot part
// in smaller boot sectors at its top), and programming can only clear bits.
#include <QByteArray>
#include <QString>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class FlashChip {
public:
    struct Part {
        const char *name;
        int32_t index;        // the chip's number in the flash table
        int32_t manufacturer; // JEDEC manufacturer code
        int32_t device;       // device code
        int32_t size;         // bytes
        int32_t sectorSize;   // erase unit; the whole chip for bulk-erase parts
        // The units that take the place of the top sector on a top-boot part, lowest first;
        // none (zeros) on the others.
        std::array<int32_t, 4> topBootUnits;
        double eraseMsPerSector;
        double programUsPerByte;
    };
    // The part of that name or flash table number.
    static std::optional<Part> part(const QString &name);
    static std::optional<Part> part(int32_t index);

    FlashChip(const Part &part, uint32_t base);

    const Part &model() const { return m_part; }
    uint32_t base() const { return m_base; }
    bool holds(uint32_t address, uint32_t length) const;
    // Erases every erase unit the range touches; the milliseconds it takes at time scale 1.
    double erase(uint32_t address, uint32_t length);
    // The erase units the range touches, lowest first: address and size of each.
    std::vector<std::pair<uint32_t, uint32_t>> unitsTouching(uint32_t address, uint32_t length) const;
    // The first byte of the range where the bytes have a 1 over a 0, which programming cannot
    // make.
    std::optional<uint32_t> firstBitToRaise(uint32_t address, const QByteArray &bytes) const;
    // ANDs the bytes in; the microseconds it takes at time scale 1.
    double program(uint32_t address, const QByteArray &bytes);
    QByteArray read(uint32_t address, uint32_t length) const;
    const QByteArray &contents() const { return m_bytes; }
    void load(uint32_t address, const QByteArray &bytes);

private:
    // The erase unit holding the byte at offset: its first offset and its size.
    std::pair<uint32_t, uint32_t> unitAt(uint32_t offset) const;

    Part m_part;
    uint32_t m_base;
    QByteArray m_bytes;
};
