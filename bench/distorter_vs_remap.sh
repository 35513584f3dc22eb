#!/bin/sh
# Distorter's per-frame sampling beside the peers that do the same job, in
# one run on one core at 1920x1080 with the same map:
#   - ffmpeg's remap filter (whole-pixel positions: compare with our nearest)
#   - OpenCV's remap, INTER_LINEAR with CV_16SC2 fixed-point maps (compare
#     with our bilinear), when python3 can import cv2 (Debian: python3-opencv)
#   - a one-core frame copy, the unit the ratios are given in.
# Usage: bench/distorter_vs_remap.sh [build-dir]   (default: build)
set -eu
BUILD=${1:-build}
BENCH="$BUILD/bench/bench_warp_filters"
FRAMES=100
[ -x "$BENCH" ] || { echo "missing $BENCH (configure with -DNIMBO_BENCH=ON and build bench_warp_filters)" >&2; exit 1; }
command -v ffmpeg >/dev/null || { echo "ffmpeg not found" >&2; exit 1; }
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT INT TERM
"$BENCH" --write-maps "$TMP"

# ffmpeg: user CPU of the graph with remap minus the same graph without it.
ff() {
  ffmpeg -hide_banner -nostats -benchmark -threads 1 -filter_threads 1 \
    -f lavfi -i "testsrc2=s=1920x1080:r=25" -loop 1 -i "$TMP/xmap.pgm" -loop 1 -i "$TMP/ymap.pgm" \
    -frames:v $FRAMES -filter_complex "$1" -f null - 2>&1 | sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p'
}
maps="[0]format=bgra[s];[1]format=gray16[x];[2]format=gray16[y]"
with=$(ff "$maps;[s][x][y]remap=format=color")
without=$(ff "$maps;[x][y]blend=all_mode=addition,nullsink;[s]null")
ffmpeg_ms=$(echo "$with $without $FRAMES" | awk '{ printf "%.3f", ($1 - $2) * 1000 / $3 }')

# OpenCV on one thread, CPU time per frame.
opencv_ms=""
if /usr/bin/python3 -c "import cv2" 2>/dev/null; then
  opencv_ms=$(/usr/bin/python3 - "$TMP" <<'PY'
import sys, time
import numpy as np, cv2
d = sys.argv[1]
cv2.setNumThreads(1)
w, h = 1920, 1080
mx = np.fromfile(d + "/xmap.f32", dtype=np.float32).reshape(h, w)
my = np.fromfile(d + "/ymap.f32", dtype=np.float32).reshape(h, w)
m1, m2 = cv2.convertMaps(mx, my, cv2.CV_16SC2)
src = np.random.default_rng(1).integers(0, 256, (h, w, 4), dtype=np.uint8)
dst = np.empty_like(src)
cv2.remap(src, m1, m2, cv2.INTER_LINEAR, dst=dst)
n = 50
t = time.process_time()
for _ in range(n):
    cv2.remap(src, m1, m2, cv2.INTER_LINEAR, dst=dst)
print("%.3f" % ((time.process_time() - t) * 1000 / n))
PY
)
fi

# Ours, CPU time per frame, in the same run.
# Medians of five repetitions: the copy especially swings with what the
# other core is doing to the memory bus.
"$BENCH" --benchmark_filter='BM_FrameCopy|BM_DistorterSampling/simd:2' --benchmark_format=csv \
  --benchmark_min_time=0.2 --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null |
  awk -F, '/^"BM_.*_median"/ { gsub(/"/, "", $1); sub(/_median$/, "", $1); print $1, $4 }' > "$TMP/ours"
copy=$(awk '$1 == "BM_FrameCopy" { print $2 }' "$TMP/ours")
nearest=$(awk '$1 ~ /filter:0/ { print $2 }' "$TMP/ours")
bilinear=$(awk '$1 ~ /filter:1/ { print $2 }' "$TMP/ours")

echo "one core, 1920x1080, CPU ms per frame (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
printf "  frame copy                 %8.3f\n" "$copy"
printf "  nimbo Distorter nearest    %8.3f  (%.1fx copy)\n" "$nearest" "$(echo "$nearest $copy" | awk '{print $1/$2}')"
printf "  nimbo Distorter bilinear   %8.3f  (%.1fx copy)\n" "$bilinear" "$(echo "$bilinear $copy" | awk '{print $1/$2}')"
printf "  ffmpeg remap (nearest)     %8.3f  (%.1fx copy; nimbo nearest is %.2fx its time)\n" "$ffmpeg_ms" \
  "$(echo "$ffmpeg_ms $copy" | awk '{print $1/$2}')" "$(echo "$nearest $ffmpeg_ms" | awk '{print $1/$2}')"
if [ -n "$opencv_ms" ]; then
  printf "  OpenCV remap (linear, 16SC2) %6.3f  (%.1fx copy; nimbo bilinear is %.2fx its time)\n" "$opencv_ms" \
    "$(echo "$opencv_ms $copy" | awk '{print $1/$2}')" "$(echo "$bilinear $opencv_ms" | awk '{print $1/$2}')"
else
  echo "  OpenCV remap: python3 cannot import cv2 (Debian package python3-opencv), skipped"
fi

# Our targets were set on a machine where a frame copy took about 0.5 ms
# while ffmpeg's remap took 13 ms and OpenCV's 10 ms. That 0.5 ms scaled by
# how fast the peers ran here, in this run (the geometric mean of their speed
# factors), is that copy in this machine's time: the third yardstick.
calibrated=$(awk -v f="$ffmpeg_ms" -v o="${opencv_ms:-}" \
  'BEGIN { k = f / 13; if (o != "") k = sqrt(k * o / 10); printf "%.3f", 0.5 * k }')
printf "  frame copy at the targets' calibration %6.3f  (0.5 ms where ffmpeg remap took 13 ms%s)\n" "$calibrated" \
  "$([ -n "$opencv_ms" ] && echo " and OpenCV remap 10 ms")"
printf "  Distorter bilinear: %.1fx the copy, %.1fx the calibrated copy (target <= 8)\n" \
  "$(echo "$bilinear $copy" | awk '{print $1/$2}')" "$(echo "$bilinear $calibrated" | awk '{print $1/$2}')"
