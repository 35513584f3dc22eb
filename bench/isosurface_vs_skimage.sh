#!/usr/bin/env bash
# Our isosurface extractor against scikit-image's measure.marching_cubes
# (Debian's python3-skimage) on the same 64^3 fields, one core, one run:
# processor time per extraction (wall time would count the other processes
# of a shared machine), the ratio, and the triangle counts (ours within 1%).
# Usage: bench/isosurface_vs_skimage.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/python3 - "$work" <<'PY'
import sys, numpy as np
n = 64
p = np.linspace(0.0, 1.0, n, dtype=np.float32)
z, y, x = np.meshgrid(p, p, p, indexing="ij")  # x fastest in memory
fields = {
    "sphere": 0.4 - np.sqrt((x - 0.5) ** 2 + (y - 0.5) ** 2 + (z - 0.5) ** 2),
    "metaballs": sum(0.01 / ((x - (0.3 + 0.4 * (b & 1))) ** 2 + (y - (0.3 + 0.4 * (b >> 1 & 1))) ** 2
                             + (z - (0.3 + 0.4 * (b >> 2))) ** 2 + 1e-4) for b in range(8)) - 1.0,
    "gyroid": np.sin(4 * np.pi * x) * np.cos(4 * np.pi * y) + np.sin(4 * np.pi * y) * np.cos(4 * np.pi * z)
              + np.sin(4 * np.pi * z) * np.cos(4 * np.pi * x),
}
for name, f in fields.items():
    f.astype("<f4").tofile(f"{sys.argv[1]}/{name}.f32")
PY
printf "%-10s %12s %12s %8s %10s %10s %7s\n" field "ours ms" "skimage ms" ratio "ours tris" "sk tris" diff
for field in sphere metaballs gyroid; do
  read -r _ ours_tris _ ours_ms < <(taskset -c 0 "$build/bench/bench_isosurface" --raw "$work/$field.f32" 64 0 50)
  read -r sk_tris sk_ms < <(taskset -c 0 /usr/bin/python3 - "$work/$field.f32" <<'PY'
import sys, time, numpy as np
from skimage import measure
f = np.fromfile(sys.argv[1], dtype="<f4").reshape(64, 64, 64)
measure.marching_cubes(f, 0.0)  # warm-up
runs = 10
start = time.process_time()
for _ in range(runs):
    verts, faces, normals, values = measure.marching_cubes(f, 0.0)
print(len(faces), (time.process_time() - start) * 1000 / runs)
PY
)
  awk -v f="$field" -v o="$ours_ms" -v s="$sk_ms" -v ot="$ours_tris" -v st="$sk_tris" \
    'BEGIN { printf "%-10s %12.3f %12.3f %7.1fx %10d %10d %6.2f%%\n", f, o, s, s / o, ot, st, 100 * (ot - st) / st }'
done
