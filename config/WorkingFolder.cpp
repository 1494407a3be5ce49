#include "config/WorkingFolder.h"

#include <QDir>
#include <QFileInfo>

namespace WorkingFolder {
namespace {

constexpr int MostLinksFollowed = 40; // as many as the kernel follows in one path

bool isDriveLetter(const QString &name)
{
    return name.size() >= 2 && name[1] == u':' && name[0].isLetter() && name[0].unicode() < 128;
}

bool hasParentComponent(QString name)
{
    return name.replace(u'\\', u'/').split(u'/').contains(QStringLiteral(".."));
}

// path with every symbolic link on its way followed, as far as the files exist; "" when a
// chain of links does not end.
QString resolved(const QString &path, int linksLeft)
{
    const QFileInfo info(path);
    if (info.exists())
        return info.canonicalFilePath();
    if (info.isSymLink()) // its target is missing: where the file would be created
        return linksLeft > 0 ? resolved(QDir::cleanPath(info.symLinkTarget()), linksLeft - 1) : QString();
    const QString folder = resolved(info.absolutePath(), linksLeft);
    return folder.isEmpty() ? QString() : QDir(folder).filePath(info.fileName());
}

bool liesInside(const QString &path, const QString &folder)
{
    return path.startsWith(folder.endsWith(u'/') ? folder : folder + u'/');
}

QString reason(const QString &name, const QString &folder)
{
    if (folder.isEmpty())
        return QStringLiteral("the folder is gone");
    if (name.startsWith(u'/') || name.startsWith(u'\\'))
        return QStringLiteral("it is an absolute path");
    if (isDriveLetter(name))
        return QStringLiteral("it names a drive");
    if (hasParentComponent(name))
        return QStringLiteral("a \"..\" in it leads out of the folder");
    const QString target = resolved(QDir(folder).absoluteFilePath(name), MostLinksFollowed);
    if (target == folder)
        return QStringLiteral("it names the folder itself");
    if (!liesInside(target, folder))
        return QStringLiteral("a symbolic link on its way leads out of the folder");
    return QString();
}

} // namespace

QString refusal(const QString &name)
{
    const QString folder = QDir::current().canonicalPath();
    const QString why = reason(name, folder);
    return why.isEmpty() ? why : QStringLiteral("the file must lie inside the working folder %1; %2").arg(folder, why);
}

} // namespace WorkingFolder
