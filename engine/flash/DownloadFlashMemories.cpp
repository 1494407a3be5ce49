// Reading the configured memory ranges back into files on the host, before anything is
// erased. Each file is written beside its final name and put in place only when its range
// was read completely (and, where the transfer program answers range checksums, matches the
// instrument's CRC-32 of the range), then flushed to disk: after the erase it may be the only
// copy of the instrument's calibration data, and a failed read never destroys an earlier copy.
#include "engine/QX_UploadProcess.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "config/TextFormat.h"
#include "engine/Crc32.h"
#include "engine/Timeouts.h"

#include "config/UpdateJournal.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <array>
#include <memory>
#include <fcntl.h>
#include <unistd.h>

using TextFormat::dec;
using TextFormat::hex;

namespace {
constexpr int ReadBufferBytes = 4001; // the largest block (4000) and one spare byte

// Makes the rename of a file durable: the folder's entry must reach the disk too.
void syncFolderOf(const QString &path)
{
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    const int fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}
} // namespace

bool QX_UploadProcess::DownloadFlashMemories()
{
    std::array<uint8_t, ReadBufferBytes> buffer{};
    AnimateReverse = true;
    AddLogLine(QStringLiteral("Download Flash Memories Started"));
    bool result = true;
    for (const QX_Download &entry : Downloads) {
        if (!readBackEntry(entry, buffer.data()))
            return false;
        if (CancelRequested) {
            result = false;
            break;
        }
    }
    AddLogLine(QStringLiteral("Download Flash Memories Completed"));
    AnimateReverse = false;
    return result;
}

bool QX_UploadProcess::readBackEntry(const QX_Download &entry, uint8_t *buffer)
{
    const QString action = QStringLiteral("Read File = ") + entry.Filename();
    AddLogLine(action);
    if (entry.savedCopy() == QX_Download::SavedCopy::WriteBack)
        return readBesideSavedCopy(entry, action, buffer);
    std::unique_ptr<QSaveFile> file; // each read starts a new one; one not committed is discarded
    const bool read = readChecked(entry, action, buffer, [&]() -> QIODevice * {
        file = std::make_unique<QSaveFile>(entry.Filename());
        if (file->open(QIODevice::WriteOnly))
            return file.get();
        fileFailure(entry.Filename(), file->errorString());
        return nullptr;
    });
    if (!read)
        return false;
    if (CancelRequested)
        return true; // the caller ends the pass; the earlier file stays untouched
    if (entry.savedCopy() == QX_Download::SavedCopy::SetAside) {
        const QString aside = UpdateJournal::freeName(entry.Filename(), QStringLiteral(".interrupted-"));
        if (!QFile::rename(entry.Filename(), aside))
            return fileFailure(entry.Filename(), QStringLiteral("it cannot be set aside as ") + aside);
        m_notices << QStringLiteral("%1, saved by an update that was cut short, is kept as %2").arg(entry.Filename(), aside);
    }
    if (!file->commit())
        return fileFailure(entry.Filename(), file->errorString());
    syncFolderOf(entry.Filename());
    return true;
}

bool QX_UploadProcess::readBesideSavedCopy(const QX_Download &entry, const QString &action, uint8_t *buffer)
{
    // The same instrument, cut short after its erase began: the copy saved then is the one that
    // goes back. What the instrument holds now is kept too, when it is something else.
    QBuffer now;
    const bool read = readChecked(entry, action, buffer, [&]() -> QIODevice * {
        now.close();
        now.setData(QByteArray());
        now.open(QIODevice::WriteOnly);
        return &now;
    });
    if (!read || CancelRequested)
        return read;
    QFile saved(entry.Filename());
    if (saved.open(QIODevice::ReadOnly) && saved.readAll() == now.data())
        return true;
    const QString found = UpdateJournal::freeName(entry.Filename(), QStringLiteral(".found-"));
    QSaveFile beside(found);
    if (!beside.open(QIODevice::WriteOnly) || beside.write(now.data()) != now.data().size() || !beside.commit())
        return fileFailure(found, beside.errorString());
    syncFolderOf(found);
    m_notices << QStringLiteral("%1, saved by an update that was cut short, is written back; what the instrument held is in %2")
                     .arg(entry.Filename(), found);
    return true;
}

bool QX_UploadProcess::readChecked(const QX_Download &entry, const QString &action, uint8_t *buffer,
                                   const std::function<QIODevice *()> &freshOutput)
{
    // Where the transfer program answers range checksums, the range is read until what
    // arrived is what the flash holds: the file may be the only copy of the calibration data
    // once the erase begins.
    const bool verified = AppLayer->OffersRangeCrc();
    for (int read = 1;; ++read) {
        QIODevice *out = freshOutput();
        if (!out)
            return false;
        Crc32 received;
        if (!readRange(entry, action, *out, buffer, received))
            return false;
        if (CancelRequested || !verified)
            return true;
        if (!request([&](ApplicationLayer &layer) {
                layer.RequestRangeCrc(static_cast<uint8_t>(ArchitectureIndex), entry.StartAddress(), entry.Length());
            })) {
            AddLogLine(QStringLiteral("Read ERROR"));
            return false;
        }
        if (TargetRangeCrc == received.value())
            return true;
        if (read <= Timeouts::ReadBackRereads) {
            ++m_readBackRereads;
            continue;
        }
        AddLogLine(QStringLiteral("Read Verify ERROR"));
        fail(ErrorCode::ReadBackUnverified,
             QStringLiteral(" %1: the %2 bytes at H%3, read %4 times, never matched the instrument's CRC-32 H%5 "
                            "(the last read gave H%6); nothing was erased, check the cable and run the update again")
                 .arg(entry.Filename(), dec(entry.Length()), hex(entry.StartAddress()), dec(read),
                      hex(int32_t(TargetRangeCrc)), hex(int32_t(received.value()))));
        return false;
    }
}

bool QX_UploadProcess::fileFailure(const QString &path, const QString &why)
{
    fail(ErrorCode::UploadEntryInvalid, QLatin1Char(' ') + path + QStringLiteral(": ") + why);
    return false;
}

bool QX_UploadProcess::readRange(const QX_Download &entry, const QString &action, QIODevice &out, uint8_t *buffer, Crc32 &crc)
{
    int16_t lastPercent = 0;
    ShowAction(action, lastPercent);
    const auto componentFailure = [&](int16_t code) {
        QString text;
        AppLayer->GetErrorText(text);
        fail(ErrorCode::CommunicationsLayer, dec(code) + QLatin1Char(' ') + text);
        return false;
    };
    int32_t received = 0;
    int emptyReads = 0;
    AppLayer->AnnounceRange(entry.StartAddress(), entry.Length());
    do {
        const int32_t n = (MaxProgLen + received >= entry.Length()) ? entry.Length() - received : MaxProgLen;
        if (n > 0) {
            const int32_t address = EntryFields::endOf(entry.StartAddress(), received);
            if (!request([&](ApplicationLayer &layer) {
                    layer.ReadMemory(static_cast<uint8_t>(ArchitectureIndex), address, n);
                })) {
                AddLogLine(QStringLiteral("Read ERROR"));
                return false;
            }
            int32_t delivered = 0;
            int16_t code = 0;
            AppLayer->GetReadLength(delivered);
            AppLayer->GetErrorCode(code);
            if (code != 0)
                return componentFailure(code);
            if (delivered < 0 || delivered > n) {
                // More than was asked for would not fit the buffer: the answer cannot be trusted.
                fail(ErrorCode::CommunicationsLayer, QStringLiteral("0 The instrument delivered ") + dec(delivered) + QStringLiteral(" bytes at address H")
                                    + hex(address) + QStringLiteral(" where at most ") + dec(n) + QStringLiteral(" were asked for"));
                return false;
            }
            AppLayer->GetReadData(buffer);
            AppLayer->GetErrorCode(code);
            if (code != 0)
                return componentFailure(code);
            if (delivered == 0 && ++emptyReads >= Timeouts::EmptyReadAttempts) {
                fail(ErrorCode::CommunicationsLayer, QStringLiteral("0 The instrument delivered no data at address H") + hex(address)
                                    + QStringLiteral(" (") + dec(emptyReads) + QStringLiteral(" attempts)"));
                return false;
            }
            if (delivered > 0)
                emptyReads = 0;
            if (out.write(reinterpret_cast<const char *>(buffer), delivered) != delivered)
                return fileFailure(entry.Filename(), out.errorString());
            crc.add(buffer, delivered);
            ++ProgressCount;
            UpdateEntireProgress();
            received += delivered;
        }
        animateOnTick();
        int16_t percent = TextFormat::actionPercent(received, entry.Length());
        if (percent > lastPercent) {
            lastPercent = percent;
            ShowAction(action, percent);
        }
    } while (received < entry.Length() && !CancelRequested);
    return true;
}
