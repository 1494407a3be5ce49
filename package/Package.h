#pragma once
// A firmware package: a zip archive whose members are looked up and read into memory on
// demand, never unpacked to disk. The wizard window or the headless tool opens one and hands
// it on; copies are cheap and share one cache, so that the engine and the window holding the
// same package extract a programmed image once.
//
// A default-constructed Package is "no package selected": every lookup finds nothing. A file
// that is missing, no zip archive or damaged reads as an archive without members. Member
// names match exactly as written.
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>

class Package {
public:
    Package();
    // Nothing is read until asked; each question opens the archive anew.
    explicit Package(const QString &path);

    QString path() const;
    // The archive's comment, decoded as PackageText says; nullopt when it has none.
    std::optional<QString> comment() const;
    // Every member with its uncompressed size, in archive order (empty for no archive).
    QList<QPair<QString, int64_t>> members() const;

    // False also for a member whose size we refuse (a forged header), so that nobody loops
    // on a size it cannot get.
    bool PackageFileExists(const QString &name) const;
    // The member's size; 0 when it is absent.
    int32_t PackageFileSize(const QString &name) const;
    // Copies up to count bytes of member name, from the 0-based offset, to buffer[0...]; the
    // bytes copied (fewer at the end, 0 at or past it). The whole member is extracted once and
    // kept, so consecutive blocks cost a copy each; another member replaces it. A missing or
    // damaged member delivers nothing.
    int32_t ReadPackageFile(const QString &name, uint8_t *buffer, int32_t count, int32_t offset) const;
    // How often ReadPackageFile extracted a member (for tests and benchmarks).
    int64_t cacheFills() const;

    // A text member whole, decoded as PackageText says; nullopt when it is absent or cannot
    // be read intact.
    std::optional<QString> readText(const QString &name) const;
    // At most maxBytes of a text member from its start, cut at a character's start, as readText.
    std::optional<QString> readTextPrefix(const QString &name, int32_t maxBytes) const;
    // At most maxBytes of a member from its start, as stored, as readText.
    std::optional<QByteArray> readPrefix(const QString &name, int32_t maxBytes) const;

private:
    struct State;
    std::optional<QByteArray> readWhole(const QString &name) const;

    std::shared_ptr<State> m_state;
};
