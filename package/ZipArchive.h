#pragma once
// One open zip archive, read-only, closed when the object goes. A file that is missing, not
// a zip archive or damaged opens as an archive without members.
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <cstdint>
#include <optional>

struct zip;

class ZipArchive {
public:
    explicit ZipArchive(const QString &path);
    ~ZipArchive();
    ZipArchive(const ZipArchive &) = delete;
    ZipArchive &operator=(const ZipArchive &) = delete;

    QByteArray comment() const;
    // The index of the member named exactly name, or nullopt.
    std::optional<int64_t> find(const QString &name) const;
    // The member's uncompressed size; nullopt when unknown or above the largest member we accept.
    std::optional<int64_t> sizeOf(int64_t index) const;
    // Every member's name and uncompressed size, in archive order.
    QList<QPair<QString, int64_t>> members() const;
    // The whole member, or nullopt when it cannot be read completely and intact.
    std::optional<QByteArray> read(int64_t index) const;

    // Members above this are refused: firmware images are a few MiB, and a forged size in a
    // header must not make us allocate gigabytes.
    static constexpr int64_t LargestMember = 256LL * 1024 * 1024;

private:
    zip *m_zip = nullptr;
};
