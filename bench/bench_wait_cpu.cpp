// Waits 2 s for an answer that never comes and prints the CPU seconds the process used
// meanwhile. The wait sleeps in the event loop, so the figure should be close to 0.
#include "tests/support/EngineFixture.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <sys/resource.h>

#include <cstdio>

namespace {
double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}
constexpr int WaitMilliseconds = 2000;
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    EngineFixture f;
    f.prepareLayer = [](ScriptedAppLayer &layer) { layer.queueReply(ScriptedAppLayer::silence()); };
    auto *layer = f.engine.CreateAppLayer();

    QTimer::singleShot(WaitMilliseconds, &f.engine, [&] { f.engine.Cancel(); });
    const double cpuBefore = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    f.engine.ResponseReceived = false;
    layer->ProgrammingVoltageOn();
    f.engine.WaitForResponse();
    const double cpu = cpuSeconds() - cpuBefore;
    const double seconds = double(wall.elapsed()) / 1000.0;

    std::printf("waited %.3f s for an answer that never came; CPU used %.4f s (%.3f%% of one core)\n",
                seconds, cpu, 100.0 * cpu / seconds);
    return 0;
}
