#include "link/Frame.h"

#include <zlib.h>

namespace {
void putStuffed(QByteArray &out, uint8_t byte)
{
    if (byte == Frame::End) {
        out.append(char(Frame::Escape));
        out.append(char(Frame::EscapedEnd));
    } else if (byte == Frame::Escape) {
        out.append(char(Frame::Escape));
        out.append(char(Frame::EscapedEscape));
    } else {
        out.append(char(byte));
    }
}
} // namespace

QByteArray Frame::encode() const
{
    QByteArray body;
    body.reserve(payload.size() + 8);
    body.append(char(sequence));
    body.append(char(type));
    const auto length = static_cast<uint16_t>(payload.size());
    body.append(char(length & 0xFF));
    body.append(char(length >> 8));
    body.append(payload);
    const uLong crc = crc32(0L, reinterpret_cast<const Bytef *>(body.constData()), static_cast<uInt>(body.size()));
    for (int i = 0; i < 4; ++i)
        body.append(char((crc >> (8 * i)) & 0xFF));

    QByteArray wire;
    wire.reserve(body.size() * 2 + 2);
    wire.append(char(End));
    for (char c : body)
        putStuffed(wire, static_cast<uint8_t>(c));
    wire.append(char(End));
    return wire;
}

int Frame::worstCaseWireBytes(int n)
{
    return 2 + 2 * (4 + n + 4);
}

int Frame::leastWireBytes(int n)
{
    return 2 + 4 + n + 4;
}
