#include "package/PackageAccess.h"

#include "package/PackageArchiveReader.h"
#include "package/PackageFileCache.h"
#include "package/PackagePath.h"

namespace {
PackageArchiveReader &readerOn(const QString &name)
{
    PackageArchiveReader &reader = PackageArchiveReader::instance();
    reader.reset();
    reader.setArchivePath(PackagePath);
    reader.setMemberName(name);
    return reader;
}
} // namespace

void ResetUnzipper()
{
    PackageArchiveReader::instance().reset();
}

bool PackageFileExists(const QString &name)
{
    return readerOn(name).countMatching() != 0;
}

int32_t PackageFileSize(const QString &name)
{
    PackageArchiveReader &reader = readerOn(name);
    return reader.countMatching() != 0 ? reader.memberSize() : 0;
}

int32_t ReadPackageFile(const QString &name, uint8_t *buffer, int32_t count, int32_t offset)
{
    PackageFileCache &cache = PackageFileCache::instance();
    cache.hold(PackagePath, name);
    return cache.copy(buffer, count, offset);
}

std::optional<QString> ReadPackageText(const QString &name)
{
    PackageArchiveReader &reader = readerOn(name);
    if (reader.countMatching() == 0)
        return std::nullopt;
    const int32_t size = reader.memberSize();
    QString text;
    int32_t offset = 0;
    do {
        int32_t delivered = 0;
        text += reader.extractText(offset, TextPieceSize, delivered);
        if (delivered <= 0)
            break; // a damaged member: keep what was read
        offset += delivered;
    } while (offset < size);
    return text;
}

void ClearPackageFileCache()
{
    PackageFileCache::instance().clear();
}

int64_t PackageFileCacheFills()
{
    return PackageFileCache::instance().fills();
}
