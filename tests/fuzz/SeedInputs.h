#pragma once
// Starting inputs for the plain fuzz driver: well-formed configurations and archives, so
// that mutations reach deep into the loader.
#include <cstdint>
#include <vector>

std::vector<std::vector<uint8_t>> seedInputs();
