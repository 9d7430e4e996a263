#!/usr/bin/env bash
# The peer benchmark: `brimble encode` beside ffmpeg, gifsicle, ImageMagick and gifski on real
# screen recordings, timed and scored in one run on this machine.
#
#   bench/run-peers.sh [peers.sh options]     e.g. -n 3 -c terminal -p brimble,ffmpeg-pgfull-none
#
# Uses the shared harness (BRIMBLE_BENCH_HARNESS, default ../shared/bench), copied under
# build/bench-peers so nothing is written beside it; extracts the corpus clips there; installs
# the peers' Debian packages and gifski (npm) when missing. Results: build/bench-peers/results.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
source_harness=${BRIMBLE_BENCH_HARNESS:-$root/../shared/bench}
work=$root/build/bench-peers
harness=$work/harness
brimble=${BRIMBLE_BINARY:-$root/build/cli/brimble}

[[ -x $source_harness/peers.sh ]] || { echo "run-peers: no harness at $source_harness" >&2; exit 1; }
[[ -x $brimble ]] || { echo "run-peers: build brimble first (make build)" >&2; exit 1; }

missing=()
for tool in ffmpeg:ffmpeg gifsicle:gifsicle convert:imagemagick python3:python3 /usr/bin/time:time \
            node:nodejs npm:npm; do
  command -v "${tool%%:*}" >/dev/null || missing+=("${tool#*:}")
done
if ((${#missing[@]})); then
  sudo=(); ((EUID == 0)) || sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

mkdir -p "$harness"
for item in peers.sh quality.sh report.py assets; do
  rm -rf "${harness:?}/$item"
  cp -r "$source_harness/$item" "$harness/"
done
if [[ ! -x $harness/.tools/node_modules/gifski/bin/debian/gifski ]]; then
  npm install --silent --prefix "$harness/.tools" gifski@1.7.1 >/dev/null 2>&1 ||
    echo "run-peers: gifski could not be installed; its peer will fail" >&2
fi

for archive in "$source_harness"/corpus/*.mkv; do
  name=$(basename "$archive" .mkv)
  if [[ ! -f $work/corpus/$name/00001.png ]]; then
    mkdir -p "$work/corpus/$name"
    ffmpeg -hide_banner -loglevel error -i "$archive" -fps_mode passthrough \
      -pix_fmt rgb24 -start_number 1 "$work/corpus/$name/%05d.png"
  fi
done

echo "brimble | $brimble encode --fps {FPS} --max-width {MAXW} -o {OUT} {IN}" >"$harness/peers.local"
BENCH_RESULTS=$work/results BENCH_CORPUS=$work/corpus "$harness/peers.sh" "$@"
cat "$work/results/table.md"
