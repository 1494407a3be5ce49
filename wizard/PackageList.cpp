#include "wizard/PackageList.h"

#include "wizard/WizardPrompt.h"

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
    const Package package(path);
    if (!package.PackageFileExists(ConfigMember))
        return false;
    const QString display = package.comment().value_or(path);
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
        AddPackageEntry(folder.absoluteFilePath(file));
        QCoreApplication::processEvents();
    }
}

void PackageList::browse()
{
    const QString chosen = m_chooser(QStringLiteral("Open Firmware Package"), QStringLiteral("Firmware Packages (*.KDPKG *.kdpkg)"));
    if (chosen.isEmpty())
        return;
    QCoreApplication::processEvents();
    if (!AddPackageEntry(chosen))
        m_prompt.showMessage(ProgramTitle, QStringLiteral("File is not a valid Firmware Package"));
}

void PackageList::selectionChanged()
{
    QListWidgetItem *item = m_list.currentItem();
    if (m_list.count() == 0 || !item)
        return;
    m_selected = Package(m_packagePaths.value(QString::number(item->data(Qt::UserRole).toInt())));
    emit packageSelected(m_selected);
    const std::optional<QString> notes = m_selected.readTextPrefix(NotesMember, NotesBytes);
    if (notes)
        m_notes.setText(*notes);
    else
        m_notes.clear();
}
