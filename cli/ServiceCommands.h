#pragma once
// varnolt-cli verify, read and restore: the instrument checked against the package, a range
// of it read into a file, and saved data written back, each with the package's transfer
// program and configuration. Each returns the ExitStatus.
#include "cli/CliOptions.h"
#include "engine/ApplicationLayer.h"

namespace ServiceCommands {
int verify(const CliOptions &options, const ApplicationLayerFactory &makeLayer);
int read(const CliOptions &options, const ApplicationLayerFactory &makeLayer);
int restore(const CliOptions &options, const ApplicationLayerFactory &makeLayer);
}
