#include "cli/TimeLeft.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double LeastShare = 0.02;       // below it the run has hardly begun: no estimate yet
constexpr double FollowSeconds = 5.0;     // how slowly the estimate follows a shorter one
constexpr double MostRisePerSecond = 2.0; // and at most how fast a longer one, counting down
                                          // included: the time shown rises a second a second
} // namespace

std::optional<double> TimeLeft::update(double share, double seconds)
{
    if (share < LeastShare || seconds <= 0)
        return m_estimate;
    // The plain estimate from the average rate so far: right on a steady run, but a pause
    // while little is done moves it a lot.
    const double fromShare = seconds * (1 - std::min(share, 1.0)) / share;
    if (!m_estimate) {
        m_estimate = fromShare;
    } else {
        const double elapsed = std::max(0.0, seconds - m_seconds);
        const double countedDown = std::max(0.0, *m_estimate - elapsed);
        const double correction = fromShare - countedDown;
        m_estimate = countedDown
                     + (correction > 0 ? std::min(correction, MostRisePerSecond * elapsed)
                                       : (1 - std::exp(-elapsed / FollowSeconds)) * correction);
    }
    m_seconds = seconds;
    return m_estimate;
}
