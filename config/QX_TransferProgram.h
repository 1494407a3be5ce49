#pragma once
// The transfer program: the small program loaded into the instrument's RAM first. Value:
// file, load address, start address. Its file must be a member of the package.
#include "config/LastErrorOwner.h"

class Package;

class QX_TransferProgram : public LastErrorOwner {
public:
    // The file must be a member of package.
    bool Init(const QString &sInitString, const QString &sSrcPath, const Package &package);

    QString Filename() const { return m_filename; }
    // Checks that the file is a member of package and takes its length from there.
    void setFilename(const QString &sValue, const Package &package);
    int32_t LoadAddress() const { return m_loadAddress; }
    void setLoadAddress(int32_t value);
    int32_t EndAddress() const { return m_endAddress; }
    int32_t Length() const { return m_length; }
    int32_t ExecAddress() const { return m_execAddress; }
    void setExecAddress(int32_t value) { m_execAddress = value; }
    bool Validate() const { return m_validate; }

private:
    QString m_filename;
    int32_t m_loadAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
    int32_t m_execAddress = 0;
    bool m_validate = false;
    bool m_fileFound = false;
};
