#include "doctor/GroupFile.h"

#include <QFile>

namespace {
// name:password:gid:member,member
constexpr int Fields = 4;
}

GroupFile GroupFile::read(const QString &path)
{
    GroupFile file;
    QFile source(path);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Text))
        return file;
    for (const QByteArray &line : source.readAll().split('\n')) {
        const QStringList fields = QString::fromLocal8Bit(line).trimmed().split(QLatin1Char(':'));
        bool numeric = false;
        const unsigned gid = fields.value(2).toUInt(&numeric);
        if (fields.size() != Fields || !numeric)
            continue;
        file.m_entries.append({fields[0], gid, fields[3].split(QLatin1Char(','), Qt::SkipEmptyParts)});
    }
    return file;
}

QString GroupFile::nameOf(unsigned gid) const
{
    for (const Entry &entry : m_entries)
        if (entry.gid == gid)
            return entry.name;
    return QString::number(gid);
}

bool GroupFile::lists(const QString &group, const QString &user) const
{
    for (const Entry &entry : m_entries)
        if (entry.name == group && entry.members.contains(user))
            return true;
    return false;
}
