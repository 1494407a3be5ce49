#pragma once
// The Settings step's text: how to connect and power up the instrument and, in the
// advanced display, every setting and entry with its addresses in hexadecimal, and the
// fastest line rate that will be tried once the transfer program runs.
#include <QStringList>

struct PackageConfiguration;
class QX_Error;

class ConfigurationSummary {
public:
    // The pieces in display order. With the plain instruction (no per-port key in the
    // configuration) the holder's code is cleared, its text kept. highestLineRate: the fastest
    // rate the user allows a serial line.
    static QStringList pieces(const PackageConfiguration &config, bool withSettings, int highestLineRate, QX_Error &errors);

private:
    static QStringList settingsPieces(const PackageConfiguration &config, int highestLineRate);
};
