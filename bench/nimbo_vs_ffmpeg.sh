#!/usr/bin/env bash
# Side by side, in one run: a pass-through render of a 300-frame 1080p video
# through `nimbo` against `ffmpeg` doing the same decode and H.264 encode
# (libx264, preset medium, crf 18, eight threads, processor-independent, as
# nimbo writes .mp4). nimbo's extra work is its host: conversion to the
# effects' 32-bit screens and back, the effect call, the frame loop. The
# target is an overhead within 25%.
#
# usage: bench/nimbo_vs_ffmpeg.sh [BUILD_DIR]     (default: build)
# The pass-through effect is the host tests' fixture "copy" when it is built
# (BUILD_DIR/tests/host/fixture), else NIMBO_BENCH_EFFECT (default
# ColorTrafo, whose defaults change nothing) from the real package.
# Each program runs twice, alternating; the faster run of each counts, since
# the machine is shared and noisy.
set -euo pipefail
build=${1:-build}
nimbo=$build/bin/nimbo
[ -x "$nimbo" ] || { echo "no $nimbo: build the nimbo target first" >&2; exit 1; }
plugins=()
effect=${NIMBO_BENCH_EFFECT:-ColorTrafo}
if [ -z "${NIMBO_BENCH_EFFECT:-}" ] && [ -f "$build/tests/host/fixture/nimbo_one.fxp" ]; then
  plugins=(--plugins "$build/tests/host/fixture")
  effect=copy
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ffmpeg -v error -f lavfi -i testsrc2=size=1920x1080:rate=30 -frames:v 300 \
  -c:v libx264 -preset veryfast -crf 20 -pix_fmt yuv420p "$work/in.mp4"

# Runs "$@"; prints "WALL CPU" seconds (CPU = user + system of the program and
# its threads): CPU time is the steadier figure on a shared machine.
measure() {
  local TIMEFORMAT='%R %U %S' line
  line=$( { time "$@" >/dev/null 2>&1; } 2>&1 )
  echo "$line" | awk '{ printf "%s %s\n", $1, $2 + $3 }'
}
x264=(-preset medium -crf 18 -threads 8 -x264-params cpu-independent=1)
run_ffmpeg() {
  ffmpeg -v error -y -i "$work/in.mp4" -c:v libx264 "${x264[@]}" -pix_fmt yuv420p "$work/ff.mp4"
}
run_ffmpeg_rgb() {  # the same with nimbo's round trip through 32-bit RGB
  ffmpeg -v error -y -i "$work/in.mp4" -vf format=bgra,format=yuv420p \
    -c:v libx264 "${x264[@]}" "$work/ffrgb.mp4"
}
run_nimbo() {
  "$nimbo" render "$effect" "${plugins[@]}" -i "$work/in.mp4" -o "$work/nimbo.mp4" --crf 18 --quiet
}
min() { echo "if ($1 < $2) $1 else $2" | bc -l; }

declare -A wall cpu
for name in ffmpeg ffmpeg_rgb nimbo; do wall[$name]=999999; cpu[$name]=999999; done
for round in 1 2; do
  for name in ffmpeg nimbo ffmpeg_rgb; do
    read -r w c < <(measure "run_$name")
    wall[$name]=$(min "${wall[$name]}" "$w")
    cpu[$name]=$(min "${cpu[$name]}" "$c")
  done
done
frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$work/nimbo.mp4")
printf 'nimbo frames written: %s (expected 300)\n' "$frames"
printf '%-44s %8s %8s\n' "" "wall s" "CPU s"
printf '%-44s %8.2f %8.2f\n' "ffmpeg decode + encode" "${wall[ffmpeg]}" "${cpu[ffmpeg]}"
printf '%-44s %8.2f %8.2f\n' "ffmpeg decode + RGB round trip + encode" "${wall[ffmpeg_rgb]}" "${cpu[ffmpeg_rgb]}"
printf '%-44s %8.2f %8.2f\n' "nimbo render $effect" "${wall[nimbo]}" "${cpu[nimbo]}"
printf 'nimbo / ffmpeg:               wall %.3f  CPU %.3f  (target <= 1.25)\n' \
  "$(echo "${wall[nimbo]} / ${wall[ffmpeg]}" | bc -l)" "$(echo "${cpu[nimbo]} / ${cpu[ffmpeg]}" | bc -l)"
printf 'nimbo / ffmpeg with RGB trip: wall %.3f  CPU %.3f\n' \
  "$(echo "${wall[nimbo]} / ${wall[ffmpeg_rgb]}" | bc -l)" "$(echo "${cpu[nimbo]} / ${cpu[ffmpeg_rgb]}" | bc -l)"
