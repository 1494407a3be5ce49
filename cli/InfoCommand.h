#pragma once
// varnolt-cli info: what a package holds and its configuration as the wizard would load it.
#include "cli/CliOptions.h"

namespace InfoCommand {
// Returns the exit status: 0, or 2 when the package cannot be read or loaded.
int run(const CliOptions &options);
}
