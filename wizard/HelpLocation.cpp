#include "wizard/HelpLocation.h"

#include <QDir>
#include <QFileInfo>

namespace HelpLocation {

QString find(const QString &programFolder)
{
    const QDir program(programFolder);
    const QString besideProgram = program.filePath(QLatin1String(FileName));
    const QString installed =
        QDir::cleanPath(program.filePath(QStringLiteral("../share/varnolt/") + QLatin1String(FileName)));
    for (const QString &place : {besideProgram, installed})
        if (QFileInfo::exists(place))
            return place;
    return besideProgram;
}

} // namespace HelpLocation
