// The images of the entries that write back a read-back file (calibration data, say): the
// file as this run saved it, read whole after the read-back and before the erase. What cannot
// be written back stops the run while the instrument still holds the data.
#include "engine/QX_UploadProcess.h"

#include "config/ErrorCodes.h"
#include "config/TextFormat.h"

#include <QFile>

using TextFormat::dec;
using TextFormat::hex;

bool QX_UploadProcess::loadWriteBackImages()
{
    m_writeBackImages.clear();
    for (const QX_Program &entry : Programs) {
        const QString path = entry.WriteBackFile();
        if (path.isEmpty())
            continue;
        const auto refuse = [&](const QString &why) {
            fail(ErrorCode::ProgramEntryInvalid, QLatin1Char(' ') + entry.Filename() + QStringLiteral(": ") + why
                                                     + QStringLiteral("; nothing was erased"));
            return false;
        };
        if (!memoryHolding(entry.LoadAddress(), entry.EndAddress()))
            return refuse(QStringLiteral("the range H%1 to H%2 lies in no flash memory")
                              .arg(hex(entry.LoadAddress()), hex(entry.EndAddress())));
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return refuse(QStringLiteral("its read-back file %1 cannot be read (%2)").arg(path, file.errorString()));
        const QByteArray image = file.read(qint64(entry.Length()) + 1); // one more shows a longer file
        if (image.size() > entry.Length())
            return refuse(QStringLiteral("its read-back file %1 holds more than the %2 bytes read back")
                              .arg(path, dec(entry.Length())));
        if (image.size() < entry.Length())
            return refuse(QStringLiteral("its read-back file %1 holds %2 of the %3 bytes read back")
                              .arg(path, dec(image.size()), dec(entry.Length())));
        m_writeBackImages.insert(path, image);
    }
    return true;
}
