#!/usr/bin/env bash
# The 3D frame benchmarks through this build's engine and through the engine
# of an earlier revision, side by side in one run.
#
# The effects load the engine from ORRERY_BIN_PATH, so the same benchmark
# programs draw through either library: the earlier one is built from the
# revision's engine/ and sdk/include with the system compiler into a scratch
# folder. Each benchmark runs on one core, alternating "then" and "now".
# Every figure is milliseconds per frame, wall / processor time of every
# thread; the ratio is then / now of processor time. The Text3D line
# "ProcessFirstFrame" is the very first frame of a fresh process.
#
# usage: bench/engine_vs_revision.sh REVISION [BUILD_DIR]     (default: build)
set -euo pipefail
rev=${1:?usage: bench/engine_vs_revision.sh REVISION [BUILD_DIR]}
build=${2:-build}
core=${NIMBO_BENCH_CORE:-1}
runs=(
  "bench_evaluator3d Copy|WholeFrame"
  "bench_text3d Copy|ProcessFirst"
  "bench_text3d Animated"
  "bench_donkey Copy|Tunnel"
)
for run in "${runs[@]}"; do
  read -r program filter <<<"$run"
  [ -x "$build/bench/$program" ] || { echo "no $build/bench/$program: build it first" >&2; exit 1; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/src" "$work/bin"
git archive "$rev" engine sdk/include | tar -x -C "$work/src"
(cd "$work/src" && g++ -std=c++20 -O2 -fPIC -shared -fvisibility=hidden -Iengine/include -Isdk/include \
  engine/src/*.cpp -o "$work/bin/libnb3D.so" -lEGL -lGLESv2 -Wl,-z,nodelete)

# "NAME WALL_MS CPU_MS [COUNTERS]" for each benchmark line of a run.
times() {
  awk '/^BM_/ { extra = ""; for (i = 7; i <= NF; ++i) if ($i ~ /_ms=/) extra = extra " " $i; print $1, $2, $4, extra }'
}

for run in "${runs[@]}"; do
  read -r program filter <<<"$run"
  then_=$(ORRERY_BIN_PATH="$work/bin" taskset -c "$core" "$build/bench/$program" --benchmark_filter="$filter" 2>/dev/null | times)
  now=$(ORRERY_BIN_PATH="$PWD/$build/bin" taskset -c "$core" "$build/bench/$program" --benchmark_filter="$filter" 2>/dev/null | times)
  echo "== $program ($filter): then ($rev) -> now"
  join <(sort <<<"$then_" | cut -d' ' -f1-3) <(sort <<<"$now" | cut -d' ' -f1-3) |
    awk '{ printf "%-48s %8.3f / %8.3f -> %8.3f / %8.3f  (%5.2fx)\n", $1, $2, $3, $4, $5, $3 / $5 }'
  grep -h "_ms=" <<<"$then_" | sed "s/^/   then:/" || true
  grep -h "_ms=" <<<"$now" | sed "s/^/   now: /" || true
done
