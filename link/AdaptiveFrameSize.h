#pragma once
// How much data one request should carry on this line now. A damaged frame costs its own wire
// time again, so on a line that damages some bytes short frames move more data than long ones,
// and on a clean line long ones do, having less framing. The link reports the bytes it writes
// and reads and every damaged frame it learns of (the instrument's Nak, a damaged answer); the
// damage per byte over the line's recent past (LinkTimeouts::LineMemoryBytes) estimates the
// byte error rate p, and the data through, n/(n+h) x (1-p)^(n+h), is largest at
// n = (-h + sqrt(h^2 + 4h/q)) / 2 with q = -ln(1-p) and h the bytes a request carries besides
// its data. Damage fades as clean bytes pass, so sizes grow back on a line that became clean.
// A channel starts small and doubles the size with every answer, so that its first requests
// pass a line it does not know yet.
class AdaptiveFrameSize {
public:
    // Data sizes are whole multiples of this: whole words on every bus width the protocol knows
    // (up to 4 bytes), and sizes that do not change with every damaged frame.
    static constexpr int Granule = 16;

    AdaptiveFrameSize();

    // Bytes that went out or came in on the wire.
    void carried(int wireBytes);
    // A frame arrived damaged at either end.
    void damaged();
    // A request was answered.
    void answered();
    // The data a request should carry now: a multiple of Granule from
    // LinkTimeouts::SmallestRequestData up to the largest block; a caller whose block holds less
    // sends it whole.
    int dataBytes() const;

private:
    double m_damaged = 0; // damaged frames over the line's recent past, fading
    double m_bytes = 0;   // wire bytes over the same past, fading alike
    int m_ceiling;        // doubles with every answer from the channel's first request on
};
