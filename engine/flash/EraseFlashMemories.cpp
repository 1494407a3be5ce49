// Erasing the configured flash ranges under programming voltage.
#include "engine/QX_UploadProcess.h"

#include "engine/Timeouts.h"

#include <QTimer>

namespace {
constexpr int32_t EraseProgressStep = 10;
}

bool QX_UploadProcess::EraseFlashMemories()
{
    bool result = true;
    AddLogLine(QStringLiteral("Erase Flash Memories Started"));
    if (!request([](ApplicationLayer &layer) { layer.ProgrammingVoltageOn(); })) {
        AddLogLine(QStringLiteral("Error setting Programming Voltage On"));
        return false;
    }
    AddLogLine(QStringLiteral("Programming Voltage On"));

    for (const QX_Erase &erase : Erases) {
        const QX_Memory *memory = memoryHolding(erase.EraseAddress(), erase.EndAddress());
        if (!memory) {
            result = false;
            AddLogLine(QStringLiteral("FlashErase Configuration Error"));
            break;
        }
        AddLogLine(QStringLiteral("FlashDelete Started"));
        ResponseReceived = false;
        AppLayer->FlashDelete(static_cast<uint8_t>(ArchitectureIndex), static_cast<uint8_t>(memory->FlashnameIndex()),
                              erase.EraseAddress(), erase.Length());
        WaitForResponseWithProgressTick();
        if (holder().GetLastError() != 0) {
            // The voltage stays on: the channel is shut down next and the instrument restarted.
            AddLogLine(QStringLiteral("FlashDelete ERROR"));
            return false;
        }
        AddLogLine(QStringLiteral("FlashDelete OK"));
    }

    if (!request([](ApplicationLayer &layer) { layer.ProgrammingVoltageOff(); })) {
        AddLogLine(QStringLiteral("Error setting Programming Voltage Off"));
        return false;
    }
    AddLogLine(QStringLiteral("Programming Voltage Off"));
    AddLogLine(QStringLiteral("Erase Flash Memories Completed"));
    ProgressCount = ProgressAfterErase;
    return result;
}

void QX_UploadProcess::WaitForResponseWithProgressTick()
{
    // The timer only wakes the sleeping event loop so that the ticks come while nothing
    // else happens.
    QTimer wake;
    wake.start(Timeouts::ProgressTick);
    LastAnimationTick = m_clock.tickMs();
    waitUntil([this] {
        CurrentTick = m_clock.tickMs();
        if (CurrentTick - LastAnimationTick >= Timeouts::ProgressTick.count()) {
            LastAnimationTick = CurrentTick;
            if (ProgressCount < ProgressAfterErase) {
                ProgressCount += EraseProgressStep;
                UpdateEntireProgress();
            }
            AnimateStep();
        }
        return ResponseReceived;
    });
}

void QX_UploadProcess::animateOnTick()
{
    CurrentTick = m_clock.tickMs();
    if (CurrentTick - LastAnimationTick < Timeouts::ProgressTick.count())
        return;
    LastAnimationTick = CurrentTick;
    AnimateStep();
}
