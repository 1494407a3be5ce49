#pragma once
#include <QString>

// Full path of the selected firmware package; set only by the package list's selection.
extern QString PackagePath;
