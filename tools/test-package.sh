#!/usr/bin/env bash
# Tests the Debian package as a technician gets it:
#   - its contents list holds every file it must install, and nothing else;
#   - lintian finds no error in it; the AppStream metadata and the desktop entry validate;
#   - unpacked into a scratch folder (not installed), each program answers --version, and the
#     unpacked varnolt-cli updates the unpacked simulated instrument from the demo package.
#   tools/test-package.sh PACKAGE.deb DEMO_PACKAGE_TOOL
set -euo pipefail
deb=$(realpath "$1")
demo_tool=$(realpath "$2")
version=$(dpkg-deb -f "$deb" Version)
passes=0
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok: $*"; passes=$((passes + 1)); }

echo "== Contents of $(basename "$deb") =="
id=org.varnolt.Varnolt
programs=(varnolt varnolt-cli varnolt-instrument varnolt-mkpkg)
expected=(
  usr/share/varnolt/Varnolt.html
  usr/share/applications/$id.desktop
  usr/share/metainfo/$id.metainfo.xml
  usr/share/icons/hicolor/scalable/apps/$id.svg
  usr/share/bash-completion/completions/varnolt-cli
  usr/share/doc/varnolt/copyright
  usr/share/doc/varnolt/changelog.gz
)
for size in 16 32 48 64 128 256; do expected+=("usr/share/icons/hicolor/${size}x${size}/apps/$id.png"); done
for program in "${programs[@]}"; do expected+=("usr/bin/$program" "usr/share/man/man1/$program.1.gz"); done
# "-rwxr-xr-x root/root 627128 2026-11-23 18:20 ./usr/bin/varnolt": mode, owner and path of every file.
listing=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { sub(/^\.\//, "", $6); print $1, $2, $6 }')
files=$(awk '{ print $3 }' <<< "$listing" | sort)
want=$(printf '%s\n' "${expected[@]}" | sort)
if [[ $files == "$want" ]]; then
  pass "the ${#expected[@]} files, no more"
else
  fail "contents differ (< missing, > not expected):"
  diff <(echo "$want") <(echo "$files") | grep '^[<>]' || true
fi
while read -r mode owner path; do
  wanted_mode=-rw-r--r--
  [[ $path == usr/bin/* ]] && wanted_mode=-rwxr-xr-x
  [[ $mode == "$wanted_mode" && $owner == root/root ]] || fail "$path is $mode $owner, not $wanted_mode root/root"
done <<< "$listing"

echo "== lintian =="
# Errors fail; what else it says is printed (the README lists what is left and why).
if lintian --fail-on error --display-info --pedantic "$deb"; then pass "lintian: no error"; else fail "lintian"; fi

scratch=$(mktemp -d)
instrument=
cleanup() {
  [[ -n $instrument ]] && kill "$instrument" 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT
dpkg-deb -x "$deb" "$scratch/root"
root=$scratch/root

echo "== Metadata =="
if appstreamcli validate --no-net "$root/usr/share/metainfo/$id.metainfo.xml"; then pass "AppStream metadata"; else fail "AppStream metadata"; fi
if desktop-file-validate "$root/usr/share/applications/$id.desktop"; then pass "desktop entry"; else fail "desktop entry"; fi

echo "== Unpacked programs =="
for program in "${programs[@]}"; do
  answer=$("$root/usr/bin/$program" --version 2>&1) || true
  if [[ $answer == "$program $version" ]]; then pass "$answer"; else fail "$program --version said: $answer"; fi
done

echo "== An update by the unpacked tools =="
work=$scratch/work
mkdir -p "$work"
package=$("$demo_tool" "$work")
head -c 1024 /dev/urandom > "$scratch/calibration.bin"
"$root/usr/bin/varnolt-instrument" --flash AM29F040@0x0 --flash AM29LV800@0x100000 --no-pacing --time-scale 0 \
  --load "$scratch/calibration.bin@0x0" --dump "$scratch/flash" > "$scratch/instrument.txt" &
instrument=$!
for _ in $(seq 50); do [[ -s $scratch/instrument.txt ]] && break; sleep 0.1; done
pty=$(head -n 1 "$scratch/instrument.txt")
status=0
(cd "$work" && TROVEX_PORTS="COM1=$pty" "$root/usr/bin/varnolt-cli" update "$package" --json --overwrite \
  > "$scratch/update.json") || status=$?
kill "$instrument" && wait "$instrument" || true
instrument=
result=$(tail -n 1 "$scratch/update.json")
written=$(grep -o '"bytesWritten":[0-9]*' <<< "$result" | cut -d: -f2)
right=$(grep -o '"bytesAlreadyRight":[0-9]*' <<< "$result" | cut -d: -f2)
verified=$(grep -o '"bytesVerified":[0-9]*' <<< "$result" | cut -d: -f2)
# Bytes the flash already held (the calibration data written back as it was read) are not sent
# again, but every byte is verified.
if [[ $status -eq 0 && $result == *'"success":true'* && ${written:-0} -gt 0 && $((written + ${right:-0})) == "$verified" ]]; then
  pass "update: exit status 0, $verified bytes verified, $written of them written"
else
  fail "update: exit status $status, result $result"
fi
# The calibration data went to the file and, its sector being erased, back into the flash.
if cmp -s "$scratch/calibration.bin" "$work/CAL-M7.BIN" \
  && cmp -s -n 1024 "$scratch/calibration.bin" "$scratch/flash/AM29F040@0x0.bin"; then
  pass "calibration data saved and written back byte for byte"
else
  fail "calibration data not saved or not written back"
fi

echo "package: $passes passed, $failures failed"
[[ $failures -eq 0 ]]
