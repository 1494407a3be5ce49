#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: a full update of the simulated
# instrument from a demo package, in the wizard (or with the headless tool where there is no
# display).
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup-deps.sh
bash tools/build.sh build

demo=$(pwd)/build/demo
rm -rf "$demo" && mkdir -p "$demo"
./build/tools/demo-package/varnolt-demo-package "$demo" >/dev/null
# The instrument's calibration data, which the update saves to CAL-M7.BIN before erasing.
head -c 1024 /dev/urandom > "$demo/instrument-calibration.bin"

./build/instrument/varnolt-instrument --flash AM29F040@0x0 --flash AM29LV800@0x100000 \
  --load "$demo/instrument-calibration.bin@0x0" --dump "$demo/flash" > "$demo/instrument.txt" &
instrument=$!
trap 'kill $instrument 2>/dev/null || true' EXIT
for _ in $(seq 50); do [[ -s "$demo/instrument.txt" ]] && break; sleep 0.1; done
export TROVEX_PORTS="COM1=$(head -n 1 "$demo/instrument.txt")"
echo "Simulated instrument on ${TROVEX_PORTS#COM1=} (COM1); its flash is written to $demo/flash at exit."

cd "$demo"
if [[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  ../wizard/varnolt
else
  echo "No display: running the update with the headless tool."
  ../cli/varnolt-cli update Model7-Firmware-2.07.KDPKG
fi
