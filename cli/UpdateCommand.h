#pragma once
// varnolt-cli update: loads the package as the wizard does, applies port and language as
// the selectors would, runs the update and reports it. Returns the ExitStatus.
#include "cli/CliOptions.h"
#include "cli/ExitStatus.h"
#include "engine/ApplicationLayer.h"

namespace UpdateCommand {
// makeLayer: the application layer of the run (the serial one, or a scripted one in tests).
int run(const CliOptions &options, const ApplicationLayerFactory &makeLayer);
}
