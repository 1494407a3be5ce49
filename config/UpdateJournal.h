#pragma once
// The note an update leaves in the working folder from the moment it begins to erase until
// everything is programmed and verified: which read-back files it saved, and what they held.
// Once an update is cut short there, the instrument may no longer hold its calibration data,
// and a rerun that read it again would replace the only good copy with what is left. So a
// rerun that finds the note asks whether this is the same instrument: then the saved copy
// stays and is written back (what the instrument holds now goes beside it); if not, the
// instrument is read as usual and the saved copy is set aside. Nothing is ever deleted.
#include <QByteArray>
#include <QString>
#include <cstdint>
#include <vector>

class QX_Download;

class UpdateJournal {
public:
    // In the working folder, where the read-back files are; its text says what it is.
    static const QString FileName;

    // The journal left in the working folder; empty when there is none.
    static UpdateJournal load();
    // Whether file (as a package names it) still holds what an interrupted update saved into it.
    bool holdsInterruptedCopy(const QString &file) const;

    // Written, and flushed to disk, before the erase of the update of package; false with why.
    static bool begin(const QString &package, const std::vector<QX_Download> &readBacks, QString *error);
    // The update has programmed and verified everything.
    static void end();

    // file + suffix + the first number from 1 on that names no file yet.
    static QString freeName(const QString &file, const QString &suffix);

private:
    struct Saved {
        QString file;
        QByteArray sha256;
    };
    std::vector<Saved> m_saved;
};
