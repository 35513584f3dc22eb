#!/bin/sh
# ColorTracker beside OpenCV's CamShift on the same generated 1080p footage,
# in one run. Needs Debian's python3-opencv.
#   bench/color_tracker_quality.sh [build folder, default build]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
program=$build/bench/bench_color_tracker_quality
python=${PYTHON:-/usr/bin/python3}
if [ ! -x "$program" ]; then
  echo "color_tracker_quality: $program not found (configure with -DNIMBO_BENCH=ON and build it)" >&2
  exit 1
fi
if ! "$python" -c "import cv2" 2>/dev/null; then
  echo "color_tracker_quality: $python cannot import cv2 (apt-get install python3-opencv)" >&2
  exit 1
fi
"$program" --pipe | "$python" "$here/color_tracker_camshift.py"
