#pragma once
// Makes the line as fast as both ends and the user allow, once the transfer program runs. It
// asks the program what it can do (Abilities). A program that does not know the question, or a
// transport whose rate is not this program's to set (GPIB), keeps the package's rate.
// Otherwise it proposes the fastest of Protocol::SwitchRates that the instrument names, the
// port takes and the user allows, and the next slower one when the instrument declines. The
// instrument answers at the old rate and both ends switch; a request at the new rate must then
// be answered within LinkTimeouts::RateProof. When it is not, the host goes back to the
// package's rate, waits until the instrument has gone back on its own
// (LinkTimeouts::RateFallbackWait) and asks it again there: a failed switch costs about a
// second and changes nothing else. Destroying it abandons the set-up: nothing more is sent.
#include "link/InstrumentAbilities.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <optional>
#include <vector>

class Link;
class Transport;

class LineRateSwitch : public QObject {
    Q_OBJECT
public:
    // highestRate: the fastest rate the user allows; at or below the package's, none is tried.
    LineRateSwitch(Link &link, Transport &transport, int highestRate, QObject *parent = nullptr);

    // Sends the question; exactly one of finished or failed follows, from the event loop.
    void start();

signals:
    // What the instrument can do, and the line's rate from now on (0 for a transport without
    // a rate of its own); note says why it is not faster ("" when there is nothing to say).
    void finished(const InstrumentAbilities &abilities, int rate, const QString &note);
    void failed(const QString &reason);

private:
    enum class Step { Abilities, Switch, Proof, WayBack, Confirm };

    void ask(Step step, uint8_t type, const QByteArray &payload);
    void onReplied(uint8_t sequence, const QByteArray &payload);
    void onAbilities(const QByteArray &payload);
    // The rates to propose, fastest first; note says why there are none.
    std::vector<int> candidates(QString &note);
    void proposeNext(const QString &noteWhenNone);
    void onSwitchAnswer(const QByteArray &payload);
    void onTimeout();
    // Back to the package's rate, and asks there once the instrument has gone back too.
    void goBack(const QString &why);
    void finish(int rate, const QString &note);

    Link &m_link;
    Transport &m_transport;
    int m_highestRate;
    int m_packageRate = 0;
    InstrumentAbilities m_abilities;
    std::vector<int> m_candidates; // fastest first; the front is the one proposed
    std::vector<int> m_declined;   // by the instrument, fastest first
    std::optional<uint8_t> m_waitingFor;
    Step m_step = Step::Abilities;
    QTimer m_timer; // the proof's time, then the instrument's way back (WayBack)
    QElapsedTimer m_sinceSwitch;
    QString m_wayBackReason; // why the line went back to the package's rate
};
