#pragma once
// Turns Ctrl-C (SIGINT) into a call on the event loop's thread, so a run can be cancelled
// through the engine and unwind, closing the channel, instead of dying mid-request.
#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <memory>

class InterruptCancel : public QObject {
    Q_OBJECT
public:
    explicit InterruptCancel(std::function<void()> onInterrupt);
    ~InterruptCancel() override;
    bool interrupted() const { return m_interrupted; }

private:
    std::function<void()> m_onInterrupt;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_interrupted = false;
};
