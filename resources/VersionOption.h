#pragma once
// --version for the programs without an options parser that could answer it (the wizard's
// switches start with "/"): the program's name and version, before anything starts.
#include "Version.h"

#include <cstdio>
#include <cstring>

namespace VersionOption {
// True, after printing "NAME VERSION", when --version is the only argument.
inline bool answer(int argc, char **argv, const char *program)
{
    if (argc != 2 || std::strcmp(argv[1], "--version") != 0)
        return false;
    std::printf("%s %s\n", program, Version::Text);
    return true;
}
}
