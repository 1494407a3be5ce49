#pragma once
// The frame types and payload layouts of the instrument protocol, shared by the host's
// application layer and the simulated instrument. docs/protocol.md describes them for
// instrument makers. All numbers are little-endian.
#include <QByteArray>
#include <cstdint>

namespace Protocol {

enum Type : uint8_t {
    // Requests to the boot ROM
    LoadBlock = 0x10, // address u32, block sum u8, data            -> status u16
    Start = 0x11,     // load address u32, length u32, start u32    -> result u32
    // Requests to the transfer program
    Identify = 0x20,   // address u32, architecture u8, flash u8    -> status u16, manufacturer u32, device u32
    VoltageOn = 0x21,  //                                           -> status u16
    VoltageOff = 0x22, //                                           -> status u16
    Erase = 0x23,      // architecture u8, flash u8, address u32, length u32 -> status u16, address u32
    Restart = 0x24,    //                                           -> status u16
    Program = 0x25,    // address u32, architecture u8, flash u8, data -> status u16, address u32
    Read = 0x26,       // architecture u8, address u32, count u32   -> status u16, data
    Checksum = 0x27,   // architecture u8, address u32, length u32  -> status u16, checksum u32
    // To whichever stage runs: the host's first request on every channel
    Hello = 0x28, //                                                -> status u16, CRC-32 u32, length u32
    // Optional abilities of a transfer program: one that does not know them answers Unknown
    Abilities = 0x29,     //                                        -> status u16, highest rate u32, abilities u32,
                          //                                           receive buffer u32
    SwitchRate = 0x2A,    // rate u32                               -> status u16
    ProgramPacked = 0x2B, // address u32, architecture u8, flash u8, length u16, raw deflate data -> status u16, address u32
    RangeCrc = 0x2C,      // architecture u8, address u32, length u32 -> status u16, CRC-32 u32
    // From the instrument
    Reply = 0x80, // the answer to the request with the same sequence number
    Busy = 0x81,  // still working on the request with the same sequence number
    Nak = 0x82,   // damaged frames arrived: (empty) or last intact request u8, damaged frames since u8
};

// Status values of the replies.
namespace Status {
inline constexpr uint16_t Ok = 0;
inline constexpr uint16_t Done = 66;        // program block, restart
inline constexpr uint16_t VoltageIsOn = 68;
inline constexpr uint16_t VoltageNotOn = 69;
inline constexpr uint16_t VoltageIsOff = 70;
inline constexpr uint16_t VoltageNotOff = 71;
inline constexpr uint16_t EraseFailed = 65;
inline constexpr uint16_t ReadFailed = 32;
inline constexpr uint16_t ProgramFailed = 67;
inline constexpr uint16_t BadBlockSum = 1;    // LoadBlock: the data did not add up
inline constexpr uint16_t OutsideRam = 2;     // LoadBlock: the block does not fit the RAM
inline constexpr uint16_t NoFlash = 3;        // Identify: no chip of that kind at the address
inline constexpr uint16_t OutsideFlash = 4;   // Checksum, RangeCrc: range not wholly in flash
inline constexpr uint16_t Malformed = 5;      // a known request whose payload does not fit it
inline constexpr uint16_t RateNotTaken = 6;   // SwitchRate: the instrument's line cannot take that rate
inline constexpr uint16_t Unknown = 0xFFFF;   // a request type the stage does not know
}

// Start results
namespace StartResult {
inline constexpr uint32_t Running = 0;
inline constexpr uint32_t BadHeader = 2;   // the image at the start address is no transfer program
inline constexpr uint32_t NotLoaded = 3;   // the range, or the start address, is not wholly loaded
}

// The abilities an Abilities answer names, one bit each.
namespace Ability {
inline constexpr uint32_t SwitchRate = 1u << 0;    // it takes SwitchRate, up to its highest rate
inline constexpr uint32_t PackedBlocks = 1u << 1;  // it takes ProgramPacked
inline constexpr uint32_t RangeChecksums = 1u << 2; // it takes RangeCrc
}

// The rates above the classic ones that a host proposes with SwitchRate, slowest first: those
// a serial port can be set to by name.
inline constexpr int SwitchRates[] = {230400,  460800,  500000,  576000,  921600,  1000000, 1152000,
                                      1500000, 2000000, 2500000, 3000000, 3500000, 4000000};
// What ProgramPacked adds to Program's fields: the length the data inflates to.
inline constexpr int PackedLengthBytes = 2;

// A transfer program starts with these four bytes.
inline constexpr char TransferMagic[] = "KDTP";
// Bytes of transfer program sent per LoadBlock at most (fewer while the line damages frames): no
// bigger than a program block, so a noisy line costs the boot ROM no more retransmissions than
// the flash.
inline constexpr int LoadBlockBytes = 256;
// The most a Program or Read request carries or asks for.
inline constexpr int LargestBlock = 4000;
// Payload bytes of the longest answer that carries no data (Hello's), with room to spare, for
// the wait for an answer.
inline constexpr int ShortAnswerBytes = 16;
// A Nak that says which requests to send again: the number of the last request that arrived
// intact before the damage (0: none since power-on) and how many damaged frames followed it.
// An empty Nak says nothing of which.
inline constexpr int NakPayloadBytes = 2;
// A busy instrument says so at least this often (ms), so slow is told from dead.
inline constexpr int BusyIntervalMs = 100;

// Little-endian field writing and reading.
class Writer {
public:
    Writer &u8(uint8_t v) { m_bytes.append(char(v)); return *this; }
    Writer &u16(uint16_t v) { return u8(uint8_t(v)).u8(uint8_t(v >> 8)); }
    Writer &u32(uint32_t v) { return u16(uint16_t(v)).u16(uint16_t(v >> 16)); }
    Writer &bytes(const QByteArray &b) { m_bytes.append(b); return *this; }
    QByteArray done() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

class Reader {
public:
    explicit Reader(const QByteArray &bytes) : m_bytes(bytes) {}
    uint8_t u8() { return m_at < m_bytes.size() ? uint8_t(m_bytes[m_at++]) : (m_short = true, 0); }
    uint16_t u16() { const uint16_t lo = u8(); return uint16_t(lo | (u8() << 8)); }
    uint32_t u32() { const uint32_t lo = u16(); return lo | (uint32_t(u16()) << 16); }
    QByteArray rest() { const QByteArray r = m_bytes.mid(m_at); m_at = m_bytes.size(); return r; }
    // False when a field was read past the end of the payload.
    bool complete() const { return !m_short; }

private:
    QByteArray m_bytes;
    qsizetype m_at = 0;
    bool m_short = false;
};

} // namespace Protocol
