#pragma once
// The headless tool's exit statuses, as scripts test them.
namespace ExitStatus {
enum : int {
    Success = 0,
    UpdateFailed = 1,  // the run (of any command) ended with an error; its message says why
    ProblemsFound = 1, // the port doctor found something to fix
    BadUsage = 2,      // a wrong command line, or a package that cannot be loaded
    Differs = 3,       // verify: the instrument does not hold what the package does
    Cancelled = 130,   // Ctrl-C, as shells report a SIGINT
};
}
