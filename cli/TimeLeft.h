#pragma once
// The time an update has left, as the progress bar shows it. The share of the whole run
// grows unevenly (it comes in steps while the rate settles, the erase creeps, the checksums
// pause it), so the estimate from share and elapsed time alone jumps about. This one counts
// down with the clock, follows a shorter estimate within a few seconds and a longer one at
// most a second a second: it never jumps up, as from 0:09 to 0:16.
#include <optional>

class TimeLeft {
public:
    // share: the part of the whole run done (0 to 1) at seconds since the start. Returns the
    // seconds left, or nothing while too little is done to tell.
    std::optional<double> update(double share, double seconds);

private:
    std::optional<double> m_estimate;
    double m_seconds = 0;
};
