#pragma once
// The running processes, from the proc file system: which ones hold a device open (their
// open files are links under PID/fd), and whether a program of a given name runs. A user
// sees only the open files of its own processes; root sees all.
//
// A pseudo-terminal's other end (the process that holds its master, e.g. the simulated
// instrument, which keeps the terminal open as well) is the line, not a program in the way.
#include <QList>
#include <QString>

class ProcessTable {
public:
    struct Process {
        qint64 pid = 0;
        QString name;
    };

    explicit ProcessTable(const QString &procRoot);

    // The processes other than this one that have device open (device: a resolved path).
    QList<Process> holding(const QString &device) const;
    bool isRunning(const QString &name) const;

private:
    QList<Process> processes() const;
    // The pseudo-terminal numbers whose master the process holds.
    QStringList masterIndexes(qint64 pid) const;

    QString m_root;
};
