#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup-deps.sh
bash tools/build.sh build

# The engine core is what exists so far: show that its wait for an instrument's answer
# sleeps instead of spinning.
./build/bench/bench_wait_cpu
