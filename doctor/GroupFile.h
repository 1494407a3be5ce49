#pragma once
// The system's group file (name:password:gid:members), as the doctor needs it: a group's
// name, and whether a user is listed in it.
#include <QList>
#include <QString>
#include <QStringList>

class GroupFile {
public:
    // An unreadable file reads as empty.
    static GroupFile read(const QString &path);

    // The group's name; the number itself when the file does not name it.
    QString nameOf(unsigned gid) const;
    bool lists(const QString &group, const QString &user) const;

private:
    struct Entry {
        QString name;
        unsigned gid = 0;
        QStringList members;
    };
    QList<Entry> m_entries;
};
