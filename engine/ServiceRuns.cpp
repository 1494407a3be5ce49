// The headless tool's verify, read and restore: the channel, the transfer program and the
// identification of an update, then their own work, then the same shutdown. Verify and read
// write nothing to the instrument; restore erases only the units that the restored data
// touches, after saving them, and writes back around the data what they held.
#include "engine/QX_UploadProcess.h"

#include "config/ConfigurationValidator.h"
#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "config/FlashLayout.h"
#include "config/TextFormat.h"
#include "engine/Crc32.h"

#include <QBuffer>
#include <QFile>
#include <array>

using TextFormat::dec;
using TextFormat::hex;

namespace {
constexpr int BufferBytes = 4001; // the largest block (4000) and one spare byte

// Swaps a configuration list for the length of a scope.
template <typename List> class Swapped {
public:
    Swapped(List &list, List replacement) : m_list(list), m_kept(std::move(list)) { m_list = std::move(replacement); }
    ~Swapped() { m_list = std::move(m_kept); }
    Swapped(const Swapped &) = delete;
    Swapped &operator=(const Swapped &) = delete;

private:
    List &m_list;
    List m_kept;
};
} // namespace

bool QX_UploadProcess::serviceRun(const QString &title, const std::function<bool()> &work)
{
    const int startSecond = wholeSecondOfDay();
    beginRun();
    bool result = false;
    // Nothing is read back into the package's files: they are neither asked about nor created.
    if (!ConfigurationValidator::ValidateConfiguration(*this, holder(), m_prompt, false)) {
        holder().SetLastError(ErrorCode::ValidationFailed);
    } else {
        fail(0, QString());
        int16_t percent = 0;
        ShowAction(title, percent);
        AddLogLine(title.toUpper() + QStringLiteral(" STARTED"));
        m_lastLogLine.clear();
        result = openChannel() && uploadTransferProgram() && identifyFlashMemories() && work();
    }
    if (holder().GetLastError() != 0)
        result = false;
    m_failureLine = result ? QString() : m_lastLogLine;
    finishRun(startSecond, title);
    return result;
}

bool QX_UploadProcess::requestRangeCrc(int32_t address, int32_t length)
{
    if (request([&](ApplicationLayer &layer) { layer.RequestRangeCrc(static_cast<uint8_t>(ArchitectureIndex), address, length); }))
        return true;
    AddLogLine(QStringLiteral("Error getting CRC-32"));
    return false;
}

// --- verify ----------------------------------------------------------------------------

bool QX_UploadProcess::VerifyInstrument()
{
    return serviceRun(QStringLiteral("Verify"), [this] {
        std::array<uint8_t, BufferBytes> buffer{};
        for (const QX_Program &entry : Programs)
            if (!compareImage(entry, buffer.data()))
                return false;
        return true;
    });
}

bool QX_UploadProcess::compareImage(const QX_Program &entry, uint8_t *buffer)
{
    AddLogLine(QStringLiteral("Verify File = ") + entry.Filename());
    ImageComparison comparison{entry.Filename(), entry.LoadAddress(), entry.Length(), QString(), std::nullopt};
    QByteArray image;
    if (entry.WriteBackFile().isEmpty()) {
        image.resize(std::max(imageLength(entry), 0));
        image.resize(std::max(readImage(entry, reinterpret_cast<uint8_t *>(image.data()), int32_t(image.size()), 0), 0));
    } else if (QFile file(entry.WriteBackFile()); file.open(QIODevice::ReadOnly)) {
        image = file.read(qint64(entry.Length()) + 1);
    }
    if (image.size() != entry.Length()) {
        comparison.notCompared = entry.WriteBackFile().isEmpty()
                                     ? QStringLiteral("the image cannot be read from the package")
                                     : QStringLiteral("its read-back file %1 is missing or not %2 bytes long")
                                           .arg(entry.WriteBackFile(), dec(entry.Length()));
        AddLogLine(QStringLiteral("Not Compared, ") + comparison.notCompared);
        m_comparisons.push_back(comparison);
        return true;
    }
    comparison.length = int32_t(image.size());
    int32_t offset = 0;
    int32_t length = comparison.length;
    if (AppLayer->OffersRangeCrc()) {
        // Halve the range that differs until it is one block, then read that block.
        if (!requestRangeCrc(entry.LoadAddress(), length))
            return false;
        bool differs = TargetRangeCrc != Crc32::of(image);
        while (differs && length > MaxProgLen) {
            const int32_t half = length / 2;
            if (!requestRangeCrc(EntryFields::endOf(entry.LoadAddress(), offset), half))
                return false;
            if (TargetRangeCrc != Crc32::of(image.mid(offset, half))) {
                length = half;
            } else {
                offset += half;
                length -= half;
            }
        }
        if (!differs)
            length = 0;
    }
    if (length > 0 && !firstDifferenceIn(entry, image, offset, length, buffer, comparison))
        return false;
    AddLogLine(comparison.firstDifference ? QStringLiteral("Differs at H") + hex(*comparison.firstDifference) : QStringLiteral("Equal"));
    m_comparisons.push_back(comparison);
    return true;
}

bool QX_UploadProcess::firstDifferenceIn(const QX_Program &entry, const QByteArray &image, int32_t offset, int32_t length,
                                         uint8_t *buffer, ImageComparison &comparison)
{
    QX_Download range;
    range.setFilename(entry.Filename());
    range.setStartAddress(EntryFields::endOf(entry.LoadAddress(), offset));
    range.setLength(length);
    QBuffer read;
    read.open(QIODevice::WriteOnly);
    Crc32 unused;
    if (!readRange(range, QStringLiteral("Verify File = ") + entry.Filename(), read, buffer, unused))
        return false;
    const QByteArray flash = read.data();
    for (int32_t i = 0; i < length; ++i) {
        if (i >= flash.size() || flash[i] != image[offset + i]) {
            comparison.firstDifference = EntryFields::endOf(entry.LoadAddress(), offset + i);
            return true;
        }
    }
    // The range's CRC-32 differed where its bytes, read now, do not: report where that range
    // begins rather than call it equal.
    if (AppLayer->OffersRangeCrc())
        comparison.firstDifference = range.StartAddress();
    return true;
}

// --- read --------------------------------------------------------------------------------

bool QX_UploadProcess::ReadInstrument(int32_t start, int32_t length, const QString &file)
{
    return serviceRun(QStringLiteral("Read"), [&] {
        QX_Download range;
        range.setFilename(file);
        range.setStartAddress(start);
        range.setLength(length);
        std::array<uint8_t, BufferBytes> buffer{};
        return readBackEntry(range, buffer.data()) && !CancelRequested;
    });
}

// --- restore -----------------------------------------------------------------------------

bool QX_UploadProcess::RestoreInstrument(const QByteArray &data, const QString &name, int32_t address, const QString &backupFile)
{
    return serviceRun(QStringLiteral("Restore"), [&] { return restore(data, name, address, backupFile); });
}

bool QX_UploadProcess::restore(const QByteArray &data, const QString &name, int32_t address, const QString &backupFile)
{
    const auto length = int32_t(data.size());
    const int32_t end = EntryFields::endOf(address, length);
    AddLogLine(QStringLiteral("Restore File = ") + name + QStringLiteral(" at H") + hex(address));
    const auto refuse = [&](const QString &why) {
        fail(ErrorCode::ProgramEntryInvalid, QStringLiteral(" %1: %2; nothing was erased").arg(name, why));
        return false;
    };
    if (!memoryHolding(address, end))
        return refuse(QStringLiteral("the range H%1 to H%2 lies in no flash memory").arg(hex(address), hex(end)));
    FlashLayout layout;
    for (const QX_Memory &memory : Memories)
        layout.addMemory(memory.StartAddress(), memory.Length(), memory.FlashnameIndex());
    const auto units = layout.unitsTouching(uint32_t(address), uint32_t(length));
    if (!units || units->empty())
        return refuse(QStringLiteral("the flash table does not say which erase units hold H%1 to H%2").arg(hex(address), hex(end)));
    const auto spanStart = int32_t(units->front().address);
    const auto spanLength = int32_t(units->back().end() - units->front().address);
    m_restoredUnits = std::make_pair(spanStart, spanLength);

    // The units as they are, read and checked first: the bytes around the data, and the way
    // back should the restore not get through.
    QX_Download before;
    before.setFilename(backupFile);
    before.setStartAddress(spanStart);
    before.setLength(spanLength);
    std::array<uint8_t, BufferBytes> buffer{};
    if (!readBackEntry(before, buffer.data()) || CancelRequested)
        return false;
    QFile saved(backupFile);
    if (!saved.open(QIODevice::ReadOnly))
        return fileFailure(backupFile, saved.errorString());
    QByteArray merged = saved.readAll();
    if (merged.size() != spanLength)
        return fileFailure(backupFile, QStringLiteral("it no longer holds the %1 bytes read").arg(spanLength));
    merged.replace(address - spanStart, length, data);

    std::vector<QX_Erase> spanErase(1);
    spanErase[0].setEraseAddress(spanStart);
    spanErase[0].setLength(spanLength);
    std::vector<QX_Program> spanProgram;
    spanProgram.push_back(QX_Program::writingBack(name, spanStart, spanLength));
    const Swapped erases(Erases, std::move(spanErase));
    const Swapped programs(Programs, std::move(spanProgram));
    m_writeBackImages = {{name, merged}};
    if (!m_fullUpdate)
        announceFlashPlan();
    m_eraseBegan = true;
    return EraseFlashMemories() && ProgramFlashMemories();
}
