#!/usr/bin/env bash
# MP4 output: `brimble encode` beside `ffmpeg -c:v libx264` at the same CRF and preset on the
# benchmark clips (bytes, SSIM against the source frames, wall time), and 1920x1080 at 30 fps
# from a folder of JPEG frames (a frame store on disk) against real time.
#
#   bench/run-video.sh [-n RUNS] [-c CRF] [-p PRESET]
#
# Clips come from the shared harness's lossless archives (BRIMBLE_BENCH_HARNESS, default
# ../shared/bench/corpus), extracted under build/bench-video. Prints a Markdown table.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
corpus=${BRIMBLE_BENCH_HARNESS:-$root/../shared/bench}/corpus
work=$root/build/bench-video
brimble=${BRIMBLE_BINARY:-$root/build/cli/brimble}
runs=3 crf=23 preset=veryfast
while getopts n:c:p: option; do
  case $option in
    n) runs=$OPTARG ;; c) crf=$OPTARG ;; p) preset=$OPTARG ;;
    *) exit 2 ;;
  esac
done
[[ -x $brimble ]] || { echo "run-video: build brimble first (make build)" >&2; exit 1; }
mkdir -p "$work"

# "wall s / CPU s" of the run with the median CPU time among $runs runs of "$@". CPU time is
# what a shared machine's load does not inflate: below 2 s per second of video is real time on
# two cores.
timed() {
  local times=()
  for ((i = 0; i < runs; i++)); do
    times+=("$(/usr/bin/time -f '%U %S %e' "$@" 2>&1 >/dev/null | tail -1 |
      awk '{ printf "%.2f / %.2f\n", $3, $1 + $2 }')")
  done
  printf '%s\n' "${times[@]}" | sort -t/ -k2 -n | sed -n "$(((runs + 1) / 2))p"
}

# Mean SSIM of VIDEO against the PNG frames in FOLDER (scaled to WIDTH), on the 30 fps timeline.
ssim() {
  local video=$1 folder=$2 width=$3
  ffmpeg -nostats -i "$video" -framerate 30 -i "$folder/%05d.png" -lavfi \
    "[0:v]fps=30,format=gbrp[a];[1:v]scale=$width:-2:flags=lanczos,format=gbrp[b];[a][b]ssim=shortest=1" \
    -f null - 2>&1 | sed -n 's/.*All:\([0-9.]*\).*/\1/p'
}

echo "| clip | writer | wall s / CPU s | bytes | SSIM |"
echo "|---|---|---|---|---|"
for clip in terminal browser; do
  frames=$work/$clip
  if [[ ! -f $frames/00001.png ]]; then
    mkdir -p "$frames"
    ffmpeg -v error -i "$corpus/$clip.mkv" "$frames/%05d.png"
  fi
  width=$(ffprobe -v error -show_entries stream=width -of csv=p=0 "$frames/00001.png")
  ((width > 800)) && width=800
  out=$work/$clip-brimble.mp4
  wall=$(timed "$brimble" encode --fps 30 --max-width 800 --crf "$crf" --preset "$preset" -o "$out" "$frames")
  echo "| $clip | brimble | $wall | $(stat -c %s "$out") | $(ssim "$out" "$frames" "$width") |"
  out=$work/$clip-ffmpeg.mp4
  wall=$(timed ffmpeg -y -framerate 30 -i "$frames/%05d.png" -vf "scale=$width:-2:flags=lanczos" \
    -c:v libx264 -crf "$crf" -preset "$preset" -pix_fmt yuv420p -movflags +faststart "$out")
  echo "| $clip | ffmpeg libx264 | $wall | $(stat -c %s "$out") | $(ssim "$out" "$frames" "$width") |"
done

# 10 s of 1920x1080 at 30 fps: the browser clip scaled up, as JPEG frames, every frame changed
# (--no-dedup) and with the recorder's merging of repeats.
hd=$work/hd1080
if [[ ! -f $hd/00300.jpg ]]; then
  mkdir -p "$hd"
  ffmpeg -v error -stream_loop 1 -i "$corpus/browser.mkv" -frames:v 300 \
    -vf "scale=1920:1080:flags=bicubic" -q:v 3 "$hd/%05d.jpg"
fi
for dedup in --no-dedup --dedup; do
  wall=$(timed "$brimble" encode --fps 30 "$dedup" --crf "$crf" --preset "$preset" -o "$work/hd1080.mp4" "$hd")
  echo "| 1920x1080, 300 frames (10 s) $dedup | brimble | $wall | $(stat -c %s "$work/hd1080.mp4") | |"
done
