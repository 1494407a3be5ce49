#include "config/QX_Program.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "package/Package.h"

bool QX_Program::Init(const QString &sInitString, const QString &sSrcPath, const Package &package)
{
    m_validate = true;
    const EntryFields fields(sInitString);
    return fields.takeNumber(0, [this](int32_t v) { setLoadAddress(v); })
           && fields.takeText(1, [&](const QString &name) { setFilename(EntryFields::resolveFileName(name, sSrcPath), package); });
}

void QX_Program::setFilename(const QString &sValue, const Package &package)
{
    m_filename = sValue.trimmed();
    if (package.PackageFileExists(m_filename)) {
        m_length = package.PackageFileSize(m_filename);
        m_endAddress = EntryFields::endOf(m_loadAddress, m_length);
        if (m_length == 0) {
            // Nothing to program and nothing to verify: an empty member is a broken package.
            m_validate = false;
            fail(ErrorCode::ProgramEntryInvalid, QStringLiteral(" File Is Empty ") + m_filename);
        }
    } else {
        m_validate = false;
        fail(ErrorCode::ProgramEntryInvalid, QStringLiteral(" File Not Found ") + m_filename);
    }
}

void QX_Program::setLength(int32_t value)
{
    m_length = value;
    m_endAddress = EntryFields::endOf(m_loadAddress, m_length);
    m_validate = true;
}

QX_Program QX_Program::writingBack(const QString &file, int32_t address, int32_t length)
{
    QX_Program entry;
    entry.m_filename = file;
    entry.setLoadAddress(address);
    entry.setWriteBack(file, length);
    return entry;
}

void QX_Program::setWriteBack(const QString &readBackFile, int32_t length)
{
    m_writeBackFile = readBackFile;
    setLength(length);
}
