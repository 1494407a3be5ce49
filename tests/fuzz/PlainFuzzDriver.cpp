// A small mutation driver for compilers without libFuzzer: starts from seed inputs, applies
// random byte flips, insertions, deletions, truncations and splices, and feeds each result to
// the fuzz target until the time or iteration budget is spent. Deterministic for a seed.
//
//   fuzz_package_loader [SECONDS] [SEED]
#include "tests/fuzz/SeedInputs.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {
using Bytes = std::vector<uint8_t>;
constexpr size_t MaxInputBytes = 64 * 1024;

void mutate(Bytes &input, const std::vector<Bytes> &seeds, std::mt19937 &rng)
{
    const int rounds = 1 + int(rng() % 8);
    for (int r = 0; r < rounds; ++r) {
        const size_t at = input.empty() ? 0 : rng() % input.size();
        switch (rng() % 6) {
        case 0: if (!input.empty()) input[at] ^= uint8_t(1u << (rng() % 8)); break;
        case 1: if (!input.empty()) input[at] = uint8_t(rng()); break;
        case 2: if (input.size() < MaxInputBytes) input.insert(input.begin() + long(at), uint8_t(rng())); break;
        case 3: if (!input.empty()) input.erase(input.begin() + long(at)); break;
        case 4: input.resize(input.empty() ? 0 : rng() % input.size()); break;
        default: {
            const Bytes &other = seeds[rng() % seeds.size()];
            if (other.empty()) break;
            const size_t from = rng() % other.size();
            const size_t count = std::min<size_t>(rng() % 256, other.size() - from);
            if (input.size() + count < MaxInputBytes)
                input.insert(input.begin() + long(at), other.begin() + long(from), other.begin() + long(from + count));
        }
        }
    }
}
} // namespace

int main(int argc, char **argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    const unsigned seed = argc > 2 ? unsigned(std::strtoul(argv[2], nullptr, 10)) : 20261123u;
    std::mt19937 rng(seed);
    const std::vector<Bytes> seeds = seedInputs();

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    long runs = 0;
    for (const Bytes &input : seeds) {
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++runs;
    }
    while (std::chrono::steady_clock::now() < end) {
        Bytes input = seeds[rng() % seeds.size()];
        mutate(input, seeds, rng);
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++runs;
    }
    std::printf("fuzz_package_loader: %ld inputs, seed %u, no failure\n", runs, seed);
    return 0;
}
