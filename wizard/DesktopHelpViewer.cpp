#include "wizard/DesktopHelpViewer.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

bool DesktopHelpViewer::open(const QString &path, const QString &anchor)
{
    if (!QFileInfo::exists(path))
        return false;
    QUrl url = QUrl::fromLocalFile(path);
    url.setFragment(anchor);
    return QDesktopServices::openUrl(url);
}

void DesktopHelpViewer::close(const QString &)
{
}
