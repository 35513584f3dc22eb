// Donkey's tunnel (seen from inside, its texture scrolling and turning) at
// 1280 x 720 through the engine (Mesa's software renderer where there is no
// GPU), rendered through the package as a host does: a 1280 x 720 clip on
// the texture input and on the background, counting the processor time of
// every thread of the process (the software renderer rasterises on threads
// of its own). A 1280 x 720 frame copy is measured in the same run, so the figures read as ratios on a shared
// machine. Target: 30 frames a second (33.3 ms).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "bench_effects.h"
#include "runtime/effect_host.h"

namespace {

constexpr int32_t kWidth = 1280;
constexpr int32_t kHeight = 720;
constexpr int32_t kTunnel = 4;  // the "shape" setting's tunnel

void BM_FrameCopy1280x720(benchmark::State& state) { nimbo::bench::CopyFrames(state, kWidth, kHeight); }
BENCHMARK(BM_FrameCopy1280x720)->Unit(benchmark::kMillisecond);

void BM_Tunnel1280x720(benchmark::State& state) {
  setenv("ORRERY_BIN_PATH", NIMBO_BIN_DIR, 0);
  nimbo::host::EffectHost host(kWidth, kHeight, 25.0);
  nimbo::SettingsDocument& store = host.Store();
  store.BeginWriting();
  store.SetInt("!", 1);
  store.SetInt("shape", kTunnel);
  std::unique_ptr<orrery::Effect> fx = nimbo::bench::CreateEffectNamed("Donkey");
  if (!fx) return state.SkipWithError("no Donkey in the package");
  fx->SetHostContext(&host);
  fx->UpdateConfig();
  if (!fx->Initialize()) return state.SkipWithError("no engine");
  // Two pictures in turn, as a clip's frames come.
  std::vector<uint32_t> clip[2], pixels(size_t(kWidth) * kHeight);
  for (int c = 0; c < 2; ++c) {
    clip[c].resize(pixels.size());
    for (size_t k = 0; k < pixels.size(); ++k) clip[c][k] = 0xFF000000u | uint32_t((k + size_t(c) * 7) * 2654435761u >> 8);
  }
  orrery::Screen out{kWidth, kHeight, pixels.data()};
  int64_t frame = 0;
  auto render = [&] {
    const orrery::Screen in{kWidth, kHeight, clip[frame & 1].data()};
    const orrery::Screen* screens[] = {&in, &in, &in};
    host.SetFrame(frame++);
    return fx->Render(orrery::InputList{screens, 3}, &out) != 0;
  };
  nimbo::bench::WarmUp(render);
  for (auto _ : state) {
    if (!render()) return state.SkipWithError("Render failed");
    benchmark::ClobberMemory();
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Tunnel1280x720)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
