#pragma once
// The four procedures the program uses on the selected package (PackagePath), and the
// reading of a text member in pieces.
#include <QString>
#include <cstdint>
#include <optional>

// Pieces in which text members (read-me, closing text) are extracted.
inline constexpr int32_t TextPieceSize = 5000;

void ResetUnzipper();
bool PackageFileExists(const QString &name);
// The member's size; 0 when it is absent.
int32_t PackageFileSize(const QString &name);
// Copies up to count bytes of member name, from the 0-based offset, to buffer[0...]; the
// bytes copied (fewer at the end, 0 at or past it or for an absent member).
int32_t ReadPackageFile(const QString &name, uint8_t *buffer, int32_t count, int32_t offset);
// A text member whole, read in pieces of TextPieceSize; nullopt when absent.
std::optional<QString> ReadPackageText(const QString &name);
// Drops the member kept in memory.
void ClearPackageFileCache();
// How often the cache was filled by an extraction (for tests and benchmarks).
int64_t PackageFileCacheFills();
