#include "config/QX_Error.h"

#include "resources/StringTable.h"

QString QX_Error::messageOf(int32_t code)
{
    return StringTable::load(StringTable::MessageBase + code);
}

QString QX_Error::GetLastErrorString() const
{
    return messageOf(m_code) + m_text;
}
