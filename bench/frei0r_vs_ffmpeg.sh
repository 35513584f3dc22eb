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
# ffmpeg's figures are user CPU time per frame in the steady state: each
# pipeline runs over the clip once and over the clip looped LOOPS more times,
# and the difference is divided by the extra frames. What a pipeline does
# once (ffmpeg's filter set-up; for a plug-in, loading the package,
# describing the effect and allocating its history on the first frame) is
# thereby out of the per-frame figure; the plug-ins' start-up is shown apart
# (the single run less its frames at the steady-state cost, less the same for
# the pipeline without the effect). The pipeline without the effect is taken
# out the same way, so decoding and format conversion are not charged:
#   ffmpeg filters: -vf FILTER minus -vf null (on gbrp, the format lagfun and
#     tmix take without conversion; chromakey on yuva420p);
#   our plug-ins: -vf frei0r=... minus -vf null on the same bgra input (the
#     plug-in's colour model, so ffmpeg converts nothing for it); the stacked
#     ChromaKeyPRO (both inputs stacked in one clip made beforehand) minus the
#     same crop without it.
# Against nimbo render: bench_frei0r_bridge runs every image effect both ways
# in one process, each frame both ways in turn (f0r_update against
# EffectStage::RenderFrame, the call `nimbo render` makes per frame; CPU time
# per frame, median of five repetitions), so decode, encode and process
# start-up are out of both; their ratio is what the bridge adds.
#
#   bench/frei0r_vs_ffmpeg.sh [BUILD_DIR]     (FRAMES=40, LOOPS=4 by default)
set -euo pipefail
export LC_ALL=C
build=${1:-build}
frames=${FRAMES:-40}
loops=${LOOPS:-4}
plugins=$build/lib/frei0r-1
[[ -f $plugins/nimbo_retina_killer.so ]] || { echo "frei0r_vs_ffmpeg: no plug-ins in $plugins" >&2; exit 1; }
command -v ffmpeg >/dev/null || { echo "frei0r_vs_ffmpeg: ffmpeg not found" >&2; exit 1; }
export FREI0R_PATH=$plugins
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

key=00FF00
ffmpeg -v error -f lavfi -i "testsrc2=s=1920x1080:r=25" -frames:v "$frames" -pix_fmt bgra -f rawvideo "$tmp/clip.bgra"
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -pix_fmt gbrp -f rawvideo "$tmp/clip.gbrp"
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -pix_fmt yuv420p -f rawvideo "$tmp/clip.yuv420p"
# ChromaKeyPRO's two inputs stacked in one frame (keyed picture over
# background), made once, so its pipelines read one raw frame as the others do.
ffmpeg -v error -f rawvideo -pix_fmt bgra -s 1920x1080 -i "$tmp/clip.bgra" -f rawvideo -pix_fmt bgra -s 1920x1080 \
  -i "$tmp/clip.bgra" -filter_complex "[0][1]vstack" -pix_fmt bgra -f rawvideo "$tmp/clip.stacked"

one_core() { taskset -c 0 "$@"; }

# User CPU seconds of ffmpeg over the clip in pixel format $2, looped $1
# more times, with filter $3.
utime() {
  one_core ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 -stream_loop "$1" \
    -f rawvideo -pix_fmt "$2" -s 1920x1080 -r 25 -i "$tmp/clip.$2" -vf "$3" -f null - 2>&1 |
    sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p' | grep . || { echo "frei0r_vs_ffmpeg: ffmpeg failed with -vf $3" >&2; exit 1; }
}
# The stacked ChromaKeyPRO's clip, looped $1 more times, with filter $2.
utime_stacked() {
  one_core ffmpeg -nostdin -hide_banner -benchmark -threads 1 -filter_threads 1 -stream_loop "$1" \
    -f rawvideo -pix_fmt bgra -s 1920x2160 -r 25 -i "$tmp/clip.stacked" -vf "$2" -f null - 2>&1 |
    sed -n 's/.*utime=\([0-9.]*\)s.*/\1/p' | grep . || { echo "frei0r_vs_ffmpeg: ffmpeg failed with -vf $2" >&2; exit 1; }
}
# Both runs of one pipeline: "single looped" user seconds.
runs() { echo "$("$@" 0) $("$@" "$loops")"; }
with_format() { local format=$1 filter=$2; utime "$3" "$format" "$filter"; }
stacked() { utime_stacked "$2" "$1"; }
# Steady-state ms per frame of pipeline runs $1 over those of $2.
per_frame() {
  awk -v a="$1" -v b="$2" -v n="$((frames * loops))" \
    'BEGIN { split(a, x, " "); split(b, y, " "); printf "%.3f", ((x[2] - x[1]) - (y[2] - y[1])) * 1000 / n }'
}
# One-time ms of pipeline runs $1 over $2, given the per-frame figure $3.
start_up() {
  awk -v a="$1" -v b="$2" -v f="$3" -v n="$frames" \
    'BEGIN { split(a, x, " "); split(b, y, " "); printf "%.0f", (x[1] - y[1]) * 1000 - n * f }'
}

base_gbrp=$(runs with_format gbrp null)
base_bgra=$(runs with_format bgra null)
base_yuv=$(runs with_format yuv420p "format=yuva420p")
lagfun=$(per_frame "$(runs with_format gbrp lagfun)" "$base_gbrp")
tmix=$(per_frame "$(runs with_format gbrp tmix=frames=8)" "$base_gbrp")
chromakey=$(per_frame "$(runs with_format yuv420p "format=yuva420p,chromakey=0x$key:0.1:0.05")" "$base_yuv")

retina_runs=$(runs with_format bgra frei0r=nimbo_retina_killer)
retina_f0r=$(per_frame "$retina_runs" "$base_bgra")
# TimeBlur2's default buffer count is 8: the same job as tmix=frames=8.
blur_runs=$(runs with_format bgra frei0r=nimbo_timeblur2)
blur_f0r=$(per_frame "$blur_runs" "$base_bgra")
# ChromaKeyPRO: fixed key colour (mode y), green, keyed to the null colour (outmode y).
stacked_base=$(runs stacked "crop=iw:ih/2:0:0")
key_runs=$(runs stacked "frei0r=filter_name=nimbo_chromakeypro_stacked:filter_params=y|0/1/0|0.5|0.5|y,crop=iw:ih/2:0:0")
key_f0r=$(per_frame "$key_runs" "$stacked_base")

echo "per frame at 1920x1080, one core, CPU ms in the steady state (decode and encode taken out):"
printf '  %-40s %8s\n' \
  "Retina Killer in ffmpeg (frei0r)" "$retina_f0r" "ffmpeg lagfun" "$lagfun" \
  "TimeBlur2 in ffmpeg (frei0r)" "$blur_f0r" "ffmpeg tmix=frames=8" "$tmix" \
  "ChromaKeyPRO in ffmpeg (frei0r, stacked)" "$key_f0r" "ffmpeg chromakey" "$chromakey"
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b <= 0) print "n/a"; else printf "%.2f", a / b }'; }
echo "ratios:"
echo "  lagfun / Retina Killer plug-in          $(ratio "$lagfun" "$retina_f0r")   (target >= 5)"
echo "  tmix / TimeBlur2 plug-in                $(ratio "$tmix" "$blur_f0r")   (target >= 5)"
echo "  chromakey / ChromaKeyPRO plug-in        $(ratio "$chromakey" "$key_f0r")   (target >= 5)"
echo "the plug-ins' start-up in ffmpeg (package loaded, effect described, history allocated), ms once:"
echo "  Retina Killer $(start_up "$retina_runs" "$base_bgra" "$retina_f0r"), TimeBlur2 $(start_up "$blur_runs" "$base_bgra" "$blur_f0r"), ChromaKeyPRO $(start_up "$key_runs" "$stacked_base" "$key_f0r")"

bridge_bench=$build/bench/bench_frei0r_bridge
[[ -x $bridge_bench ]] || { echo "frei0r_vs_ffmpeg: $bridge_bench not built" >&2; exit 1; }
one_core "$bridge_bench" --benchmark_format=csv --benchmark_min_time=0.2 --benchmark_repetitions=5 \
  --benchmark_report_aggregates_only=true 2>/dev/null > "$tmp/bridge.csv"
echo "the bridge against nimbo render's way of running each effect, in one process (bench_frei0r_bridge,"
echo "random frames, each frame both ways in turn): CPU ms per frame, median of five repetitions; the"
echo "ratio with the host's output frame reused (ffmpeg's pool) and with two output frames used in turn"
echo "ReScaler asks for 1024x1024 at 1080p: in its first row the runtime gets frames already at that size"
echo "(a YUV clip, scaled by the decoder's conversion); in \"ReScaler same frames\" both get the 1080p BGRA"
echo "frames and each host pays for scaling them (nimbo render's input does the same swscale call)"
printf '  %-22s %10s %11s %8s %8s\n' effect f0r_update RenderFrame ratio "ratio(2)"
# Columns found by the header's names: the counters follow the fixed ones.
awk -F, 'NR == 1 { for (i = 1; i <= NF; ++i) { gsub(/"/, "", $i); col[$i] = i }; next }
  $1 ~ /_median"$/ {
    label = $col["label"]; gsub(/"/, "", label)
    if ($1 ~ /host_frames:1\//) { order[++n] = label; bridge[label] = $col["bridge_ms"]; runtime[label] = $col["runtime_ms"] }
    ratio[label, $1 ~ /host_frames:1\// ? 1 : 2] = $col["bridge_over_runtime"]
  }
  END {
    for (k = 1; k <= n; ++k) {
      e = order[k]
      printf "  %-22s %10.3f %11.3f %8.2f %8.2f   (target <= 1.10)\n", e, bridge[e], runtime[e], ratio[e, 1], ratio[e, 2]
    }
  }' "$tmp/bridge.csv"
