#pragma once
// The headless tool's exit statuses, as scripts test them.
namespace ExitStatus {
enum : int {
    Success = 0,
    UpdateFailed = 1,  // the run ended with an error; its message says why
    ProblemsFound = 1, // the port doctor found something to fix
    BadUsage = 2,      // a wrong command line, or a package that cannot be loaded
    Cancelled = 130,   // Ctrl-C, as shells report a SIGINT
};
}
