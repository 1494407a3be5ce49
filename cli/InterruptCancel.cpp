#include "cli/InterruptCancel.h"

#include <csignal>
#include <unistd.h>

namespace {
int interruptPipe[2] = {-1, -1};

void onInterrupt(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(interruptPipe[1], &byte, 1);
    // The run now unwinds through the engine; a second Ctrl-C ends the tool at once, for
    // the rare case where the unwinding itself is what someone wants to stop.
    std::signal(SIGINT, SIG_DFL);
}
} // namespace

InterruptCancel::InterruptCancel(std::function<void()> onInterruptCall) : m_onInterrupt(std::move(onInterruptCall))
{
    if (interruptPipe[0] < 0 && ::pipe(interruptPipe) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(interruptPipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(interruptPipe[0], &byte, 1) == 1 && !m_interrupted) {
            m_interrupted = true;
            m_onInterrupt();
        }
    });
    std::signal(SIGINT, onInterrupt);
}

InterruptCancel::~InterruptCancel()
{
    std::signal(SIGINT, SIG_DFL);
}
