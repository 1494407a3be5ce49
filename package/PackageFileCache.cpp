#include "package/PackageFileCache.h"

#include "package/PackageArchiveReader.h"

#include <cstring>

PackageFileCache &PackageFileCache::instance()
{
    static PackageFileCache cache;
    return cache;
}

void PackageFileCache::hold(const QString &package, const QString &name)
{
    if (m_filled && m_name == name && m_package == package)
        return;
    PackageArchiveReader &reader = PackageArchiveReader::instance();
    reader.reset();
    reader.setArchivePath(package);
    reader.setMemberName(name);
    m_bytes.clear();
    if (!reader.extractBytes(m_bytes))
        m_bytes.clear(); // missing or unreadable: an empty member that delivers nothing
    m_package = package;
    m_name = name;
    m_filled = true;
    ++m_fills;
}

int32_t PackageFileCache::copy(uint8_t *buffer, int32_t count, int32_t offset) const
{
    const int64_t size = m_bytes.size();
    if (offset < 0 || count <= 0 || offset >= size)
        return 0;
    const int64_t n = std::min<int64_t>(count, size - offset);
    std::memcpy(buffer, m_bytes.constData() + offset, static_cast<size_t>(n));
    return static_cast<int32_t>(n);
}

void PackageFileCache::clear()
{
    m_filled = false;
    m_bytes.clear();
    m_name.clear();
    m_package.clear();
}
