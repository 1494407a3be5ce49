#include "engine/Crc32.h"

#include <algorithm>
#include <array>
#include <zlib.h>

void Crc32::add(const uint8_t *bytes, int64_t count)
{
    // zlib takes at most an unsigned int at a time.
    constexpr int64_t LargestPiece = int64_t(1) << 30;
    for (int64_t done = 0; done < count;) {
        const int64_t piece = std::min(count - done, LargestPiece);
        m_value = uint32_t(crc32(m_value, bytes + done, uInt(piece)));
        done += piece;
    }
}

void Crc32::addRepeated(uint8_t byte, int64_t count)
{
    std::array<uint8_t, 4096> run;
    run.fill(byte);
    for (int64_t done = 0; done < count;) {
        const int64_t piece = std::min<int64_t>(count - done, int64_t(run.size()));
        add(run.data(), piece);
        done += piece;
    }
}
