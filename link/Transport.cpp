#include "link/Transport.h"

QString Transport::silenceReason(int attempts) const
{
    return QStringLiteral("the instrument did not answer after %1 attempts; check the cable, that the instrument is "
                          "switched on and waiting for the update, and the port")
        .arg(attempts);
}

void Transport::reportOpened()
{
    post([this] { emit opened(); });
}

void Transport::reportFailed(const QString &reason)
{
    post([this, reason] { emit failed(reason); });
}

void Transport::post(const std::function<void()> &report)
{
    // A posted call rather than a zero-time single shot, which makes a timer object each time;
    // it goes with the transport if the transport goes first.
    QMetaObject::invokeMethod(
        this,
        [this, report, wanted = m_reports] {
            if (wanted == m_reports)
                report();
        },
        Qt::QueuedConnection);
}
