#pragma once
// Reads one value of the temporary configuration copy: an inline ";" comment is cut off,
// blanks removed. A missing key, or the value "NA", records code 6 in the holder with a
// text naming file, section and key.
#include <QString>

class QX_Error;

class ConfigurationReader {
public:
    ConfigurationReader(const QString &configFile, QX_Error &errors) : m_file(configFile), m_errors(errors) {}

    // The value, or "" when the key is missing or "NA", or "NA" when the key is present
    // with nothing after "=" (which the numbered lists depend on).
    QString ReadConfigValue(const QString &section, const QString &key) const;

private:
    QString m_file;
    QX_Error &m_errors;
};
