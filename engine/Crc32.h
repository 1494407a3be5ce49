#pragma once
// The CRC-32 that the instrument answers for a flash range (docs/protocol.md, RangeCrc): the
// frames' CRC, zlib's crc32 (CRC-32/ISO-HDLC), taken over bytes that may come in pieces.
#include <QByteArray>
#include <cstdint>

class Crc32 {
public:
    void add(const uint8_t *bytes, int64_t count);
    void add(const QByteArray &bytes) { add(reinterpret_cast<const uint8_t *>(bytes.constData()), bytes.size()); }
    // count times the same byte (erased flash reads FF).
    void addRepeated(uint8_t byte, int64_t count);
    uint32_t value() const { return m_value; }

    static uint32_t of(const QByteArray &bytes)
    {
        Crc32 crc;
        crc.add(bytes);
        return crc.value();
    }

private:
    uint32_t m_value = 0;
};
