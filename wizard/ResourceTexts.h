#pragma once
// Captions from the string table: a widget whose "tag" property is a number takes the
// string of that id (continued over following ids while a string ends in "_") as its
// caption; a numeric tooltip becomes that string.
class QWidget;

namespace ResourceTexts {
void ApplyResourceTexts(QWidget &form);
}
