#!/usr/bin/env bash
# Builds, runs every benchmark and prints a Markdown table of the figures. Takes some twenty
# minutes: each throughput row moves 512 KiB twice at the real line rate, and the noise rows
# update ten times on a noisy line.
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
# Noise: a bit flipped in one byte in 1000, or in 100, in both directions, against the same
# update on a clean line; noise is random, so five seeds each, as median and worst of the
# updates that succeeded. A run that fails prints no line.
noisy() { update --image-kib 64 --block 240 --read-back --noise "$@" || true; }
# "median and worst" of numbers, one a line, and of how many; sort's options say which end is worst.
median_worst() { sort "$@" | awk '{ v[NR] = $1 } END { if (NR) printf "median %s, worst %s", v[int((NR + 1) / 2)], v[1] }'; }
of_clean() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f%%", 100 * a / b }'; }
clean=$(update --image-kib 64 --block 240 --read-back)
for rate in 0.001 0.01; do
  one_in=$(awk -v r="$rate" 'BEGIN { print 1 / r }')
  lines=$(for seed in 1 2 3 4 5; do noisy "$rate" --seed "$seed"; done)
  for pass in program read; do
    base=$(field "${pass}_Bps" "$clean")
    shares=$(while read -r l; do if [[ -n $l ]]; then of_clean "$(field "${pass}_Bps" "$l")" "$base"; echo; fi; done <<<"$lines" | median_worst -g)
    echo "| 1 byte in $one_in damaged: $pass 64 KiB, MAXPROGLEN 240, share of clean ($base B/s) | ${shares:-every update failed} | $([[ $rate == 0.001 ]] && echo "≥ 70%" || echo "-") |"
  done
  walls=$(while read -r l; do if [[ -n $l ]]; then field wall_s "$l"; fi; done <<<"$lines" | median_worst -gr)
  loads=$(while read -r l; do if [[ -n $l ]]; then field load_s "$l"; fi; done <<<"$lines" | median_worst -gr)
  echo "| 1 byte in $one_in damaged: whole update (clean $(field wall_s "$clean") s) | ${walls:-every update failed}${walls:+ s} | - |"
  echo "| 1 byte in $one_in damaged: transfer program of 2 KiB loaded (clean $(field load_s "$clean") s) | ${loads:-every update failed}${loads:+ s} | - |"
  echo "| 1 byte in $one_in damaged: updates that succeeded with the flash byte-exact | $(grep -c 'flash_exact=1' <<<"$lines" || true) of 5 | 5 of 5 |"
done
for kib in 16 1024 16384; do
  line=$(update --image-kib "$kib" --block 4000 --unpaced)
  echo "| peak memory of varnolt-cli, $kib KiB image | $(( $(field peak_rss_kib "$line") / 1024 )) MiB | image + fixed base |"
done
wait_line=$("./$build/bench/bench_wait_cpu")
echo "| CPU while waiting 2 s for an answer | $(sed -n 's/.*CPU used \([0-9.]*\) s.*/\1/p' <<<"$wait_line") s | ~0 |"
