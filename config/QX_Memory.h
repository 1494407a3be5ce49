#pragma once
// One flash memory of the instrument. Value: start address, length, chip name.
#include "config/LastErrorOwner.h"

class QX_Memory : public LastErrorOwner {
public:
    bool Init(const QString &sInitString);

    int32_t FlashnameIndex() const { return m_flashnameIndex; }
    QString Flashname() const { return m_flashname; }
    void setFlashname(const QString &sValue);
    int32_t StartAddress() const { return m_startAddress; }
    void setStartAddress(int32_t value) { m_startAddress = value; }
    int32_t EndAddress() const { return m_endAddress; }
    void setLength(int32_t value);
    bool Validate() const { return m_validate; }
    int32_t Length() const { return m_length; }

private:
    QString m_flashname;
    int32_t m_flashnameIndex = 0;
    int32_t m_startAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
    bool m_validate = false;
};
