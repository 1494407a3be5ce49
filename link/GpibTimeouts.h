#pragma once
// Timing of the GPIB transports, in milliseconds unless said otherwise, each with its reason.
namespace GpibTimeouts {
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
