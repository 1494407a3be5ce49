#pragma once
// Where the help document is: next to the program in a build tree, or in the shared data of
// the installation the program belongs to (bin/../share/varnolt), as a package installs it.
#include <QString>

namespace HelpLocation {
inline constexpr const char *FileName = "Varnolt.html";
// The first of the two places that holds the document, for the program in programFolder;
// the place next to the program when neither does, so that a message can name it.
QString find(const QString &programFolder);
}
