#pragma once
// Writes a firmware package: a zip archive of named members with an archive comment.
// Tests build their packages with it at test time; varnolt-mkpkg builds one from a folder.
#include <QByteArray>
#include <QList>
#include <QString>
#include <utility>

class PackageBuilder {
public:
    void addMember(const QString &name, const QByteArray &data) { m_members.append({name, data}); }
    void setComment(const QString &comment) { m_comment = comment; }
    // Writes the archive to path, replacing a file there. False with a reason in *error.
    bool write(const QString &path, QString *error) const;

    // Packs every regular file of folder (by its file name) into outPath.
    static bool fromFolder(const QString &folder, const QString &outPath, const QString &comment, QString *error);

private:
    QList<std::pair<QString, QByteArray>> m_members;
    QString m_comment;
};
