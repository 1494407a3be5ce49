#include "config/QX_Memory.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "config/FlashTable.h"

bool QX_Memory::Init(const QString &sInitString)
{
    const EntryFields fields(sInitString);
    return fields.takeNumber(0, [this](int32_t v) { setStartAddress(v); })
           && fields.takeNumber(1, [this](int32_t v) { setLength(v); })
           && fields.takeText(2, [this](const QString &name) { setFlashname(name); });
}

void QX_Memory::setFlashname(const QString &sValue)
{
    m_flashname = sValue;
    m_validate = true;
    m_flashnameIndex = FlashTable::indexOf(sValue);
    if (m_flashnameIndex == 0) {
        m_validate = false;
        fail(ErrorCode::FlashNameInvalid, QLatin1Char(' ') + sValue);
    }
}

void QX_Memory::setLength(int32_t value)
{
    m_length = value;
    m_endAddress = EntryFields::endOf(m_startAddress, m_length);
}
