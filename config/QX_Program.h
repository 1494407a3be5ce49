#pragma once
// One image to program. Value: load address, file. The file must be a member of the
// package, unless it is named like a read-back file: then the entry writes back what the run
// reads into that file (the validation makes it so).
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
    // The read-back file whose bytes this entry writes back; "" for an image of the package.
    QString WriteBackFile() const { return m_writeBackFile; }
    // Makes the entry write back readBackFile, length bytes read back in the same run.
    void setWriteBack(const QString &readBackFile, int32_t length);
    // An entry that writes the length bytes of file back at address.
    static QX_Program writingBack(const QString &file, int32_t address, int32_t length);

private:
    QString m_filename;
    QString m_writeBackFile;
    int32_t m_loadAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
    bool m_validate = false;
};
