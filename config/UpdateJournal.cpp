#include "config/UpdateJournal.h"

#include "config/QX_Download.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <fcntl.h>
#include <unistd.h>

const QString UpdateJournal::FileName = QStringLiteral("VARNOLT-UPDATE-IN-PROGRESS.TXT");

namespace {
const QByteArray SavedMark = "saved\t"; // a line naming a read-back file: saved, SHA-256, file

QByteArray sha256Of(const QString &file)
{
    QFile in(file);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!in.open(QIODevice::ReadOnly) || !hash.addData(&in))
        return {};
    return hash.result().toHex();
}

// The folder's entry must reach the disk for a new or removed file to stay so.
void syncWorkingFolder()
{
    const int fd = ::open(".", O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}
} // namespace

UpdateJournal UpdateJournal::load()
{
    UpdateJournal journal;
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly))
        return journal;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (!line.startsWith(SavedMark))
            continue;
        const QList<QByteArray> fields = line.mid(SavedMark.size()).split('\t');
        if (fields.size() == 2)
            journal.m_saved.push_back({QString::fromUtf8(fields[1]).trimmed(), fields[0]});
    }
    return journal;
}

bool UpdateJournal::holdsInterruptedCopy(const QString &file) const
{
    for (const Saved &saved : m_saved)
        if (QFileInfo(saved.file).absoluteFilePath() == QFileInfo(file).absoluteFilePath())
            return !saved.sha256.isEmpty() && sha256Of(file) == saved.sha256;
    return false;
}

bool UpdateJournal::begin(const QString &package, const std::vector<QX_Download> &readBacks, QString *error)
{
    QByteArray text = "An update of " + package.toUtf8() + " began to erase the instrument's flash at "
                      + QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8()
                      + " and has not finished.\n"
                        "Run it again: it asks whether the instrument is the same one. If it is, the files below, saved before "
                        "the erase, are written back and not replaced; if not, they are kept beside as FILE.interrupted-N.\n";
    for (const QX_Download &readBack : readBacks)
        text += SavedMark + sha256Of(readBack.Filename()) + '\t' + readBack.Filename().toUtf8() + '\n';
    QSaveFile file(FileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        *error = QStringLiteral("%1 cannot be written: %2").arg(FileName, file.errorString());
        return false;
    }
    syncWorkingFolder();
    return true;
}

void UpdateJournal::end()
{
    if (QFile::remove(FileName))
        syncWorkingFolder();
}

QString UpdateJournal::freeName(const QString &file, const QString &suffix)
{
    for (int n = 1;; ++n)
        if (const QString name = file + suffix + QString::number(n); !QFileInfo::exists(name))
            return name;
}
