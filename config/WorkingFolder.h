#pragma once
// The working folder: where a run may write the files a package names (its read-back files,
// which program entries may write back). It is the process's current folder, the one the
// wizard and the headless tool were started in (neither changes it), so a relative name in a
// package means the same file here as when the file is written.
#include <QString>

namespace WorkingFolder {

// Why the file name may not be written, or "" when it lies inside the working folder. Refused:
// an absolute path, a drive letter, a ".." component ("\" counts as a separator too, as in
// packages made for Windows), and a symbolic link on the way that leads out of the folder
// (also one whose target is missing).
QString refusal(const QString &name);

}
