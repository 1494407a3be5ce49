#pragma once
// The Select Firmware step's list of packages: found in the working folder, added with
// Browse or from the command line. Each line shows the archive's comment (or the path),
// carries its entry number, and selecting it opens that package, announces it and shows the
// first 256 bytes of its notes.
#include "package/Package.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <functional>

class QLabel;
class QListWidget;
class WizardPrompt;

class PackageList : public QObject {
    Q_OBJECT
public:
    // Shows the file dialog; returns the chosen path, or "" when the user cancels.
    using FileChooser = std::function<QString(const QString &title, const QString &filter)>;

    PackageList(QListWidget &list, QLabel &notes, WizardPrompt &prompt, FileChooser chooser, QObject *parent = nullptr);

    // Adds path as a line when it is a package (holds the configuration file) and selects
    // it. False when it is not a package.
    bool AddPackageEntry(const QString &path);
    // Adds every package of the working folder; files that are not packages are skipped.
    void searchFolder();
    void browse();
    int16_t PackageCount() const { return m_packageCount; }
    // The package of the selected line; no package before the first selection.
    const Package &selectedPackage() const { return m_selected; }

    static constexpr int NotesBytes = 256;

signals:
    void packageSelected(const Package &package);

private:
    void selectionChanged();

    QListWidget &m_list;
    QLabel &m_notes;
    WizardPrompt &m_prompt;
    FileChooser m_chooser;
    QHash<QString, QString> m_packagePaths; // keyed by the entry number in decimal
    int16_t m_packageCount = 0;
    Package m_selected;
};
