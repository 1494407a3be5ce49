#pragma once
// Checks a loaded configuration just before a run, for what the load could not check: a
// serial speed that divides 115200, known flash chips, the transfer program and images in
// the package, read-back files that may be written. Every complaint is collected.
#include <QString>

struct PackageConfiguration;
class QX_Error;
class UserPrompt;

class ConfigurationValidator {
public:
    // False when anything is wrong; the holder's text then lists every complaint (its code
    // is left to the caller). Without readBackFiles the read-back files are left alone: a run
    // that reads nothing back neither asks about them nor creates them.
    static bool ValidateConfiguration(PackageConfiguration &config, QX_Error &errors, UserPrompt &prompt,
                                      bool readBackFiles = true);
};
