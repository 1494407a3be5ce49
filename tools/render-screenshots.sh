#!/usr/bin/env bash
# Renders every step of the wizard to PNG in docs/screenshots/, without a display.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup-deps.sh
bash tools/build.sh build
QT_QPA_PLATFORM=offscreen ./build/tools/screenshots/varnolt-screenshots docs/screenshots
