#!/usr/bin/env bash
# Side by side on one core, in one run, over one generated 1080p clip:
# Retina Killer, TimeBlur2 and ChromaKeyPRO as frei0r plug-ins inside ffmpeg,
# against ffmpeg's own filters for the same job in the same ffmpeg, and
# against the same effects in `nimbo render`.
#
#   Retina Killer (frei0r)            vs  lagfun
#   TimeBlur2 n=8 (frei0r)            vs  tmix=frames=8
#   ChromaKeyPRO (frei0r, stacked)    vs  chromakey (its one-input job: key to
#                                         the null colour, outmode=1)
#
# Every figure is user CPU time over the clip minus that of the same pipeline
# with the effect left out, divided by the frame count, so decoding, format
# conversion and encoding are not charged to the effect:
#   ffmpeg filters: -vf FILTER minus -vf null (on gbrp, the format lagfun and
#     tmix take without conversion; chromakey on yuva420p);
#   our plug-ins: -vf frei0r=... minus -vf null on the same bgra input (the
#     plug-in's colour model, so ffmpeg converts nothing for it);
#   nimbo render: the effect minus nimbo's pass-through (the test package's
#     Copy effect) of the same clip, writing only the last frame.
# ChromaKeyPRO's stacked plug-in also pays ffmpeg's vstack and crop, which the
# baseline (the same pipeline without the plug-in) takes out again.
# The bridge's overhead is plug-in time over nimbo time, for the same frames;
# the steadiest figure for it comes from bench_frei0r_bridge, which runs both
# in one process (f0r_update against EffectStage::RenderFrame, CPU time per
# frame, median of five repetitions): no decode, encode or process start-up.
#
#   bench/frei0r_vs_ffmpeg.sh [BUILD_DIR]     (FRAMES=40 by default)
set -euo pipefail
export LC_ALL=C
build=${1:-build}
frames=${FRAMES:-40}
nimbo=$build/bin/nimbo
plugins=$build/lib/frei0r-1
[[ -x $nimbo ]] || { echo "frei0r_vs_ffmpeg: $nimbo not built" >&2; exit 1; }
[[ -f $plugins/nimbo_retina_killer.so ]] || { echo "frei0r_vs_ffmpeg: no plug-ins in $plugins" >&2; exit 1; }
command -v ffmpeg >/dev/null || { echo "frei0r_vs_ffmpeg: ffmpeg not found" >&2; exit 1; }
export FREI0R_PATH=$plugins
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

key=00FF00
ffmpeg -v error -f lavfi -i "testsrc2=s=1920x1080:r=25" -frames:v "$frames" -pix_fmt bgra -f rawvideo "$tmp/clip.bgra"
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -pix_fmt gbrp -f rawvideo "$tmp/clip.gbrp"
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -pix_fmt yuv420p -f rawvideo "$tmp/clip.yuv420p"
# nimbo reads containers: the same frames as raw video in NUT.
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -r 25 -i "$tmp/clip.bgra" -c:v rawvideo "$tmp/clip.nut"

one_core() { taskset -c 0 "$@"; }

# User CPU seconds of ffmpeg over the clip in pixel format $1 with filter $2.
utime() {
  one_core ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 \
    -f rawvideo -pix_fmt "$1" -s 1920x1080 -r 25 -i "$tmp/clip.$1" -vf "$2" -f null - 2>&1 |
    sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p' | grep . || { echo "frei0r_vs_ffmpeg: ffmpeg failed with -vf $2" >&2; exit 1; }
}
# The stacked ChromaKeyPRO takes the clip twice (keyed picture over background).
utime_stacked() {
  one_core ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 \
    -f rawvideo -pix_fmt bgra -s 1920x1080 -r 25 -i "$tmp/clip.bgra" \
    -f rawvideo -pix_fmt bgra -s 1920x1080 -r 25 -i "$tmp/clip.bgra" \
    -filter_complex "[0][1]vstack$1" -f null - 2>&1 |
    sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p' | grep . || { echo "frei0r_vs_ffmpeg: ffmpeg failed with vstack$1" >&2; exit 1; }
}
# User CPU seconds of nimbo render over the clip (it renders on one thread).
# The output is one picture (the last frame), so encoding costs next to nothing.
nimbo_utime() {
  local TIMEFORMAT='%U' line
  line=$( { time one_core "$nimbo" render "$@" -o "$tmp/last.bmp" --quiet >/dev/null 2>&1; } 2>&1 ) ||
    { echo "frei0r_vs_ffmpeg: nimbo render $* failed" >&2; exit 1; }
  echo "$line"
}
per_frame() { awk -v a="$1" -v b="$2" -v n="$frames" 'BEGIN { printf "%.3f", (a - b) * 1000 / n }'; }

base_gbrp=$(utime gbrp null)
base_bgra=$(utime bgra null)
base_yuv=$(utime yuv420p "format=yuva420p")
lagfun=$(per_frame "$(utime gbrp lagfun)" "$base_gbrp")
tmix=$(per_frame "$(utime gbrp tmix=frames=8)" "$base_gbrp")
chromakey=$(per_frame "$(utime yuv420p "format=yuva420p,chromakey=0x$key:0.1:0.05")" "$base_yuv")

retina_f0r=$(per_frame "$(utime bgra frei0r=nimbo_retina_killer)" "$base_bgra")
# TimeBlur2's default buffer count is 8: the same job as tmix=frames=8.
blur_f0r=$(per_frame "$(utime bgra frei0r=nimbo_timeblur2)" "$base_bgra")
# ChromaKeyPRO: fixed key colour (mode y), green, keyed to the null colour (outmode y).
stacked_base=$(utime_stacked ",crop=iw:ih/2:0:0")
key_f0r=$(per_frame "$(utime_stacked ",frei0r=filter_name=nimbo_chromakeypro_stacked:filter_params=y|0/1/0|0.5|0.5|y,crop=iw:ih/2:0:0")" "$stacked_base")

# nimbo's pass-through: the test package's Copy effect (built with the tests).
fixture=$build/host/fixture
[[ -f $fixture/nimbo_one.fxp ]] || { echo "frei0r_vs_ffmpeg: $fixture/nimbo_one.fxp not built (the tests build it)" >&2; exit 1; }
nimbo_base=$(nimbo_utime Copy --plugins "$fixture" -i "$tmp/clip.nut")
retina_nimbo=$(per_frame "$(nimbo_utime "Retina Killer" -i "$tmp/clip.nut")" "$nimbo_base")
blur_nimbo=$(per_frame "$(nimbo_utime TimeBlur2 -i "$tmp/clip.nut")" "$nimbo_base")
key_nimbo=$(per_frame "$(nimbo_utime ChromaKeyPRO -i "$tmp/clip.nut" -i "$tmp/clip.nut" --set mode=1 \
  --set chroma_rgb=0x$key --set outmode=1)" "$nimbo_base")

bridge_bench=$build/bench/bench_frei0r_bridge
[[ -x $bridge_bench ]] || { echo "frei0r_vs_ffmpeg: $bridge_bench not built" >&2; exit 1; }
one_core "$bridge_bench" --benchmark_format=csv --benchmark_min_time=0.2 --benchmark_repetitions=5 \
  --benchmark_report_aggregates_only=true 2>/dev/null > "$tmp/bridge.csv"
inproc() { awk -F, -v name="\"$1_median\"" '$1 == name { printf "%.3f", $4 }' "$tmp/bridge.csv"; }

echo "per frame at 1920x1080, one core, CPU ms (decode and encode taken out):"
printf '  %-40s %8s\n' \
  "Retina Killer in ffmpeg (frei0r)" "$retina_f0r" "ffmpeg lagfun" "$lagfun" "Retina Killer in nimbo render" "$retina_nimbo" \
  "TimeBlur2 in ffmpeg (frei0r)" "$blur_f0r" "ffmpeg tmix=frames=8" "$tmix" "TimeBlur2 in nimbo render" "$blur_nimbo" \
  "ChromaKeyPRO in ffmpeg (frei0r, stacked)" "$key_f0r" "ffmpeg chromakey" "$chromakey" "ChromaKeyPRO in nimbo render" "$key_nimbo"
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b <= 0) print "n/a"; else printf "%.2f", a / b }'; }
echo "ratios:"
echo "  lagfun / Retina Killer plug-in          $(ratio "$lagfun" "$retina_f0r")   (target >= 5)"
echo "  tmix / TimeBlur2 plug-in                $(ratio "$tmix" "$blur_f0r")   (target >= 5)"
echo "  chromakey / ChromaKeyPRO plug-in        $(ratio "$chromakey" "$key_f0r")   (target >= 5)"
echo "  Retina Killer plug-in / nimbo render    $(ratio "$retina_f0r" "$retina_nimbo")   (target <= 1.10)"
echo "  TimeBlur2 plug-in / nimbo render        $(ratio "$blur_f0r" "$blur_nimbo")   (target <= 1.10)"
echo "  ChromaKeyPRO plug-in / nimbo render     $(ratio "$key_f0r" "$key_nimbo")   (target <= 1.10)"
echo "in one process (bench_frei0r_bridge): f0r_update / EffectStage::RenderFrame, CPU ms per frame"
for i in 0 1 2; do
  name=$(awk -F, -v n="\"BM_Frei0r/$i""_median\"" '$1 == n { print $8 }' "$tmp/bridge.csv" | tr -d '"')
  printf '  %-16s %7s / %7s = %s   (target <= 1.10)\n' "${name:-case $i}" "$(inproc "BM_Frei0r/$i")" \
    "$(inproc "BM_Runtime/$i")" "$(ratio "$(inproc "BM_Frei0r/$i")" "$(inproc "BM_Runtime/$i")")"
done
