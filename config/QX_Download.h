#pragma once
// One memory range to read back into a file on the host. Value: start address, length,
// file. Validate prepares the file: it refuses one outside the working folder and asks before
// an existing file is overwritten.
#include "config/LastErrorOwner.h"

class UpdateJournal;
class UserPrompt;

class QX_Download : public LastErrorOwner {
public:
    bool Init(const QString &sInitString, const QString &sSrcPath);

    QString Filename() const { return m_filename; }
    void setFilename(const QString &sValue) { m_filename = sValue.trimmed(); }
    int32_t StartAddress() const { return m_startAddress; }
    void setStartAddress(int32_t value) { m_startAddress = value; }
    int32_t EndAddress() const { return m_endAddress; }
    void setLength(int32_t value);
    int32_t Length() const { return m_length; }
    // Refuses a file outside the working folder, asks before overwriting an existing file,
    // then makes sure the file can be written (creating it empty when missing). False when
    // the file is refused, the user declines or the file cannot be opened; the entry's
    // holder says which. A file that holds what an update cut short saved (journal) is asked
    // about as such instead.
    bool Validate(UserPrompt &prompt, const UpdateJournal &journal);

    // What becomes of a file that an update cut short saved: None, when it holds no such copy.
    enum class SavedCopy {
        None,
        WriteBack, // the same instrument: the copy stays and is written back; the read goes beside it
        SetAside,  // another instrument: the copy is kept beside, the read replaces it
    };
    SavedCopy savedCopy() const { return m_savedCopy; }
    // The title of the question about such a file.
    static const QString InterruptedTitle;

private:
    QString m_filename;
    int32_t m_startAddress = 0;
    int32_t m_endAddress = 0;
    int32_t m_length = 0;
    SavedCopy m_savedCopy = SavedCopy::None;
};
