#pragma once
// The one archive reader that every part of the program shares. Callers reset it, name the
// archive and the member, and then ask: how many members match, the member's size, the
// archive comment, or a piece of the member as text. A file that cannot be read as a zip
// archive behaves like an archive without the member. Member names match exactly.
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <cstdint>

class PackageArchiveReader {
public:
    static PackageArchiveReader &instance();

    void reset();
    void setArchivePath(const QString &path) { m_archivePath = path; }
    void setMemberName(const QString &name) { m_memberName = name; }

    int32_t countMatching() const;
    int32_t memberSize() const;
    int32_t commentSize() const;
    QString comment() const;
    // Up to capacity bytes of the member from offset, one character per byte (Latin-1);
    // delivered is the number of bytes, 0 past the end or when the member cannot be read.
    QString extractText(int32_t offset, int32_t capacity, int32_t &delivered) const;
    // Every member of the archive with its size (an empty list for a file that is no archive).
    QList<QPair<QString, int64_t>> members() const;
    // The whole member; false when it is missing, refused or damaged.
    bool extractBytes(QByteArray &bytes) const;

private:
    QString m_archivePath;
    QString m_memberName;
};
