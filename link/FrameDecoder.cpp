#include "link/FrameDecoder.h"

#include <zlib.h>

namespace {
constexpr int HeaderBytes = 4; // sequence, type, length
constexpr int CrcBytes = 4;
constexpr int LargestBody = HeaderBytes + Frame::MaxPayload + CrcBytes;
} // namespace

void FrameDecoder::reset()
{
    m_body.clear();
    m_escaped = false;
    m_overlong = false;
}

std::optional<FrameDecoder::Pending> FrameDecoder::pending() const
{
    if (m_overlong || m_body.size() < HeaderBytes)
        return std::nullopt;
    const auto *b = reinterpret_cast<const uint8_t *>(m_body.constData());
    const int length = b[2] | (b[3] << 8);
    const int bodyToCome = HeaderBytes + length + CrcBytes - int(m_body.size());
    if (length > Frame::MaxPayload || bodyToCome < 0)
        return std::nullopt; // damaged: only its END matters now
    return Pending{b[0], b[1], bodyToCome + 1};
}

QList<Frame> FrameDecoder::feed(const QByteArray &bytes)
{
    QList<Frame> frames;
    for (char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte == Frame::End) {
            finishFrame(frames);
            continue;
        }
        if (m_overlong)
            continue; // noise or a lost END: wait for the next one
        if (m_escaped) {
            m_escaped = false;
            if (byte == Frame::EscapedEnd)
                m_body.append(char(Frame::End));
            else if (byte == Frame::EscapedEscape)
                m_body.append(char(Frame::Escape));
            else
                m_overlong = true; // an escape nobody sends: the frame is damaged
        } else if (byte == Frame::Escape) {
            m_escaped = true;
        } else {
            m_body.append(c);
        }
        if (m_body.size() > LargestBody)
            m_overlong = true;
    }
    return frames;
}

void FrameDecoder::finishFrame(QList<Frame> &out)
{
    const QByteArray body = m_body;
    const bool damaged = m_overlong || m_escaped;
    reset();
    if (body.isEmpty() && !damaged)
        return; // two END bytes in a row: the gap between frames
    if (damaged || body.size() < HeaderBytes + CrcBytes) {
        ++m_corrupt;
        return;
    }
    const auto *b = reinterpret_cast<const uint8_t *>(body.constData());
    const int length = b[2] | (b[3] << 8);
    if (body.size() != HeaderBytes + length + CrcBytes) {
        ++m_corrupt;
        return;
    }
    const uLong crc = crc32(0L, b, static_cast<uInt>(HeaderBytes + length));
    const int at = HeaderBytes + length;
    const uLong sent = uLong(b[at]) | (uLong(b[at + 1]) << 8) | (uLong(b[at + 2]) << 16) | (uLong(b[at + 3]) << 24);
    if (crc != sent) {
        ++m_corrupt;
        return;
    }
    out.append(Frame{b[0], b[1], body.mid(HeaderBytes, length)});
}
