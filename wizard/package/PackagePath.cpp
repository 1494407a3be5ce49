#include "wizard/package/PackagePath.h"

QString PackagePath;
