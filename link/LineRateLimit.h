#pragma once
// The fastest line rate the user allows once the transfer program runs: TROVEX_MAX_BAUD in
// the environment, read where the port map is read, and Default without it. 0, or a rate at
// or below the package's, keeps the line at the package's rate; so does a value that is no
// number, which the user cannot have meant as a faster rate.
namespace LineRateLimit {
// What common USB serial adapters and instruments' UARTs take on a short cable.
inline constexpr int Default = 921600;
inline constexpr const char *EnvironmentVariable = "TROVEX_MAX_BAUD";

int fromEnvironment();
}
