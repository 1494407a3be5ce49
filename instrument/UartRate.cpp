#include "instrument/UartRate.h"

#include "link/LinkTimeouts.h"
#include "link/Protocol.h"

#include <algorithm>

UartRate::UartRate(int packageRate, int highestRate, QObject *parent)
    : QObject(parent), m_packageRate(packageRate), m_highestRate(highestRate), m_rate(packageRate)
{
    m_fallback.setSingleShot(true);
    m_fallback.setInterval(LinkTimeouts::RateFallback);
    connect(&m_fallback, &QTimer::timeout, this, [this] { set(m_packageRate); });
}

bool UartRate::takes(int rate) const
{
    return rate == m_packageRate
           || (rate <= m_highestRate && std::find(std::begin(Protocol::SwitchRates), std::end(Protocol::SwitchRates), rate)
                                            != std::end(Protocol::SwitchRates));
}

void UartRate::switchTo(int rate)
{
    set(rate);
    if (switched())
        m_fallback.start(); // the host's first frame at the new rate stops it
}

void UartRate::restarted()
{
    if (switched())
        m_fallback.start();
}

void UartRate::heard(bool intact)
{
    if (!switched())
        return;
    if (intact)
        m_fallback.stop();
    else if (!m_fallback.isActive())
        m_fallback.start();
}

void UartRate::set(int rate)
{
    m_fallback.stop();
    if (rate == m_rate)
        return;
    m_rate = rate;
    emit changed(rate);
}
