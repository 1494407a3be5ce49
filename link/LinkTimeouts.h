#pragma once
// Every timeout, retry count and pace of the link and its transports, each with its reason.
#include <chrono>

namespace LinkTimeouts {
using namespace std::chrono_literals;

// Added to the wire time of a request and its answer before the answer counts as lost: the
// instrument's turnaround and the host's scheduling. Generous next to a serial turnaround
// of a few milliseconds, small next to a human's patience.
inline constexpr auto ReplyMargin = 250ms;
// The longest the link waits for the oldest request's answer, whatever its estimate of the
// line says: the largest request and answer (4000-byte blocks, both stuffed at worst, 2 x 8210
// bytes) take 38 s at 4800 baud. Only a wrong estimate reaches it; a resend then comes late,
// not never.
inline constexpr auto LongestReplyWait = 40s;
// The longest a channel may take to open: a network controller's connection (Gpib::Connect,
// 3 s) and its answer to "++ver" (Gpib::ControllerAnswer, 1 s) are the slowest opens that
// succeed; a transport that has said nothing after this is hung (a stuck driver).
inline constexpr auto LongestOpen = 10s;
// After a frame from the instrument that arrived damaged, added to the wire time of the oldest
// request's answer before the damaged frame counts as that answer and the request goes again:
// a USB serial adapter hands on what it has at least every 16 ms (its latency timer), and the
// instrument turns round within a few. A wrong guess costs one request sent again, answered
// from what the instrument kept; waiting out ReplyMargin costs a quarter of a second.
inline constexpr auto DamagedAnswerMargin = 30ms;
// A busy instrument sends a busy frame every 100 ms; three missed in a row mean it is gone.
inline constexpr auto BusySilence = 400ms;
// The longest one request may keep the instrument busy without an answer: erasing the whole of
// the largest chip in the flash table (the I28F016, 32 blocks of typically 0.8 s, at worst some
// ten times that) takes up to about four minutes. An instrument busy for longer is stuck.
inline constexpr auto LongestOperation = 5min;
// How long closing a channel waits for the instrument to switch the programming voltage off
// after an update that stopped with it on: the blocks still on the way and the answer take
// well under a second at 115200 baud. A line slower than that, or one that does not answer,
// is not waited for longer: the request is on the line, and the run is over.
inline constexpr auto VoltageOffAtClose = 2s;
// Waits for an answer that may run out since the instrument was last heard (any intact frame
// from it) before it counts as not answering: a dead line or instrument is given up within a
// few seconds, while on a noisy line the instrument's Naks and answers show that it is there.
inline constexpr int MaxAttempts = 8;
// Sends of one request before the line counts as too noisy for an update while the instrument
// is heard. At one damaged byte in 100 a request of the size the link then uses
// (AdaptiveFrameSize) comes through with its answer about every other time, and 32 sends all
// lose it about once in 10^10; a line that loses nearly every frame is given up within seconds.
inline constexpr int MostSendsOfOneRequest = 32;
// The line-rate switch (docs/protocol.md, "Line rate"). The instrument's own: at a switched
// rate it returns to the package's rate once this long has passed without an intact frame
// since it switched, since it answered Restart, or since a byte came after the last intact
// frame (a host speaking at another rate). Long next to the turnaround of a request at any
// rate, short enough that a failed switch costs about a second.
inline constexpr auto RateFallback = 1s;
// How long the host waits for the answer to its first request at the new rate. Request and
// answer take well under a millisecond on the wire; the time lets the link send the request
// twice more (ReplyMargin) against a damaged frame and stays well inside RateFallback, so
// the instrument has not gone back while the host still tries.
inline constexpr auto RateProof = 700ms;
// After a failed proof, the host speaks at the package's rate again only once the instrument
// has surely gone back too: RateFallback from the host's own switch, which came a little after
// the instrument's, and the margin of any reply for the instrument's clock and the host's.
inline constexpr auto RateFallbackWait = RateFallback + ReplyMargin;
// The shortest pause in reading worth a timer: a line delivers in pieces a millisecond or two
// apart (a UART's FIFO, a USB adapter's latency timer, the simulated line's 2 ms steps), so a
// shorter pause would cost a timer's wake-up to save one or two.
inline constexpr auto ShortestReadPause = 4ms;
// Added to the wire time of the rest of an answer, so that the answer is whole when reading
// resumes although the line delivers in pieces: a few ms of latency, no lost line time while
// later requests keep the line busy.
inline constexpr auto ReadPauseMargin = 3ms;

// How much data a request carries on a noisy line (AdaptiveFrameSize), in bytes.
// The first requests of a channel, before anything is known of the line: at one damaged byte in
// 100 such a frame still comes through about every other time. The size doubles with every
// answer, so a clean line carries whole 4000-byte blocks from about the tenth request on.
inline constexpr int FirstRequestData = 32;
// The least: below it a request's own 16 bytes would be more than half of what it moves.
inline constexpr int SmallestRequestData = 16;
// How far back the damage seen counts, in bytes on the wire in both directions (it fades by a
// factor e over that many): at one byte in 1000 some sixteen damaged frames, enough for a steady
// estimate; short enough that on a line that became clean 240-byte blocks go whole again within
// about two seconds at 115200 baud, 4000-byte ones within about ten.
inline constexpr int LineMemoryBytes = 16384;

// The port doctor's byte test over a loopback plug: how long a rate's bytes may take beyond
// twice their time on the wire before the missing ones count as lost. A USB adapter hands
// received bytes over when its latency timer runs out (16 ms unless set otherwise), and the
// host schedules; a quarter of a second covers both many times and keeps a test of every rate
// within seconds.
inline constexpr auto LoopbackMargin = 250ms;

// The GPIB transports, in milliseconds unless said otherwise.
namespace Gpib {
// A network controller answers a connection at once or is not there.
inline constexpr int Connect = 3000;
// A "++" controller answers ++ver within milliseconds; a second covers a slow USB adapter.
inline constexpr int ControllerAnswer = 1000;
// How long the controller waits for the addressed instrument to start talking. Our
// instruments answer a read at once (an empty frame when they have nothing), so only an
// address without an instrument waits this long.
inline constexpr int TalkerSilence = 300;
// Added to TalkerSilence before a read the controller never finished counts as silent.
inline constexpr int ReadMargin = 100;
// Closing waits this long for linux-gpib's worker thread to end: every library call it makes
// is bounded by the device's timeout (TalkerSilence), so the call on its way ends within it.
inline constexpr int WorkerJoin = TalkerSilence + ReadMargin;
// Between reads that found nothing: often enough to add little to each answer's wait, rarely
// enough to leave the bus and the controller mostly idle.
inline constexpr int PollInterval = 5;
// Reads a "++" controller that marks the end of each message may hold at once: one behind
// each of the three requests any instrument may have on the way, and one for a poll. Each
// comes back with at least an empty frame and a talk brings all the instrument has, so more
// (for the up to eight an instrument with a receive buffer may have) only take the bus from
// the requests: tried with nine, no row got faster.
inline constexpr int MostReadsAsked = 4;
// What a "++" controller moves through its USB or network link and the bus, in bytes a second:
// conservative, so the link's waits are long enough.
inline constexpr double BytesPerSecond = 100000.0;

// How long count bytes take to reach the instrument or come back: the controller's link and
// the bus, and a read asked for between the answers.
inline double wireTimeMs(int count)
{
    return double(count) * 1000.0 / BytesPerSecond + PollInterval;
}
}

}
