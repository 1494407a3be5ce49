#include "wizard/PackageList.h"

#include "wizard/WizardPrompt.h"
#include "package/PackageAccess.h"
#include "package/PackageArchiveReader.h"
#include "package/PackagePath.h"

#include <QCoreApplication>
#include <QDir>
#include <QLabel>
#include <QListWidget>

namespace {
const QString ConfigMember = QStringLiteral("KDCONFIG.INI");
const QString NotesMember = QStringLiteral("KDNOTES.TXT");
const QString ProgramTitle = QStringLiteral("Varnolt");
}

PackageList::PackageList(QListWidget &list, QLabel &notes, WizardPrompt &prompt, FileChooser chooser, QObject *parent)
    : QObject(parent), m_list(list), m_notes(notes), m_prompt(prompt), m_chooser(std::move(chooser))
{
    connect(&m_list, &QListWidget::currentRowChanged, this, &PackageList::selectionChanged);
}

bool PackageList::AddPackageEntry(const QString &path)
{
    PackageArchiveReader &reader = PackageArchiveReader::instance();
    const QString display = reader.commentSize() >= 1 ? reader.comment() : path;
    reader.setMemberName(ConfigMember);
    if (reader.countMatching() == 0)
        return false;
    auto *item = new QListWidgetItem(display);
    item->setData(Qt::UserRole, int(m_packageCount));
    m_list.addItem(item);
    m_packagePaths.insert(QString::number(m_packageCount), path);
    m_list.setCurrentItem(item);
    ++m_packageCount;
    return true;
}

void PackageList::searchFolder()
{
    // The name filter matches without regard to case, as the folder listing of packages did.
    const QDir folder = QDir::current();
    const QStringList files = folder.entryList({QStringLiteral("*.KDPKG")}, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        ResetUnzipper();
        const QString path = folder.absoluteFilePath(file);
        PackageArchiveReader::instance().setArchivePath(path);
        AddPackageEntry(path);
        QCoreApplication::processEvents();
    }
}

void PackageList::browse()
{
    const QString chosen = m_chooser(QStringLiteral("Open Firmware Package"), QStringLiteral("Firmware Packages (*.KDPKG *.kdpkg)"));
    if (chosen.isEmpty())
        return;
    QCoreApplication::processEvents();
    ResetUnzipper();
    PackageArchiveReader::instance().setArchivePath(chosen);
    if (!AddPackageEntry(chosen))
        m_prompt.showMessage(ProgramTitle, QStringLiteral("File is not a valid Firmware Package"));
}

void PackageList::selectionChanged()
{
    QListWidgetItem *item = m_list.currentItem();
    if (m_list.count() == 0 || !item)
        return;
    ResetUnzipper();
    PackagePath = m_packagePaths.value(QString::number(item->data(Qt::UserRole).toInt()));
    PackageArchiveReader &reader = PackageArchiveReader::instance();
    reader.setArchivePath(PackagePath);
    reader.setMemberName(NotesMember);
    if (reader.countMatching() == 0) {
        m_notes.clear();
        return;
    }
    int32_t delivered = 0;
    m_notes.setText(reader.extractText(0, NotesBytes, delivered));
}
