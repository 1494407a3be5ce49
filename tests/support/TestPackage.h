#pragma once
// Builds a real firmware package in a temporary folder for one test and opens it.
#include "package/Package.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

class TestPackage {
public:
    // The package is written into folder, or into a temporary folder of its own.
    explicit TestPackage(const QString &fileName = QStringLiteral("test.KDPKG"), const QString &folder = QString());

    TestPackage &member(const QString &name, const QByteArray &data);
    TestPackage &config(const QString &iniText) { return member(QStringLiteral("KDCONFIG.INI"), iniText.toLatin1()); }
    TestPackage &comment(const QString &text);
    // Writes the archive and opens it.
    Package write();

    QString path() const { return m_path; }
    QString folder() const { return m_dir.path(); }
    // count bytes of a repeating, recognisable pattern starting at seed.
    static QByteArray pattern(int count, int seed = 0);

private:
    QTemporaryDir m_dir;
    QString m_path;
    QMap<QString, QByteArray> m_members;
    QString m_comment;
};
