#!/usr/bin/env bash
# Builds, runs every benchmark and prints Markdown tables of the figures. Takes some forty
# minutes: each throughput row moves 512 KiB at the real line rate, the noise rows update
# twenty-five times on a noisy line, and the rerun rows update 512 KiB three times and cut
# forty-four updates short. The line-rate and
# compression rows program real firmware images from Debian's firmware packages, which the
# first run fetches with apt-get download into BUILD_DIR/bench-corpus (never into the tree).
#   bash bench/run-benchmarks.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
bash tools/build.sh "$build" >/dev/null

limit=$(( 115200 / 11 ))
update() { "./$build/bench/bench_update" --cli "$build/cli/varnolt-cli" --instrument "$build/instrument/varnolt-instrument" "$@"; }
field() { sed -n "s/.*\b$1=\([^ ]*\).*/\1/p" <<<"$2"; }
percent() { awk -v v="$1" 'BEGIN { printf "%.1f%%", v * 100 }'; }

echo "| benchmark | figure | target |"
echo "|---|---|---|"
for block in 240 1024 4000; do
  # At the package's 115200 baud, as before the line-rate switch; random bytes do not pack.
  line=$(update --image-kib 512 --block "$block" --read-back --max-baud 0)
  target=$([[ $block == 240 ]] && echo "≥ 88%" || { [[ $block == 4000 ]] && echo "≥ 97%" || echo "-"; })
  echo "| programming 512 KiB, MAXPROGLEN $block | $(field program_Bps "$line") B/s, $(percent "$(field program_share "$line")") of $limit | $target |"
  echo "| read-back 512 KiB, MAXPROGLEN $block | $(field read_Bps "$line") B/s, $(percent "$(field read_share "$line")") of $limit | $target |"
  echo "| host CPU over the whole update, MAXPROGLEN $block | $(field cpu_s "$line") s in $(field wall_s "$line") s = $(percent "$(field cpu_share "$line")") of one core, $(field wakeups_per_s "$line") wake-ups a second | < 2% |"
done
for block in 240 4000; do
  # Random bytes: the blocks go as plain Program requests, as fast as the controller moves them.
  line=$(update --image-kib 512 --block "$block" --read-back --gpib)
  target=$([[ $block == 240 ]] && echo "≥ 75%" || echo "≥ 90%")
  echo "| GPIB: programming 512 KiB, MAXPROGLEN $block | $(field program_Bps "$line") B/s, $(percent "$(field program_share "$line")") of 100000 | $target |"
  echo "| GPIB: read-back 512 KiB, MAXPROGLEN $block | $(field read_Bps "$line") B/s, $(percent "$(field read_share "$line")") of 100000 | $target |"
  echo "| GPIB: host CPU over the whole update, MAXPROGLEN $block | $(field cpu_s "$line") s in $(field wall_s "$line") s = $(percent "$(field cpu_share "$line")") of one core, $(field wakeups_per_s "$line") wake-ups a second | < 2% |"
done
# Noise: a bit flipped in one byte in 1000, or in 100, in both directions, against the same
# update on a clean line at the same rate; noise is random, so five seeds each, as median and
# worst of the updates that succeeded. A run that fails prints no line.
# "median and worst" of numbers, one a line; sort's options say which end is worst.
median_worst() { sort "$@" | awk '{ v[NR] = $1 } END { if (NR) printf "median %s, worst %s", v[int((NR + 1) / 2)], v[1] }'; }
of_clean() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f%%", 100 * a / b }'; }
# RATE ("115200": the package's, or "921600" after the switch) NOISE KIB TARGET
noise_rows() {
  local at=$1 noise=$2 kib=$3 target=$4 max_baud; max_baud=$([[ $1 == 115200 ]] && echo 0 || echo "$1")
  local clean lines one_in
  clean=$(update --image-kib "$kib" --block 240 --read-back --max-baud "$max_baud")
  lines=$(for seed in 1 2 3 4 5; do update --image-kib "$kib" --block 240 --read-back --max-baud "$max_baud" --noise "$noise" --seed "$seed" || true; done)
  one_in=$(awk -v r="$noise" 'BEGIN { print 1 / r }')
  for pass in program read; do
    local base shares
    base=$(field "${pass}_Bps" "$clean")
    shares=$(while read -r l; do if [[ -n $l ]]; then of_clean "$(field "${pass}_Bps" "$l")" "$base"; echo; fi; done <<<"$lines" | median_worst -g)
    echo "| $at, 1 byte in $one_in damaged: $pass $kib KiB, MAXPROGLEN 240, share of clean ($base B/s) | ${shares:-every update failed} | $target |"
  done
  local walls loads
  walls=$(while read -r l; do if [[ -n $l ]]; then field wall_s "$l"; fi; done <<<"$lines" | median_worst -gr)
  loads=$(while read -r l; do if [[ -n $l ]]; then field load_s "$l"; fi; done <<<"$lines" | median_worst -gr)
  echo "| $at, 1 byte in $one_in damaged: whole update (clean $(field wall_s "$clean") s) | ${walls:-every update failed}${walls:+ s} | - |"
  echo "| $at, 1 byte in $one_in damaged: transfer program of 2 KiB loaded (clean $(field load_s "$clean") s) | ${loads:-every update failed}${loads:+ s} | - |"
  echo "| $at, 1 byte in $one_in damaged: updates that succeeded with the flash byte-exact | $(grep -c 'flash_exact=1' <<<"$lines" || true) of 5 | 5 of 5 |"
}
noise_rows 115200 0.001 64 "≥ 70%"
noise_rows 115200 0.01 64 -
noise_rows 921600 0.001 512 -
for kib in 16 1024 16384; do
  line=$(update --image-kib "$kib" --block 4000 --unpaced)
  echo "| peak memory of varnolt-cli, $kib KiB image | $(( $(field peak_rss_kib "$line") / 1024 )) MiB | image + fixed base |"
done
wait_line=$("./$build/bench/bench_wait_cpu")
echo "| CPU while waiting 2 s for an answer | $(sed -n 's/.*CPU used \([0-9.]*\) s.*/\1/p' <<<"$wait_line") s | ~0 |"
# Reruns: a succeeded update again, and updates cut short at many points and run again.
rerun=$("./$build/bench/bench_rerun" speed --cli "$build/cli/varnolt-cli" --instrument "$build/instrument/varnolt-instrument")
echo "| rerun of a succeeded update, 512 KiB image at 115200 | $(field rerun_s "$rerun") s against $(field full_s "$rerun") s for the update ($(field speedup "$rerun") times faster; with --full $(field full_again_s "$rerun") s) | ≥ 20 times faster |"
cuts=$("./$build/bench/bench_rerun" cuts --cli "$build/cli/varnolt-cli" --instrument "$build/instrument/varnolt-instrument")
echo "| rerun after a power cut at 20 evenly spaced points | $(sed -n 's/^cut-power-after exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"
echo "| rerun after a lost port at 20 evenly spaced points | $(sed -n 's/^disconnect-after exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"
echo "| rerun after a cut in the transfer program's load, each erase and the calibration data's write-back | $(sed -n 's/^stages exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"


# --- The line-rate switch and packed blocks -----------------------------------------------
# Images of at least 8 KiB, each as it is, repeated end to end up to 512 KiB (smaller ones
# would repeat inside a 4000-byte block and pack better than any real image).
corpus=$build/bench-corpus
packages="firmware-ath9k-htc sigrok-firmware-fx2lafw firmware-linux-free"
images="lib/firmware/ath9k_htc/htc_7010-1.4.0.fw lib/firmware/ath9k_htc/htc_9271-1.4.0.fw lib/firmware/carl9170-1.fw
        lib/firmware/usbduxsigma_firmware.bin usr/share/sigrok-firmware/fx2lafw-cypress-fx2.fw
        usr/share/sigrok-firmware/fx2lafw-hantek-6022be.fw"
if [[ ! -d $corpus/files ]]; then
  mkdir -p "$corpus/debs"
  (cd "$corpus/debs" && apt-get download $packages >/dev/null) || { echo "cannot fetch $packages" >&2; exit 1; }
  for deb in "$corpus"/debs/*.deb; do dpkg-deb -x "$deb" "$corpus/files.part"; done
  mv "$corpus/files.part" "$corpus/files"
fi
every_image=()
for image in $images; do
  [[ -f $corpus/files/$image ]] || { echo "$corpus/files/$image is missing: remove $corpus and run again" >&2; exit 1; }
  every_image+=(--image "$corpus/files/$image")
done

# NAME LINE: effective bytes a second, as a multiple of the 115200 line's limit and as a share
# of the physical limit (the slower of the line at the rate used, times the packing ratio,
# and the flash).
row() {
  awk -v name="$1" -v bps="$(field "$3_Bps" "$2")" -v physical="$(field "$3_physical_Bps" "$2")" \
    -v ratio="$(field ratio "$2")" -v target="$4" \
    'BEGIN { limit = 115200 / 11; printf "| %s | %d B/s = %.2f x %.0f, %.1f%% of %d (packing %.2f) | %s |\n", name, bps, bps / limit, limit, 100 * bps / physical, physical, ratio, target }'
}
times_limit() { awk -v b="$(field program_Bps "$1")" 'BEGIN { print b / (115200 / 11) }'; }
share_of_physical() { awk -v b="$(field program_Bps "$1")" -v p="$(field program_physical_Bps "$1")" 'BEGIN { print b / p }'; }
median() { sort -n | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

echo
echo "| 512 KiB, MAXPROGLEN 4000, AM29F040 (7 µs a byte: 142857 B/s) | figure | target |"
echo "|---|---|---|"
row "baseline: 115200, no abilities, the corpus one image after the other" \
  "$(update --image-kib 512 --block 4000 "${every_image[@]}" --instrument-option --basic-transfer-program)" program "≥ 90%"
multiples=(); shares=()
for image in $images; do
  line=$(update --image-kib 512 --block 4000 --image "$corpus/files/$image" --max-baud 0)
  row "115200, packed: $(basename "$image")" "$line" program "≥ 90%"
  multiples+=("$(times_limit "$line")")
  shares+=("$(share_of_physical "$line")")
done
median_row() {
  printf '| %s | %.2f x, %s of the physical limit | %s |\n' "$1" "$(printf '%s\n' "${multiples[@]}" | median)" \
    "$(percent "$(printf '%s\n' "${shares[@]}" | median)")" "$2"
}
median_row "115200, packed: median of the corpus" "≥ 1.5 x, ≥ 90%"
row "921600, not packed (no packed blocks), the corpus one image after the other" \
  "$(update --image-kib 512 --block 4000 "${every_image[@]}" --instrument-option --no-packed-blocks)" program "≥ 90%"
multiples=(); shares=()
for image in $images; do
  line=$(update --image-kib 512 --block 4000 --image "$corpus/files/$image")
  row "921600, packed: $(basename "$image")" "$line" program "≥ 90%"
  multiples+=("$(times_limit "$line")")
  shares+=("$(share_of_physical "$line")")
done
median_row "921600, packed: median of the corpus" "≥ 10 x, ≥ 90%"
line=$(update --image-kib 512 --block 4000 --read-back)
row "921600, random bytes (do not pack)" "$line" program "≥ 7.5 x, ≥ 90%"
row "921600, read-back" "$line" read "≥ 90%"
line=$(update --image-kib 512 --block 4000 "${every_image[@]}")
echo "| host CPU, 921600 packed, the corpus one image after the other | $(field cpu_s "$line") s in $(field wall_s "$line") s = $(percent "$(field cpu_share "$line")") of one core, $(field wakeups_per_s "$line") wake-ups a second | < 2% |"
# GPIB keeps its controller's rate (100,000 bytes a second); packing moves the limit to the flash.
line=$(update --image-kib 512 --block 4000 "${every_image[@]}" --gpib)
awk -v bps="$(field program_Bps "$line")" -v physical="$(field program_physical_Bps "$line")" -v ratio="$(field ratio "$line")" \
  'BEGIN { printf "| GPIB, packed, the corpus one image after the other | %d B/s = %.2f x 100000, %.1f%% of %d (packing %.2f) | ≥ 90%% |\n", bps, bps / 100000, 100 * bps / physical, physical, ratio }'
echo "| host CPU, GPIB packed | $(field cpu_s "$line") s in $(field wall_s "$line") s = $(percent "$(field cpu_share "$line")") of one core, $(field wakeups_per_s "$line") wake-ups a second | < 2% |"

# The demo package, a whole update at the real line rate and flash times: before (a transfer
# program without abilities, as every update ran until now) and after.
cli=$(realpath "$build/cli/varnolt-cli")
demo_update() {
  local folder; folder=$(mktemp -d)
  "./$build/tools/demo-package/varnolt-demo-package" "$folder" >/dev/null
  head -c 1024 /dev/zero > "$folder/calibration.bin"
  "./$build/instrument/varnolt-instrument" --flash AM29F040@0x0 --flash AM29LV800@0x100000 \
    --load "$folder/calibration.bin@0x0" "$@" > "$folder/instrument.txt" &
  local instrument=$!
  for _ in $(seq 50); do [[ -s "$folder/instrument.txt" ]] && break; sleep 0.1; done
  local started; started=$(date +%s.%N)
  (cd "$folder" && TROVEX_PORTS="COM1=$(head -n 1 instrument.txt)" "$cli" update \
     Model7-Firmware-2.07.KDPKG --overwrite --quiet >/dev/null)
  awk -v a="$started" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f s", b - a }'
  kill "$instrument"; wait "$instrument" 2>/dev/null || true
  rm -rf "$folder"
}
echo "| whole update of the demo package: before (no abilities) / after | $(demo_update --basic-transfer-program) / $(demo_update) | - |"

