#include "config/ConfigurationReader.h"

#include "config/ErrorCodes.h"
#include "config/ProfileReader.h"
#include "config/QX_Error.h"
#include "config/TextFormat.h"

namespace {
const QString Missing = QStringLiteral("NA");
constexpr int ValueBufferSize = 150; // the platform reader's buffer: 149 characters and a NUL
}

QString ConfigurationReader::ReadConfigValue(const QString &section, const QString &key) const
{
    const QString delivered = ProfileReader::readString(m_file, section, key, Missing, ValueBufferSize);
    if (!delivered.isEmpty()) {
        const QString value = delivered.section(QLatin1Char(';'), 0, 0);
        if (value != Missing)
            return value.trimmed();
    }
    m_errors.SetLastError(ErrorCode::KeyNotFound);
    m_errors.SetLastErrorString(TextFormat::CrLf + QStringLiteral(" File:") + m_file + TextFormat::CrLf
                                + QStringLiteral(" Section:") + TextFormat::CrLf + section
                                + QStringLiteral(" Key:") + key);
    return delivered.isEmpty() ? Missing : QString();
}
