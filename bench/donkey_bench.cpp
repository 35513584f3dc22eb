// Donkey's tunnel (seen from inside, its texture scrolling and turning) at
// 1280 x 720 through the engine (Mesa's software renderer where there is no
// GPU), rendered through the package as a host does: a 1280 x 720 clip on
// the texture input and on the background, counting the processor time of
// every thread of the process (the software renderer rasterises on threads
// of its own). A 1280 x 720 frame copy is measured in the same run, so the figures read as ratios on a shared
// machine. Target: 30 frames a second (33.3 ms).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_effects.h"

namespace {

constexpr int32_t kWidth = 1280;
constexpr int32_t kHeight = 720;
constexpr int32_t kTunnel = 4;  // the "shape" setting's tunnel

void BM_FrameCopy1280x720(benchmark::State& state) { nimbo::bench::CopyFrames(state, kWidth, kHeight); }
BENCHMARK(BM_FrameCopy1280x720)->Unit(benchmark::kMillisecond);

void BM_Tunnel1280x720(benchmark::State& state) {
  nimbo::bench::HostedEffect effect(kWidth, kHeight);
  const std::string why =
      effect.Start("Donkey", [](nimbo::SettingsDocument& store) { store.SetInt("shape", kTunnel); });
  if (!why.empty()) return state.SkipWithError(why.c_str());
  // Two pictures in turn, as a clip's frames come.
  const size_t size = size_t(kWidth) * kHeight;
  std::vector<uint32_t> clip[2] = {nimbo::bench::NoisePixels(size, 0), nimbo::bench::NoisePixels(size, 7)};
  std::vector<uint32_t> pixels(size);
  orrery::Screen out{kWidth, kHeight, pixels.data()};
  nimbo::bench::TimeFrames(state, [&] {
    const orrery::Screen in{kWidth, kHeight, clip[effect.Frame() & 1].data()};
    const orrery::Screen* screens[] = {&in, &in, &in};
    return effect.Render({screens, 3}, &out);
  });
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Tunnel1280x720)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
