#!/usr/bin/env bash
# `brimble run` of an example script in the embedded display, timed from the outside: wall time
# against the script's own timeline (its segments' recorded seconds and what ran between them,
# as --profile reports it), and the GIF's total delay, read by ffprobe, against the recorded
# seconds less the crossfades, and its size.
#
#   bench/run-script.sh [-n RUNS] [SCRIPT]      (default: examples/hello.brim, 3 runs; a .tape
#                                                too)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=3
while getopts n: flag; do
  case "$flag" in
    n) runs=$OPTARG ;;
    *) echo "usage: $0 [-n RUNS] [SCRIPT]" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
script=${1:-examples/hello.brim}
brimble=build/cli/brimble
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

printf '%-4s %8s %9s %9s %9s %9s %9s\n' run wall_s timeline_s over_s gif_s recorded_s gif_bytes
for ((i = 1; i <= runs; i++)); do
  start=$(date +%s.%N)
  "$brimble" run --headless --profile -o "$work/out.gif" "$script" >"$work/stdout" 2>"$work/stderr"
  end=$(date +%s.%N)
  wall=$(awk -v a="$start" -v b="$end" 'BEGIN{printf "%.3f", b - a}')
  # The instructions' own time (their waits, typing and recordings), without render or clean-up.
  timeline=$(awk '/^ +[0-9]+ +[0-9.]+ +[0-9]+% /{s+=$2} END{printf "%.3f", s}' "$work/stderr")
  recorded=$(sed -nE 's/.*segment [0-9]+: [0-9]+ frames in ([0-9.]+) s/\1/p' "$work/stderr" |
    awk '{s+=$1} END{printf "%.3f", s}')
  gif=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$work/out.gif")
  printf '%-4s %8.2f %9.2f %9.2f %9.2f %9.2f %9d\n' "$i" "$wall" "$timeline" \
    "$(awk -v a="$wall" -v b="$timeline" 'BEGIN{printf "%.3f", a - b}')" "$gif" "$recorded" \
    "$(stat -c %s "$work/out.gif")"
done
