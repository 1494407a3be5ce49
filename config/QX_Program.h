#pragma once
// One image to program. Value: load address, file. The file must be a member of the
// package, unless the validation gives the entry the length of a read-back file of the
// same name (an image saved from the instrument and written back).
#include "config/LastErrorOwner.h"

class Package;

class QX_Program : public LastErrorOwner {
public:
    bool Validate() const { return m_validate; }
    // The file must be a member of package.
    bool Init(const QString &sInitString, const QString &sSrcPath, const Package &package);

    QString Filename() const { return m_filename; }
    // Checks that the file is a member of package and takes its length from there.
    void setFilename(const QString &sValue, const Package &package);
    int32_t LoadAddress() const { return m_loadAddress; }
    void setLoadAddress(int32_t value) { m_loadAddress = value; }
    int32_t EndAddress() const { return m_endAddress; }
    int32_t Length() const { return m_length; }
    // Stores the length, sets the end again and makes the entry valid.
    void setLength(int32_t value);

private:
    QString m_filename;
    int32_t m_loadAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
    bool m_validate = false;
};
