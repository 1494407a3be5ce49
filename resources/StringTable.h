#pragma once
// The program's string resources: the error messages (id 40000 + error code) and the
// captions of the wizard. Texts are reproduced exactly, trailing blanks included.
#include <QString>

namespace StringTable {

// Offset of the error messages: the message of code N has id MessageBase + N.
inline constexpr int MessageBase = 40000;

// The string of the given id, or an empty string when the table has no such id.
QString load(int id);

// The string of id, continued by the following ids for as long as a string ends in "_"
// (the marker itself is dropped).
QString loadContinued(int id);

}
