#!/usr/bin/env bash
# Builds, runs every benchmark and prints a Markdown table of the figures. Takes some fifteen
# minutes: each throughput row moves 512 KiB twice at the real line rate, and the rerun rows
# update 512 KiB three times and cut forty updates short.
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
  line=$(update --image-kib 512 --block "$block" --read-back)
  target=$([[ $block == 240 ]] && echo "≥ 88%" || { [[ $block == 4000 ]] && echo "≥ 97%" || echo "-"; })
  echo "| programming 512 KiB, MAXPROGLEN $block | $(field program_Bps "$line") B/s, $(percent "$(field program_share "$line")") of $limit | $target |"
  echo "| read-back 512 KiB, MAXPROGLEN $block | $(field read_Bps "$line") B/s, $(percent "$(field read_share "$line")") of $limit | $target |"
  echo "| host CPU over the whole update, MAXPROGLEN $block | $(field cpu_s "$line") s in $(field wall_s "$line") s = $(percent "$(field cpu_share "$line")") of one core, $(field wakeups_per_s "$line") wake-ups a second | < 2% |"
done
for block in 240 4000; do
  line=$(update --image-kib 512 --block "$block" --read-back --gpib)
  echo "| GPIB: programming 512 KiB, MAXPROGLEN $block | $(field program_Bps "$line") B/s, $(percent "$(field program_share "$line")") of 100000 | - |"
  echo "| GPIB: read-back 512 KiB, MAXPROGLEN $block | $(field read_Bps "$line") B/s, $(percent "$(field read_share "$line")") of 100000 | - |"
done
for kib in 16 1024 16384; do
  line=$(update --image-kib "$kib" --block 4000 --unpaced)
  echo "| peak memory of varnolt-cli, $kib KiB image | $(( $(field peak_rss_kib "$line") / 1024 )) MiB | image + fixed base |"
done
wait_line=$("./$build/bench/bench_wait_cpu")
echo "| CPU while waiting 2 s for an answer | $(sed -n 's/.*CPU used \([0-9.]*\) s.*/\1/p' <<<"$wait_line") s | ~0 |"
rerun=$("./$build/bench/bench_rerun" speed --cli "$build/cli/varnolt-cli" --instrument "$build/instrument/varnolt-instrument")
echo "| rerun of a succeeded update, 512 KiB image at 115200 | $(field rerun_s "$rerun") s against $(field full_s "$rerun") s for the update ($(field speedup "$rerun") times faster; with --full $(field full_again_s "$rerun") s) | ≥ 20 times faster |"
cuts=$("./$build/bench/bench_rerun" cuts --cli "$build/cli/varnolt-cli" --instrument "$build/instrument/varnolt-instrument")
echo "| rerun after a power cut at 20 evenly spaced points | $(sed -n 's/^cut-power-after exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"
echo "| rerun after a lost port at 20 evenly spaced points | $(sed -n 's/^disconnect-after exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"
echo "| rerun after a cut in the transfer program's load, each erase and the calibration data's write-back | $(sed -n 's/^stages exact=\([0-9]*\) of \([0-9]*\)$/\1 of \2/p' <<<"$cuts") byte-exact, calibration file unchanged | 100% |"
