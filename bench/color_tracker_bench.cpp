// ColorTracker's cost per 1080p frame beside the cost of copying one frame,
// on one core, in one run: report the ratios, not the absolute times.
//
//   FrameCopy          one 1920x1080 frame copy (what Render does first)
//   TrackerStep        the tracking step alone on a moving 40-pixel disc
//   CopyThenTrack      the copy followed by the step, as in Render
//   WholeScreenScan    the re-scan after the object was lost
//   MatchSpan/...      the match kernels over one 1080p frame, cache cold
//   RowSums/...        the row-moment kernels over one 1080p frame of scores
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "color_tracker_match.h"
#include "color_tracker_moments.h"
#include "color_tracker_scene.h"
#include "color_tracker_search.h"
#include "core/cpu.h"

namespace {

constexpr int32_t kW = 1920, kH = 1080;
constexpr uint32_t kObject = 0x2858D8;
constexpr int32_t kFrames = 16;
constexpr int64_t kWarmUpFrames = 4;  // tracked before timing starts

// Frames of a disc moving 8 pixels a frame to the right and 3 down; played
// back and forth so the motion never jumps.
const std::vector<std::vector<uint32_t>>& Frames() {
  static const std::vector<std::vector<uint32_t>> frames = [] {
    std::vector<std::vector<uint32_t>> f;
    std::vector<uint32_t> background = nimbo::bench::MakeBackground(kW, kH, 5);
    for (int32_t i = 0; i < kFrames; ++i) {
      std::vector<uint32_t> px = background;
      nimbo::bench::PaintDisc(px, kW, kH, 700 + 8.0 * i, 400 + 3.0 * i, 40, kObject);
      nimbo::bench::AddNoise(px, uint32_t(i), 4);
      f.push_back(std::move(px));
    }
    return f;
  }();
  return frames;
}

int32_t PingPong(int64_t n) {
  int64_t k = n % (2 * kFrames - 2);
  return int32_t(k < kFrames ? k : 2 * kFrames - 2 - k);
}

void BM_FrameCopy(benchmark::State& state) {
  const auto& frames = Frames();
  std::vector<uint32_t> out(size_t(kW) * kH);
  int64_t n = 0;
  for (auto _ : state) {
    std::memcpy(out.data(), frames[PingPong(n++)].data(), out.size() * 4);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMicrosecond);

void BM_TrackerStep(benchmark::State& state) {
  auto& frames = const_cast<std::vector<std::vector<uint32_t>>&>(Frames());
  nimbo::CTracker tracker(kW, kH);
  tracker.SetObject(kObject, 30.0f, 20);
  int64_t n = 0, lost = 0;
  // The first frames find the object by scanning the whole picture; the
  // step measured is the one that follows it.
  for (; n < kWarmUpFrames; ++n) tracker.Track(frames[PingPong(n)].data(), 0.04 * double(n));
  for (auto _ : state) {
    nimbo::TrackResult r = tracker.Track(frames[PingPong(n)].data(), 0.04 * double(n));
    lost += r.lost;
    ++n;
    benchmark::DoNotOptimize(r);
  }
  state.counters["lost"] = double(lost);
}
BENCHMARK(BM_TrackerStep)->Unit(benchmark::kMicrosecond);

void BM_CopyThenTrack(benchmark::State& state) {
  const auto& frames = Frames();
  std::vector<uint32_t> out(size_t(kW) * kH);
  nimbo::CTracker tracker(kW, kH);
  tracker.SetObject(kObject, 30.0f, 20);
  int64_t n = 0;
  for (; n < kWarmUpFrames; ++n) {
    std::memcpy(out.data(), frames[PingPong(n)].data(), out.size() * 4);
    tracker.Track(out.data(), 0.04 * double(n));
  }
  for (auto _ : state) {
    std::memcpy(out.data(), frames[PingPong(n)].data(), out.size() * 4);
    benchmark::DoNotOptimize(tracker.Track(out.data(), 0.04 * double(n)));
    ++n;
  }
}
BENCHMARK(BM_CopyThenTrack)->Unit(benchmark::kMicrosecond);

void BM_WholeScreenScan(benchmark::State& state) {
  auto& frames = const_cast<std::vector<std::vector<uint32_t>>&>(Frames());
  nimbo::CTracker tracker(kW, kH);
  tracker.SetObject(kObject, 30.0f, 20);
  int64_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(tracker.ScanWholeScreen(frames[PingPong(n++)].data()));
}
BENCHMARK(BM_WholeScreenScan)->Unit(benchmark::kMicrosecond);

void MatchSpan(benchmark::State& state, nimbo::MatchSpanFn fn) {
  if (!fn) {
    state.SkipWithError("CPU lacks AVX2");
    return;
  }
  const auto& px = Frames()[0];
  std::vector<uint32_t> stamps(px.size(), 0);
  std::vector<uint8_t> scores(px.size(), 0);
  nimbo::MatchParams p = nimbo::ComputeMatchParams(kObject, 30.0f);
  uint32_t stamp = 0;
  for (auto _ : state) {
    fn(px.data(), stamps.data(), scores.data(), int32_t(px.size()), ++stamp, p);  // a new stamp: all pixels computed
    benchmark::ClobberMemory();
  }
}
BENCHMARK_CAPTURE(MatchSpan, Scalar, nimbo::MatchSpanScalar)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(MatchSpan, Sse2, nimbo::MatchSpanSse2)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(MatchSpan, Avx2, nimbo::CpuHasAvx2() ? nimbo::MatchSpanAvx2 : nullptr)
    ->Unit(benchmark::kMicrosecond);

void RowSums(benchmark::State& state, nimbo::RowSumsFn fn, int32_t density) {
  if (!fn) {
    state.SkipWithError("CPU lacks AVX2");
    return;
  }
  // One 1080p frame of scores: every `density`-th score set.
  std::vector<uint8_t> scores(size_t(kW) * kH, 0);
  for (size_t i = 0; i < scores.size(); i += size_t(density))
    scores[i] = uint8_t(1 + nimbo::bench::Hash(uint32_t(i)) % 255);
  for (auto _ : state) {
    benchmark::DoNotOptimize(nimbo::ComputeWindowMoments(scores.data(), kW, kW, kH, fn));
  }
}
BENCHMARK_CAPTURE(RowSums, ScalarDense, nimbo::RowSumsScalar, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RowSums, Avx2Dense, nimbo::CpuHasAvx2() ? nimbo::RowSumsAvx2 : nullptr, 1)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RowSums, ScalarSparse, nimbo::RowSumsScalar, 97)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RowSums, Avx2Sparse, nimbo::CpuHasAvx2() ? nimbo::RowSumsAvx2 : nullptr, 97)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
