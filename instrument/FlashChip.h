#pragma once
// One flash chip of the simulated instrument, as the real part behaves: it reads FF when
// erased, erases by sector (or only as a whole, for the bulk-erase parts), and programming
// can only clear bits, so programming over old data gives the wrong bytes.
#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

class FlashChip {
public:
    struct Part {
        const char *name;
        int32_t index;        // the chip's number in the flash table
        int32_t manufacturer; // JEDEC manufacturer code
        int32_t device;       // device code
        int32_t size;         // bytes
        int32_t sectorSize;   // erase unit; the whole chip for bulk-erase parts
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
    // Erases every sector the range touches; the milliseconds it takes at time scale 1.
    double erase(uint32_t address, uint32_t length);
    // ANDs the bytes in; the microseconds it takes at time scale 1.
    double program(uint32_t address, const QByteArray &bytes);
    QByteArray read(uint32_t address, uint32_t length) const;
    const QByteArray &contents() const { return m_bytes; }
    void load(uint32_t address, const QByteArray &bytes);

private:
    Part m_part;
    uint32_t m_base;
    QByteArray m_bytes;
};
