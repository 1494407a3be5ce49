#pragma once
// Opens the help document in the desktop's viewer (the default browser for HTML). The
// desktop offers no way to close a document shown by another program, so close() can only
// forget it; the viewer stays open for the user to close.
#include "wizard/HelpViewer.h"

class DesktopHelpViewer : public HelpViewer {
public:
    bool open(const QString &path, const QString &anchor) override;
    void close(const QString &path) override;
};
