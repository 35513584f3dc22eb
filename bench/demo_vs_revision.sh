#!/usr/bin/env bash
# `nimbo demo` (all 24 effects, 48 frames at 320x180) through this build's
# nimbo and through the nimbo of an earlier revision, side by side in one run.
#
# Both programs load this build's package (--plugins), so the effects are the
# same and only the host differs: its frame loop, the demo's plan and media,
# and the encoder settings. The earlier nimbo is built from the revision's
# sources into a scratch folder (the nimbo target only). The two alternate,
# RUNS times each (default 3); the faster run of each counts, since the
# machine is shared and noisy. Figures are seconds, wall and CPU (user +
# system of the program and all its threads); the ratio is now / then.
#
# usage: bench/demo_vs_revision.sh REVISION [BUILD_DIR] [RUNS]     (default: build, 3)
set -euo pipefail
rev=${1:?usage: bench/demo_vs_revision.sh REVISION [BUILD_DIR] [RUNS]}
build=${2:-build}
runs=${3:-3}
now=$build/bin/nimbo
[ -x "$now" ] || { echo "no $now: build the nimbo target first" >&2; exit 1; }
[ -f "$build/plugins/nimbo_one.fxp" ] || { echo "no $build/plugins/nimbo_one.fxp: build the package first" >&2; exit 1; }
plugins=$(cd "$build/plugins" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/src"
git archive "$rev" | tar -x -C "$work/src"
cmake -S "$work/src" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DNIMBO_TESTS=OFF -DNIMBO_BENCH=OFF \
  -DCMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-}" >/dev/null
cmake --build "$work/build" --target nimbo -j2 >/dev/null
then_=$work/build/bin/nimbo

# Runs "$@"; prints "WALL CPU" seconds.
measure() {
  local TIMEFORMAT='%R %U %S' line
  line=$( { time "$@" >/dev/null 2>&1; } 2>&1 )
  echo "$line" | awk '{ printf "%s %s\n", $1, $2 + $3 }'
}
min() { echo "if ($1 < $2) $1 else $2" | bc -l; }

declare -A wall cpu program
program[then]=$then_
program[now]=$now
for name in then now; do wall[$name]=999999; cpu[$name]=999999; done
for ((round = 1; round <= runs; ++round)); do
  for name in then now; do
    rm -rf "$work/demo_$name"
    read -r w c < <(measure "${program[$name]}" demo --plugins "$plugins" --out "$work/demo_$name" --quiet)
    wall[$name]=$(min "${wall[$name]}" "$w")
    cpu[$name]=$(min "${cpu[$name]}" "$c")
  done
done
printf '%-28s %8s %8s\n' "nimbo demo" "wall s" "CPU s"
printf '%-28s %8.2f %8.2f\n' "then ($rev)" "${wall[then]}" "${cpu[then]}"
printf '%-28s %8.2f %8.2f\n' "now" "${wall[now]}" "${cpu[now]}"
printf 'now / then: wall %.3f  CPU %.3f\n' \
  "$(echo "${wall[now]} / ${wall[then]}" | bc -l)" "$(echo "${cpu[now]} / ${cpu[then]}" | bc -l)"
