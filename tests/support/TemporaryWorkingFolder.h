#pragma once
// A fresh folder that is the process's current folder, the working folder of a run, for the
// life of the object.
#include <QDir>
#include <QTemporaryDir>

struct TemporaryWorkingFolder {
    QTemporaryDir dir;
    QString previous = QDir::currentPath();

    TemporaryWorkingFolder() { QDir::setCurrent(dir.path()); }
    ~TemporaryWorkingFolder() { QDir::setCurrent(previous); }
    TemporaryWorkingFolder(const TemporaryWorkingFolder &) = delete;
    TemporaryWorkingFolder &operator=(const TemporaryWorkingFolder &) = delete;

    QString filePath(const QString &name) const { return dir.filePath(name); }
};
