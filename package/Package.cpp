#include "package/Package.h"

#include "package/PackageText.h"
#include "package/ZipArchive.h"

#include <QByteArray>
#include <algorithm>
#include <cstring>

// What the copies of one package share: its path and the one member kept in memory.
struct Package::State {
    QString path;
    std::optional<QString> cachedName; // none until the first read
    QByteArray cachedBytes;
    int64_t cacheFills = 0;
};

Package::Package() : Package(QString()) {}

Package::Package(const QString &path) : m_state(std::make_shared<State>())
{
    m_state->path = path;
}

QString Package::path() const
{
    return m_state->path;
}

std::optional<QString> Package::comment() const
{
    const QByteArray text = ZipArchive(m_state->path).comment();
    if (text.isEmpty())
        return std::nullopt;
    return PackageText::decode(text);
}

QList<QPair<QString, int64_t>> Package::members() const
{
    return ZipArchive(m_state->path).members();
}

bool Package::PackageFileExists(const QString &name) const
{
    const ZipArchive archive(m_state->path);
    const std::optional<int64_t> index = archive.find(name);
    return index && archive.sizeOf(*index);
}

int32_t Package::PackageFileSize(const QString &name) const
{
    const ZipArchive archive(m_state->path);
    const std::optional<int64_t> index = archive.find(name);
    const std::optional<int64_t> size = index ? archive.sizeOf(*index) : std::nullopt;
    return size ? static_cast<int32_t>(*size) : 0;
}

int32_t Package::ReadPackageFile(const QString &name, uint8_t *buffer, int32_t count, int32_t offset) const
{
    State &state = *m_state;
    if (state.cachedName != name) {
        state.cachedBytes = readWhole(name).value_or(QByteArray());
        state.cachedName = name;
        ++state.cacheFills;
    }
    const int64_t size = state.cachedBytes.size();
    if (offset < 0 || count <= 0 || offset >= size)
        return 0;
    const int64_t n = std::min<int64_t>(count, size - offset);
    std::memcpy(buffer, state.cachedBytes.constData() + offset, static_cast<size_t>(n));
    return static_cast<int32_t>(n);
}

int64_t Package::cacheFills() const
{
    return m_state->cacheFills;
}

std::optional<QString> Package::readText(const QString &name) const
{
    const std::optional<QByteArray> bytes = readWhole(name);
    if (!bytes)
        return std::nullopt;
    return PackageText::decode(*bytes);
}

std::optional<QString> Package::readTextPrefix(const QString &name, int32_t maxBytes) const
{
    const std::optional<QByteArray> bytes = readWhole(name);
    if (!bytes)
        return std::nullopt;
    return PackageText::decodePrefix(*bytes, maxBytes);
}

std::optional<QByteArray> Package::readPrefix(const QString &name, int32_t maxBytes) const
{
    const std::optional<QByteArray> bytes = readWhole(name);
    if (!bytes)
        return std::nullopt;
    return bytes->left(std::max(maxBytes, 0));
}

std::optional<QByteArray> Package::readWhole(const QString &name) const
{
    const ZipArchive archive(m_state->path);
    const std::optional<int64_t> index = archive.find(name);
    return index ? archive.read(*index) : std::nullopt;
}
