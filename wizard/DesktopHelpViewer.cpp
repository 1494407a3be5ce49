#include "wizard/DesktopHelpViewer.h"

#include <QDesktopServices>
#include <QUrl>

void DesktopHelpViewer::open(const QString &path, const QString &anchor)
{
    QUrl url = QUrl::fromLocalFile(path);
    url.setFragment(anchor);
    QDesktopServices::openUrl(url);
}

void DesktopHelpViewer::close(const QString &)
{
}
