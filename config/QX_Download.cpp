#include "config/QX_Download.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "config/TextFormat.h"
#include "config/UpdateJournal.h"
#include "config/UserPrompt.h"
#include "config/WorkingFolder.h"

#include <QFile>
#include <QFileInfo>

bool QX_Download::Init(const QString &sInitString, const QString &sSrcPath)
{
    const EntryFields fields(sInitString);
    return fields.takeNumber(0, [this](int32_t v) { setStartAddress(v); })
           && fields.takeNumber(1, [this](int32_t v) { setLength(v); })
           && fields.takeText(2, [&](const QString &name) { setFilename(EntryFields::resolveFileName(name, sSrcPath)); });
}

void QX_Download::setLength(int32_t value)
{
    m_length = value;
    m_endAddress = EntryFields::endOf(m_startAddress, m_length);
}

const QString QX_Download::InterruptedTitle = QStringLiteral("Interrupted Update");

bool QX_Download::Validate(UserPrompt &prompt, const UpdateJournal &journal)
{
    m_savedCopy = SavedCopy::None;
    // A package decides where the file goes, but may not leave the working folder.
    if (const QString why = WorkingFolder::refusal(m_filename); !why.isEmpty()) {
        fail(ErrorCode::UploadEntryInvalid, QLatin1Char(' ') + m_filename + QStringLiteral(": ") + why);
        return false;
    }
    // The read-back divides by the length and loops until it is reached.
    if (m_length <= 0) {
        fail(ErrorCode::UploadEntryInvalid, QLatin1Char(' ') + m_filename + QStringLiteral(": the range to read back must be at least 1 byte long"));
        return false;
    }
    if (journal.holdsInterruptedCopy(m_filename)) {
        const QString question = QStringLiteral("The file") + TextFormat::CrLf + m_filename + TextFormat::CrLf
                                 + QStringLiteral("holds what an update that was cut short after it began to erase saved from the "
                                                  "instrument. Is this the same instrument?")
                                 + TextFormat::CrLf
                                 + QStringLiteral("Yes: the saved data stays and is written back; what the instrument holds there now "
                                                  "is kept beside it (.found-N).")
                                 + TextFormat::CrLf
                                 + QStringLiteral("No: it is read from this instrument; the saved file is kept beside it (.interrupted-N).");
        m_savedCopy = prompt.askYesNo(InterruptedTitle, question) ? SavedCopy::WriteBack : SavedCopy::SetAside;
    } else if (QFileInfo::exists(m_filename)) {
        const QString question = QStringLiteral("File Exists ! :") + TextFormat::CrLf + m_filename + TextFormat::CrLf
                                 + QStringLiteral(" Do you want to overwite the file?");
        if (!prompt.askYesNo(QStringLiteral("Download Instrument Memory"), question)) {
            fail(ErrorCode::FilenameInvalid, QLatin1Char(' ') + m_filename);
            return false;
        }
    }
    // Opening for writing without truncation creates a missing file and keeps an existing
    // one intact until the read-back replaces it.
    QFile file(m_filename);
    if (!file.open(QIODevice::ReadWrite)) {
        fail(ErrorCode::UploadEntryInvalid, file.errorString());
        return false;
    }
    return true;
}
