#include "cli/InterruptCancel.h"

#include <csignal>
#include <unistd.h>

namespace {
int interruptPipe[2] = {-1, -1};
volatile std::sig_atomic_t warnOnNextInterrupt = 0;
constexpr char WarnByte = 'w';
constexpr char CancelByte = 'c';

void onInterrupt(int)
{
    char byte = CancelByte;
    if (warnOnNextInterrupt) {
        warnOnNextInterrupt = 0;
        byte = WarnByte;
    } else {
        std::signal(SIGINT, SIG_DFL); // the cancel is on its way: the next Ctrl-C ends the tool
    }
    [[maybe_unused]] const ssize_t written = ::write(interruptPipe[1], &byte, 1);
}
} // namespace

InterruptCancel::InterruptCancel(std::function<void()> onInterruptCall, std::function<void()> onWarning)
    : m_onInterrupt(std::move(onInterruptCall)), m_onWarning(std::move(onWarning))
{
    if (interruptPipe[0] < 0 && ::pipe(interruptPipe) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(interruptPipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(interruptPipe[0], &byte, 1) != 1 || m_interrupted)
            return;
        if (byte == WarnByte) {
            m_onWarning();
            return;
        }
        m_interrupted = true;
        m_onInterrupt();
    });
    std::signal(SIGINT, onInterrupt);
}

InterruptCancel::~InterruptCancel()
{
    warnOnNextInterrupt = 0;
    std::signal(SIGINT, SIG_DFL);
}

void InterruptCancel::warnFirst()
{
    if (m_warnArmed || m_interrupted)
        return;
    m_warnArmed = true;
    warnOnNextInterrupt = 1;
}
