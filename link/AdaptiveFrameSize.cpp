#include "link/AdaptiveFrameSize.h"

#include "link/LinkTimeouts.h"
#include "link/Protocol.h"

#include <algorithm>
#include <cmath>

namespace {
// What a request carries besides its data: its frame's END bytes, header and CRC (10), and the
// Program request's address, architecture and flash number (6), the most of the requests that
// carry data.
constexpr double Overhead = 10 + 6;
constexpr int Largest = Protocol::LargestBlock / AdaptiveFrameSize::Granule * AdaptiveFrameSize::Granule;
} // namespace

AdaptiveFrameSize::AdaptiveFrameSize() : m_ceiling(LinkTimeouts::FirstRequestData) {}

void AdaptiveFrameSize::carried(int wireBytes)
{
    const double kept = std::exp(-double(wireBytes) / double(LinkTimeouts::LineMemoryBytes));
    m_damaged *= kept;
    m_bytes = m_bytes * kept + double(wireBytes);
}

void AdaptiveFrameSize::damaged()
{
    m_damaged += 1;
}

void AdaptiveFrameSize::answered()
{
    m_ceiling = std::min(Largest, m_ceiling * 2);
}

int AdaptiveFrameSize::dataBytes() const
{
    const double perByte = m_damaged <= 0 ? 0 : std::min(0.5, m_damaged / std::max(m_bytes, 1.0));
    double best = Largest;
    if (perByte > 0) {
        const double q = -std::log1p(-perByte);
        best = (std::sqrt(Overhead * Overhead + 4 * Overhead / q) - Overhead) / 2;
    }
    const int granules = int(std::min(best, double(Largest))) / Granule;
    return std::clamp(granules * Granule, LinkTimeouts::SmallestRequestData, m_ceiling);
}
