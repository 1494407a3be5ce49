#include "config/QX_TransferProgram.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "package/Package.h"

bool QX_TransferProgram::Init(const QString &sInitString, const QString &sSrcPath, const Package &package)
{
    m_validate = true;
    const EntryFields fields(sInitString);
    return fields.takeText(0, [&](const QString &name) { setFilename(EntryFields::resolveFileName(name, sSrcPath), package); })
           && fields.takeNumber(1, [this](int32_t v) { setLoadAddress(v); })
           && fields.takeNumber(2, [this](int32_t v) { setExecAddress(v); });
}

void QX_TransferProgram::setFilename(const QString &sValue, const Package &package)
{
    m_filename = sValue.trimmed();
    m_fileFound = package.PackageFileExists(m_filename);
    if (m_fileFound) {
        m_length = package.PackageFileSize(m_filename);
        if (m_length == 0) {
            m_validate = false;
            fail(ErrorCode::TransferEntryInvalid, QStringLiteral(" File Is Empty ") + m_filename);
        }
    } else {
        m_validate = false;
        fail(ErrorCode::TransferEntryInvalid, QStringLiteral(" File Not Found ") + m_filename);
    }
}

void QX_TransferProgram::setLoadAddress(int32_t value)
{
    m_loadAddress = value;
    // The length is known only when the file was found.
    if (m_fileFound)
        m_endAddress = EntryFields::endOf(m_loadAddress, m_length);
}
