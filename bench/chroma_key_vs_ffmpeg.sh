#!/usr/bin/env bash
# Keys one generated 1080p clip (a test pattern over a blue screen) with
# ffmpeg's chromakey and colorkey, frei0r's bluescreen0r (through ffmpeg's
# frei0r filter) and ChromaKeyPRO's kernel (bench_chroma_key_raw), all on one
# core in one run, and prints per-frame CPU times and ratios.
#
# ffmpeg's figures are its user CPU time minus that of the same pipeline
# without the key filter, so decoding and format conversion are not charged
# to the filter.
#
#   bench/chroma_key_vs_ffmpeg.sh [BUILD_DIR]     (FRAMES=60 by default)
set -euo pipefail
export LC_ALL=C
build=${1:-build}
frames=${FRAMES:-60}
raw=$build/bench/bench_chroma_key_raw
[[ -x $raw ]] || { echo "chroma_key_vs_ffmpeg: $raw not built (configure with -DNIMBO_BENCH=ON)" >&2; exit 1; }
command -v ffmpeg >/dev/null || { echo "chroma_key_vs_ffmpeg: ffmpeg not found" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

key=1830D0
ffmpeg -v error -f lavfi -i "color=c=0x$key:s=1920x1080:r=25" -f lavfi -i "testsrc2=s=800x900:r=25" \
  -filter_complex "[0][1]overlay=560:90:shortest=1,format=bgra" -frames:v "$frames" -f rawvideo "$tmp/clip.bgra"
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -pix_fmt yuv420p -f rawvideo "$tmp/clip.yuv"

one_core() { taskset -c 0 "$@"; }

# utime of ffmpeg over the clip with filter $3 on input $1 (pixel format $2).
utime() {
  one_core ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 \
    -f rawvideo -pix_fmt "$2" -s 1920x1080 -i "$1" -vf "$3" -f null - 2>&1 |
    sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p' | grep . || { echo "chroma_key_vs_ffmpeg: ffmpeg failed with -vf $3" >&2; exit 1; }
}

per_frame() { awk -v a="$1" -v b="$2" -v n="$frames" 'BEGIN { printf "%.3f", (a - b) * 1000 / n }'; }

chroma=$(per_frame "$(utime "$tmp/clip.yuv" yuv420p "format=yuva420p,chromakey=0x$key:0.1:0.05")" \
                   "$(utime "$tmp/clip.yuv" yuv420p "format=yuva420p")")
colorkey=$(per_frame "$(utime "$tmp/clip.bgra" bgra "colorkey=0x$key:0.3:0.1")" \
                     "$(utime "$tmp/clip.bgra" bgra "null")")
blue=$(per_frame "$(utime "$tmp/clip.bgra" bgra "format=rgba,frei0r=filter_name=bluescreen0r:filter_params=0.094/0.188/0.816|0.3")" \
                 "$(utime "$tmp/clip.bgra" bgra "format=rgba")")
read -r _ _ _ copy _ ours _ table < <(one_core "$raw" "$tmp/clip.bgra" 1920 1080 "$key")

echo "per frame at 1920x1080, one core, CPU ms (load average: $(cut -d' ' -f1-3 /proc/loadavg)):"
printf '  %-28s %8s\n' "frame copy" "$copy" "ChromaKeyPRO kernel" "$ours" "ChromaKeyPRO key table" "$table" \
  "ffmpeg chromakey" "$chroma" "ffmpeg colorkey" "$colorkey" "frei0r bluescreen0r" "$blue"
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f", a / b }'; }
echo "ratios:"
echo "  kernel / frame copy            $(ratio "$ours" "$copy")"
echo "  table / frame copy             $(ratio "$table" "$copy")"
echo "  chromakey / kernel             $(ratio "$chroma" "$ours")"
echo "  colorkey / kernel              $(ratio "$colorkey" "$ours")"
echo "  bluescreen0r / kernel          $(ratio "$blue" "$ours")"
