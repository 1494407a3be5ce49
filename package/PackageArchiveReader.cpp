#include "package/PackageArchiveReader.h"

#include "package/ZipArchive.h"

PackageArchiveReader &PackageArchiveReader::instance()
{
    static PackageArchiveReader reader;
    return reader;
}

void PackageArchiveReader::reset()
{
    m_archivePath.clear();
    m_memberName.clear();
}

int32_t PackageArchiveReader::countMatching() const
{
    // A member we refuse to read counts as absent, so that nobody loops on a size it cannot get.
    const ZipArchive archive(m_archivePath);
    const auto index = archive.find(m_memberName);
    return index && archive.sizeOf(*index) ? 1 : 0;
}

int32_t PackageArchiveReader::memberSize() const
{
    const ZipArchive archive(m_archivePath);
    const auto index = archive.find(m_memberName);
    const auto size = index ? archive.sizeOf(*index) : std::nullopt;
    return size ? static_cast<int32_t>(*size) : 0;
}

int32_t PackageArchiveReader::commentSize() const
{
    return static_cast<int32_t>(ZipArchive(m_archivePath).comment().size());
}

QString PackageArchiveReader::comment() const
{
    return QString::fromLatin1(ZipArchive(m_archivePath).comment());
}

QString PackageArchiveReader::extractText(int32_t offset, int32_t capacity, int32_t &delivered) const
{
    delivered = 0;
    QByteArray bytes;
    if (offset < 0 || capacity <= 0 || !extractBytes(bytes) || offset >= bytes.size())
        return QString();
    const QByteArray piece = bytes.mid(offset, capacity);
    delivered = static_cast<int32_t>(piece.size());
    return QString::fromLatin1(piece);
}

bool PackageArchiveReader::extractBytes(QByteArray &bytes) const
{
    const ZipArchive archive(m_archivePath);
    const auto index = archive.find(m_memberName);
    const auto read = index ? archive.read(*index) : std::nullopt;
    if (!read)
        return false;
    bytes = *read;
    return true;
}

QList<QPair<QString, int64_t>> PackageArchiveReader::members() const
{
    return ZipArchive(m_archivePath).members();
}
