#!/usr/bin/env bash
# The 3D frames with and without the engine's heap thresholds, in one run.
#
# The engine keeps the memory Mesa's software renderer frees at the end of
# each frame in the heap (engine/src/heap_reuse.h), unless the user's
# environment tunes glibc malloc itself. Each benchmark runs twice on one
# core, alternating: "glibc" with GLIBC_TUNABLES=glibc.malloc.tcache_count=7
# (glibc's own default, so malloc behaves as it always did, but a malloc
# setting of the user's, so the engine leaves malloc alone: the engine as it
# drew before), and "engine" with the environment as a user has it. Each
# program also times a frame copy, so the figures read as ratios.
#
# usage: bench/heap_reuse_3d.sh [BUILD_DIR]     (default: build)
set -euo pipefail
build=${1:-build}
core=${NIMBO_BENCH_CORE:-1}
runs=(
  "bench_evaluator3d Copy|WholeFrame"
  "bench_text3d Copy|Animated"
  "bench_donkey Copy|Tunnel"
)
for run in "${runs[@]}"; do
  read -r program filter <<<"$run"
  [ -x "$build/bench/$program" ] || { echo "no $build/bench/$program: build it first" >&2; exit 1; }
done

# Prints "NAME WALL_MS CPU_MS" for each benchmark line of a run (every
# benchmark of these programs reports milliseconds).
times() {
  awk '/^BM_/ { print $1, $2, $4 }'
}

for run in "${runs[@]}"; do
  read -r program filter <<<"$run"
  glibc=$(GLIBC_TUNABLES=glibc.malloc.tcache_count=7 taskset -c "$core" "$build/bench/$program" \
    --benchmark_filter="$filter" 2>/dev/null | times)
  engine=$(taskset -c "$core" "$build/bench/$program" --benchmark_filter="$filter" 2>/dev/null | times)
  echo "== $program: ms per frame, wall / processor, glibc -> engine (ratio of processor times)"
  join <(sort <<<"$glibc") <(sort <<<"$engine") |
    awk '{ printf "%-44s %8.3f / %8.3f -> %8.3f / %8.3f  (%5.2fx)\n", $1, $2, $3, $4, $5, $3 / $5 }'
done
