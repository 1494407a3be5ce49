#pragma once
// One flash range to erase. Value: address, length.
#include "config/LastErrorOwner.h"

class QX_Erase : public LastErrorOwner {
public:
    bool Init(const QString &sInitString);

    int32_t EraseAddress() const { return m_eraseAddress; }
    void setEraseAddress(int32_t value) { m_eraseAddress = value; }
    int32_t EndAddress() const { return m_endAddress; }
    void setLength(int32_t value);
    int32_t Length() const { return m_length; }

private:
    int32_t m_eraseAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
};
