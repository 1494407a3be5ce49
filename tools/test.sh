#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors and runs every test; makes the Debian
# package and tests it; then builds again with AddressSanitizer and UndefinedBehaviorSanitizer
# and runs every test once more.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup-deps.sh --test

echo "== Build (warnings are errors) =="
bash tools/build.sh build -DVARNOLT_WERROR=ON
echo "== Tests =="
ctest --test-dir build --output-on-failure -j2

echo "== Debian package =="
bash tools/package-deb.sh build-deb
bash tools/test-package.sh build-deb/varnolt_*.deb build/tools/demo-package/varnolt-demo-package

echo "== Build with AddressSanitizer and UndefinedBehaviorSanitizer =="
bash tools/build.sh build-asan -DVARNOLT_WERROR=ON -DVARNOLT_SANITIZE=ON
echo "== Tests under the sanitizers =="
ctest --test-dir build-asan --output-on-failure -j2
