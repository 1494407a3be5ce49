#!/usr/bin/env bash
# Configures and builds one build tree.
#   tools/build.sh DIR [cmake options...]
set -euo pipefail
dir=$1; shift
cmake -S "$(dirname "$0")/.." -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir"
