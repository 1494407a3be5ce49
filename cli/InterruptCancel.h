#pragma once
// Turns Ctrl-C (SIGINT) into a call on the event loop's thread, so a run can be cancelled
// through the engine and unwind, closing the channel, instead of dying mid-request. Once the
// cancel has been made, a further Ctrl-C ends the tool at once, for the rare case where the
// unwinding itself is what someone wants to stop.
#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <memory>

class InterruptCancel : public QObject {
    Q_OBJECT
public:
    InterruptCancel(std::function<void()> onInterrupt, std::function<void()> onWarning);
    ~InterruptCancel() override;
    // From now on the first Ctrl-C only warns; the one after it cancels. Only the first
    // call counts.
    void warnFirst();
    // A Ctrl-C cancelled the run.
    bool interrupted() const { return m_interrupted; }

private:
    std::function<void()> m_onInterrupt;
    std::function<void()> m_onWarning;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_warnArmed = false;
    bool m_interrupted = false;
};
