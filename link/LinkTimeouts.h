#pragma once
// The link's timing, each value with its reason.
#include <chrono>

namespace LinkTimeouts {
using namespace std::chrono_literals;

// Added to the wire time of a request and its answer before the answer counts as lost: the
// instrument's turnaround and the host's scheduling. Generous next to a serial turnaround
// of a few milliseconds, small next to a human's patience.
inline constexpr auto ReplyMargin = 250ms;
// The longest the link waits for the oldest request's answer, whatever its estimate of the
// line says: the largest request and answer (4000-byte blocks, both stuffed at worst, 2 x 8212
// bytes) take 38 s at 4800 baud. Only a wrong estimate reaches it; a resend then comes late,
// not never.
inline constexpr auto LongestReplyWait = 40s;
// A busy instrument sends a busy frame every 100 ms; three missed in a row mean it is gone.
inline constexpr auto BusySilence = 400ms;
// The longest one request may keep the instrument busy without an answer: erasing the whole of
// the largest chip in the flash table (the I28F016, 32 blocks of typically 0.8 s, at worst some
// ten times that) takes up to about four minutes. An instrument busy for longer is stuck.
inline constexpr auto LongestOperation = 5min;
// Sends of one request before the instrument counts as not answering. At one damaged byte in
// 1000 a full 260-byte frame is lost about one time in four; eight sends lose a request about
// once in 100,000, and a dead line is still given up within a few seconds.
inline constexpr int MaxAttempts = 8;
// The shortest pause in reading worth a timer: a line delivers in pieces a millisecond or two
// apart (a UART's FIFO, a USB adapter's latency timer, the simulated line's 2 ms steps), so a
// shorter pause would cost a timer's wake-up to save one or two.
inline constexpr auto ShortestReadPause = 4ms;
// Added to the wire time of the rest of an answer, so that the answer is whole when reading
// resumes although the line delivers in pieces: a few ms of latency, no lost line time while
// later requests keep the line busy.
inline constexpr auto ReadPauseMargin = 3ms;

}
