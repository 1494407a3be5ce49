#pragma once
// The last-error holder: a signed 32-bit code and a free detail text. Setting one never
// touches the other and reading clears nothing. The composed message is the message of the
// code (string id 40000 + code) immediately followed by the stored text.
#include <QString>
#include <cstdint>

class QX_Error {
public:
    void SetLastError(int32_t code) { m_code = code; }
    void SetLastErrorString(const QString &text) { m_text = text; }
    int32_t GetLastError() const { return m_code; }
    QString GetLastErrorString() const;

    // The message of a code alone, without any detail text.
    static QString messageOf(int32_t code);

private:
    int32_t m_code = 0;
    QString m_text;
};
