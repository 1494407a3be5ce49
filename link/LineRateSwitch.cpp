#include "link/LineRateSwitch.h"

#include "link/Link.h"
#include "link/LinkTimeouts.h"
#include "link/Protocol.h"
#include "link/Transport.h"

#include <algorithm>

LineRateSwitch::LineRateSwitch(Link &link, Transport &transport, int highestRate, QObject *parent)
    : QObject(parent), m_link(link), m_transport(transport), m_highestRate(highestRate)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &LineRateSwitch::onTimeout);
    connect(&m_link, &Link::replied, this, &LineRateSwitch::onReplied);
    connect(&m_link, &Link::failed, this, [this](Link::Failure, const QString &reason) {
        if (!m_waitingFor)
            return; // not asking (yet, or any more)
        m_waitingFor.reset();
        m_timer.stop();
        emit failed(reason);
    });
}

void LineRateSwitch::start()
{
    m_packageRate = m_transport.lineRate();
    ask(Step::Abilities, Protocol::Abilities, {});
}

void LineRateSwitch::ask(Step step, uint8_t type, const QByteArray &payload)
{
    m_step = step;
    m_waitingFor = m_link.request(type, payload, Protocol::ShortAnswerBytes);
}

void LineRateSwitch::onReplied(uint8_t sequence, const QByteArray &payload)
{
    if (m_waitingFor != sequence)
        return; // another request's answer
    m_waitingFor.reset();
    switch (m_step) {
    case Step::Abilities: onAbilities(payload); break;
    case Step::Switch: onSwitchAnswer(payload); break;
    case Step::Proof:
        m_timer.stop();
        finish(m_candidates.front(), QString());
        break;
    case Step::Confirm:
        finish(m_packageRate, m_wayBackReason);
        break;
    case Step::WayBack: // nothing is asked while the instrument goes back
        break;
    }
}

void LineRateSwitch::onAbilities(const QByteArray &payload)
{
    m_abilities = InstrumentAbilities::fromAnswer(payload);
    QString note;
    m_candidates = candidates(note);
    proposeNext(note);
}

std::vector<int> LineRateSwitch::candidates(QString &note)
{
    if (m_packageRate == 0)
        return {}; // the controller's rate, nothing to say about it
    const int ceiling = std::min(m_abilities.highestRate, m_highestRate);
    if (m_abilities.highestRate <= m_packageRate)
        note = QStringLiteral("the transfer program does not switch to a faster rate");
    else if (m_highestRate <= m_packageRate)
        note = QStringLiteral("no faster rate is allowed");
    std::vector<int> rates;
    for (const int rate : Protocol::SwitchRates)
        if (rate > m_packageRate && rate <= ceiling && m_transport.takesRate(rate))
            rates.insert(rates.begin(), rate);
    if (note.isEmpty() && rates.empty())
        note = QStringLiteral("the port takes no faster rate up to %1 baud").arg(ceiling);
    return rates;
}

void LineRateSwitch::proposeNext(const QString &noteWhenNone)
{
    if (m_candidates.empty()) {
        finish(m_packageRate, noteWhenNone);
        return;
    }
    ask(Step::Switch, Protocol::SwitchRate, Protocol::Writer().u32(uint32_t(m_candidates.front())).done());
}

void LineRateSwitch::onSwitchAnswer(const QByteArray &payload)
{
    const int proposed = m_candidates.front();
    if (Protocol::Reader(payload).u16() != Protocol::Status::Ok) {
        m_declined.push_back(proposed);
        m_candidates.erase(m_candidates.begin());
        proposeNext(m_declined.size() == 1 ? QStringLiteral("the instrument declined %1 baud").arg(proposed)
                                           : QStringLiteral("the instrument declined %1 to %2 baud").arg(proposed).arg(m_declined.front()));
        return;
    }
    // The answer has come whole: the instrument has switched, and nothing of ours is on the line.
    m_sinceSwitch.start();
    if (!m_transport.setLineRate(proposed)) {
        // The port took the rate a moment ago; the instrument is there without us.
        goBack(QStringLiteral("the port refused %1 baud").arg(proposed));
        return;
    }
    m_timer.start(LinkTimeouts::RateProof);
    ask(Step::Proof, Protocol::Abilities, {});
}

void LineRateSwitch::onTimeout()
{
    if (m_step == Step::Proof)
        goBack(QStringLiteral("the instrument did not answer at %1 baud").arg(m_candidates.front()));
    else
        ask(Step::Confirm, Protocol::Abilities, {});
}

void LineRateSwitch::goBack(const QString &why)
{
    m_wayBackReason = why;
    m_link.abandon(); // the proof, which the instrument may never hear
    m_waitingFor.reset();
    if (!m_transport.setLineRate(m_packageRate)) {
        emit failed(QStringLiteral("the port does not return to %1 baud after trying %2 baud; check the serial adapter")
                        .arg(m_packageRate)
                        .arg(m_candidates.front()));
        return;
    }
    m_step = Step::WayBack;
    const auto waited = std::chrono::milliseconds(m_sinceSwitch.elapsed());
    m_timer.start(std::max(std::chrono::milliseconds(0), std::chrono::milliseconds(LinkTimeouts::RateFallbackWait) - waited));
}

void LineRateSwitch::finish(int rate, const QString &note)
{
    emit finished(m_abilities, rate, note);
}
