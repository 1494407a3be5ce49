#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: the wizard on a demo package.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup-deps.sh
bash tools/build.sh build

demo=build/demo
./build/tools/demo-package/varnolt-demo-package "$demo" >/dev/null
if [[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  echo "Starting the wizard in $demo with the demo package."
  cd "$demo" && exec ../wizard/varnolt
fi
echo "No display: the wizard cannot open here. Rendering its steps offscreen to docs/screenshots instead."
QT_QPA_PLATFORM=offscreen ./build/tools/screenshots/varnolt-screenshots docs/screenshots
