// Programming each image block by block, each under its own period of programming voltage,
// and comparing the instrument's checksum with the one summed while sending, and then, where
// the transfer program answers it, the instrument's CRC-32 of the image's range with the
// image's: the 8-bit sum misses two bytes swapped, the CRC-32 does not. An image is a
// member of the package, or, for an entry that writes back a read-back file, the bytes read
// back in this run.
#include "engine/QX_UploadProcess.h"

#include "config/EntryFields.h"
#include "config/ErrorCodes.h"
#include "config/TextFormat.h"
#include "engine/Crc32.h"

#include <algorithm>
#include <array>
#include <cstring>

using TextFormat::dec;
using TextFormat::hex;

namespace {
constexpr int BlockBufferBytes = 4001; // the largest block (4000) and one spare byte
} // namespace

bool QX_UploadProcess::ProgramFlashMemories()
{
    std::array<uint8_t, BlockBufferBytes> buffer{};
    bool result = true;
    AddLogLine(QStringLiteral("Program Flash Memories Started"));
    for (const QX_Program &entry : Programs) {
        const QString action = QStringLiteral("Program File = ") + entry.Filename();
        AddLogLine(action);
        int16_t percent = 0;
        ShowAction(action, percent);
        if (!request([](ApplicationLayer &layer) { layer.ProgrammingVoltageOn(); })) {
            AddLogLine(QStringLiteral("Error setting Programming Voltage On"));
            return false;
        }
        AddLogLine(QStringLiteral("Programming Voltage On"));
        if (!memoryHolding(entry.LoadAddress(), entry.EndAddress())) {
            result = false;
            AddLogLine(QStringLiteral("Program Configuration ERROR"));
            break;
        }
        if (!programEntry(entry, buffer.data()))
            return false;
    }
    AddLogLine(QStringLiteral("Program Flash Memories Completed"));
    return result;
}

bool QX_UploadProcess::programEntry(const QX_Program &entry, uint8_t *buffer)
{
    const QString action = QStringLiteral("Program File = ") + entry.Filename();
    const QX_Memory &memory = *memoryHolding(entry.LoadAddress(), entry.EndAddress());
    const int32_t length = imageLength(entry);
    int32_t sent = 0;
    uint32_t hostSum = 0;
    Crc32 hostCrc;
    int32_t blocks = 0; // 32 bits: a large image must not wrap the logged count
    int16_t lastPercent = 0;
    AppLayer->AnnounceRange(entry.LoadAddress(), length);
    do {
        ++blocks;
        const int32_t n = readImage(entry, buffer, MaxProgLen, sent);
        if (n <= 0 && sent < length) {
            // The member cannot be read (damaged archive): stop instead of sending nothing for ever.
            AddLogLine(QStringLiteral("Prog ERROR"));
            fail(ErrorCode::ProgramEntryInvalid, QStringLiteral(" File Not Readable ") + entry.Filename() + QStringLiteral(" at byte ")
                                       + dec(sent));
            return false;
        }
        for (int32_t i = 0; i < n; ++i)
            hostSum += buffer[i];
        if (n > 0)
            hostCrc.add(buffer, n);
        const int32_t address = EntryFields::endOf(entry.LoadAddress(), sent);
        if (n > 0 && !request([&](ApplicationLayer &layer) {
                layer.ProgramBlock(address, static_cast<int16_t>(n), static_cast<uint8_t>(ArchitectureIndex),
                                   static_cast<uint8_t>(memory.FlashnameIndex()), buffer);
            })) {
            AddLogLine(QStringLiteral("Prog ERROR"));
            return false;
        }
        sent += n;
        BytesWritten += n;
        ++ProgressCount;
        UpdateEntireProgress();
        animateOnTick();
        int16_t percent = TextFormat::actionPercent(sent, length);
        if (percent > lastPercent) {
            lastPercent = percent;
            ShowAction(action, percent);
        }
    } while (sent < length && !CancelRequested);

    if (!request([](ApplicationLayer &layer) { layer.ProgrammingVoltageOff(); })) {
        AddLogLine(QStringLiteral("Error setting Programming Voltage Off"));
        return false;
    }
    AddLogLine(QStringLiteral("Programming Voltage Off"));
    AddLogLine(QStringLiteral("Checksum( H") + dec(ArchitectureIndex) + QStringLiteral(" , H") + hex(entry.LoadAddress())
               + QStringLiteral(" , H") + hex(length) + QStringLiteral(" )"));
    if (!request([&](ApplicationLayer &layer) {
            layer.RequestChecksum(static_cast<uint8_t>(ArchitectureIndex), entry.LoadAddress(), length);
        })) {
        AddLogLine(QStringLiteral("Error getting Checksum"));
        return false;
    }
    AddLogLine(QStringLiteral("Checksum, Target = H") + hex(TargetChecksum));
    const int32_t hostChecksum = static_cast<int32_t>(hostSum & 0xFF);
    ImageCheck check{entry.Filename(), entry.LoadAddress(), length, hostChecksum, TargetChecksum, hostCrc.value(), std::nullopt};
    if (hostChecksum != TargetChecksum) {
        m_imageChecks.push_back(check);
        AddLogLine(QStringLiteral("Checksum Error,  Target = H") + hex(TargetChecksum) + QStringLiteral(" Host = H")
                   + hex(hostChecksum));
        return false;
    }
    AddLogLine(QStringLiteral("Checksum Matches, Host = H") + hex(hostChecksum));
    const bool crcMatches = verifyImageCrc(entry, check);
    m_imageChecks.push_back(check);
    if (!crcMatches)
        return false;
    BytesVerified += length;
    AddLogLine(QStringLiteral("Block Count = ") + dec(blocks));
    return true;
}

bool QX_UploadProcess::verifyImageCrc(const QX_Program &entry, ImageCheck &check)
{
    if (!AppLayer->OffersRangeCrc())
        return true;
    if (!request([&](ApplicationLayer &layer) {
            layer.RequestRangeCrc(static_cast<uint8_t>(ArchitectureIndex), check.address, check.length);
        })) {
        AddLogLine(QStringLiteral("Error getting CRC-32"));
        return false;
    }
    check.targetCrc = TargetRangeCrc;
    if (TargetRangeCrc == check.hostCrc)
        return true;
    const QString target = hex(int32_t(TargetRangeCrc));
    const QString host = hex(int32_t(check.hostCrc));
    AddLogLine(QStringLiteral("CRC-32 Error,  Target = H") + target + QStringLiteral(" Host = H") + host);
    fail(ErrorCode::ImageCrcMismatch, QStringLiteral(" %1 at H%2: the instrument's CRC-32 of its %3 bytes is H%4, the image's H%5")
                                          .arg(entry.Filename(), hex(check.address), dec(check.length), target, host));
    return false;
}

int32_t QX_UploadProcess::imageLength(const QX_Program &entry) const
{
    if (entry.WriteBackFile().isEmpty())
        return m_package.PackageFileSize(entry.Filename());
    return static_cast<int32_t>(m_writeBackImages.value(entry.WriteBackFile()).size());
}

int32_t QX_UploadProcess::readImage(const QX_Program &entry, uint8_t *buffer, int32_t count, int32_t offset) const
{
    if (entry.WriteBackFile().isEmpty())
        return m_package.ReadPackageFile(entry.Filename(), buffer, count, offset);
    const QByteArray image = m_writeBackImages.value(entry.WriteBackFile());
    const int32_t n = std::clamp(static_cast<int32_t>(image.size()) - offset, 0, count);
    if (n > 0)
        std::memcpy(buffer, image.constData() + offset, static_cast<size_t>(n));
    return n;
}
