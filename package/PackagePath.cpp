#include "package/PackagePath.h"

QString PackagePath;
