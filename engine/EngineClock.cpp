#include "engine/EngineClock.h"

#include <QElapsedTimer>
#include <QTime>

EngineClock EngineClock::system()
{
    return {[] {
                static QElapsedTimer monotonic = [] {
                    QElapsedTimer t;
                    t.start();
                    return t;
                }();
                return static_cast<int64_t>(monotonic.elapsed());
            },
            [] { return QTime::currentTime().msecsSinceStartOfDay() / 1000.0; }};
}
