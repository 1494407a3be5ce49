#pragma once
// The Settings step's text: how to connect and power up the instrument and, in the
// advanced display, every setting and entry with its addresses in hexadecimal.
#include <QStringList>

struct PackageConfiguration;
class QX_Error;

class ConfigurationSummary {
public:
    // The pieces in display order. With the plain instruction (no per-port key in the
    // configuration) the holder's code is cleared, its text kept.
    static QStringList pieces(const PackageConfiguration &config, bool withSettings, QX_Error &errors);

private:
    static QStringList settingsPieces(const PackageConfiguration &config);
};
