#pragma once
// Shows the help document. The wizard opens it at its contents and, at exit, asks for it
// to be closed again if it was opened.
#include <QString>

class HelpViewer {
public:
    virtual ~HelpViewer() = default;
    // False when nothing could show it.
    virtual bool open(const QString &path, const QString &anchor) = 0;
    virtual void close(const QString &path) = 0;
};
