#include "doctor/ProcessTable.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

namespace {
const QString PtyFolder = QStringLiteral("/dev/pts/");
// What a master's descriptor links to: the multiplexer, or its instance in the pts folder.
const QStringList PtyMultiplexers = {QStringLiteral("/dev/ptmx"), QStringLiteral("/dev/pts/ptmx")};
const QString TtyIndexField = QStringLiteral("tty-index:");
} // namespace

ProcessTable::ProcessTable(const QString &procRoot) : m_root(procRoot)
{
}

QList<ProcessTable::Process> ProcessTable::processes() const
{
    QList<Process> found;
    for (const QString &entry : QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        QFile comm(m_root + QLatin1Char('/') + entry + QStringLiteral("/comm"));
        if (comm.open(QIODevice::ReadOnly)) // a process that ended meanwhile has none
            found.append({pid, QString::fromLocal8Bit(comm.readAll()).trimmed()});
    }
    return found;
}

QList<ProcessTable::Process> ProcessTable::holding(const QString &device) const
{
    const QString ptyIndex = device.startsWith(PtyFolder) ? device.mid(PtyFolder.size()) : QString();
    QList<Process> holders;
    for (const Process &process : processes()) {
        if (process.pid == QCoreApplication::applicationPid())
            continue;
        const QDir descriptors(m_root + QLatin1Char('/') + QString::number(process.pid) + QStringLiteral("/fd"));
        const QFileInfoList open = descriptors.entryInfoList(QDir::System | QDir::Files | QDir::NoDotAndDotDot);
        const bool holds = std::any_of(open.cbegin(), open.cend(),
                                       [&](const QFileInfo &descriptor) { return descriptor.symLinkTarget() == device; });
        if (holds && (ptyIndex.isEmpty() || !masterIndexes(process.pid).contains(ptyIndex)))
            holders.append(process);
    }
    std::sort(holders.begin(), holders.end(), [](const Process &a, const Process &b) { return a.pid < b.pid; });
    return holders;
}

QStringList ProcessTable::masterIndexes(qint64 pid) const
{
    QStringList indexes;
    const QString folder = m_root + QLatin1Char('/') + QString::number(pid);
    for (const QFileInfo &descriptor : QDir(folder + QStringLiteral("/fd")).entryInfoList(QDir::System | QDir::Files | QDir::NoDotAndDotDot)) {
        if (!PtyMultiplexers.contains(descriptor.symLinkTarget()))
            continue;
        QFile info(folder + QStringLiteral("/fdinfo/") + descriptor.fileName());
        if (!info.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : info.readAll().split('\n'))
            if (line.startsWith(TtyIndexField.toLatin1()))
                indexes << QString::fromLatin1(line.mid(TtyIndexField.size())).trimmed();
    }
    return indexes;
}

bool ProcessTable::isRunning(const QString &name) const
{
    for (const Process &process : processes())
        if (process.name == name)
            return true;
    return false;
}
