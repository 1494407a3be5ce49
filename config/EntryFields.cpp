#include "config/EntryFields.h"

#include "config/NumberText.h"

EntryFields::EntryFields(const QString &sInitString)
{
    for (const QString &field : sInitString.split(QLatin1Char(',')))
        m_fields << field.trimmed();
}

std::optional<int32_t> EntryFields::number(int index) const
{
    return NumberText::fieldToInt32(m_fields.at(index));
}

QString EntryFields::resolveFileName(const QString &field, const QString &sSrcPath)
{
    if (field.contains(QLatin1Char(':')) || field.startsWith(QLatin1Char('\\')))
        return field;
    return sSrcPath.trimmed() + field;
}

int32_t EntryFields::endOf(int32_t start, int32_t length)
{
    return static_cast<int32_t>(static_cast<uint32_t>(start) + static_cast<uint32_t>(length));
}
