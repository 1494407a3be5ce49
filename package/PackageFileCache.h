#pragma once
// The one member of the selected package kept in memory, so that a file programmed block by
// block is extracted once and then served in slices.
#include <QByteArray>
#include <QString>
#include <cstdint>

class PackageFileCache {
public:
    static PackageFileCache &instance();

    // Makes the cache hold member name of package; extracts only when it holds another.
    void hold(const QString &package, const QString &name);
    // Copies up to count bytes from offset to buffer; the bytes copied.
    int32_t copy(uint8_t *buffer, int32_t count, int32_t offset) const;
    void clear();
    int64_t fills() const { return m_fills; }

private:
    bool m_filled = false;
    QString m_package;
    QString m_name;
    QByteArray m_bytes;
    int64_t m_fills = 0;
};
