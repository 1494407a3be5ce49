#pragma once
// The simulated instrument's line rate, as its transfer program keeps it: the package's rate
// (its power-on rate) until a SwitchRate, and back to it on its own, as docs/protocol.md
// describes, after LinkTimeouts::RateFallback without an intact frame since the switch, since
// a Restart, or since a byte came after the last intact frame (a host speaking at another
// rate). A failed switch therefore never leaves the instrument deaf to the package's rate.
#include <QObject>
#include <QTimer>

class UartRate : public QObject {
    Q_OBJECT
public:
    // packageRate: the rate at power-on; highestRate: the fastest its UART takes.
    UartRate(int packageRate, int highestRate, QObject *parent = nullptr);

    int rate() const { return m_rate; }
    int highestRate() const { return m_highestRate; }
    // Whether the UART can be set to rate: the package's, or one of Protocol::SwitchRates up
    // to the highest.
    bool takes(int rate) const;
    // Switches, once the answer that agreed to it has left (the caller sends it first).
    void switchTo(int rate);
    // Restart answered: the boot ROM runs at the package's rate once the host is done with
    // the answer (one sent again is answered at the rate it came at).
    void restarted();
    // Bytes came in; intact: with an intact frame among them.
    void heard(bool intact);

signals:
    // The rate of what is sent and heard from now on.
    void changed(int rate);

private:
    void set(int rate);
    bool switched() const { return m_rate != m_packageRate; }

    const int m_packageRate;
    const int m_highestRate;
    int m_rate;
    QTimer m_fallback;
};
