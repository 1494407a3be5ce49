#pragma once
// One frame of the wire protocol (see docs/protocol.md): a sequence number, a frame type and
// a payload. On the wire it is byte-stuffed between two END bytes and carries its payload
// length and a CRC-32, so a receiver finds the next frame after any noise.
#include <QByteArray>
#include <cstdint>

struct Frame {
    uint8_t sequence = 0;
    uint8_t type = 0;
    QByteArray payload;

    bool operator==(const Frame &other) const = default;

    // Wire bytes: END, stuffed(sequence, type, length LE16, payload, CRC-32 LE), END.
    QByteArray encode() const;
    // The largest payload a frame may carry: a 4000-byte block and its header.
    static constexpr int MaxPayload = 4096;
    // Bytes on the wire of a frame with n payload bytes, in the worst case of stuffing.
    static int worstCaseWireBytes(int n);
    // ... and with nothing to stuff.
    static int leastWireBytes(int n);

    static constexpr uint8_t End = 0xC0;
    static constexpr uint8_t Escape = 0xDB;
    static constexpr uint8_t EscapedEnd = 0xDC;
    static constexpr uint8_t EscapedEscape = 0xDD;
};
