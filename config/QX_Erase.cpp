#include "config/QX_Erase.h"

#include "config/EntryFields.h"

bool QX_Erase::Init(const QString &sInitString)
{
    const EntryFields fields(sInitString);
    return fields.takeNumber(0, [this](int32_t v) { setEraseAddress(v); })
           && fields.takeNumber(1, [this](int32_t v) { setLength(v); });
}

void QX_Erase::setLength(int32_t value)
{
    m_length = value;
    m_endAddress = EntryFields::endOf(m_eraseAddress, m_length);
}
