// Cost per frame of the 3D engine (begin, texture upload, one quad, present
// into a 1920x1080 Screen) and of ReScaler at 1920x1080 output, on whatever
// device the engine finds (llvmpipe on a machine without a GPU). A plain
// one-core nearest-neighbour stretch of the same sizes runs in the same
// program, so the figures read as ratios on a shared, noisy machine.
//
// The engine is reached the way effects reach it: loaded from the bin
// folder through the package's loader (ORRERY_BIN_PATH, default the build's
// bin folder).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "bench_effects.h"
#include "nb3d/nb3d.h"
#include "orrery/host_context.h"
#include "render3d/engine_loader.h"

namespace {

constexpr int32_t kOutW = 1920;
constexpr int32_t kOutH = 1080;

std::vector<uint32_t> RandomPixels(size_t count) {
  std::mt19937 rng(5);
  std::vector<uint32_t> pixels(count);
  for (uint32_t& p : pixels) p = rng();
  return pixels;
}

struct EngineDeleter {
  void operator()(nb3D* engine) const { engine->Release(); }
};
using EnginePtr = std::unique_ptr<nb3D, EngineDeleter>;

EnginePtr LoadEngine(benchmark::State& state) {
  setenv("ORRERY_BIN_PATH", NIMBO_BIN_DIR, 0);
  EnginePtr engine(nimbo::CreateEngineObject(nullptr));
  if (!engine || !engine->SetOutputSize(kOutW, kOutH) || !engine->Begin()) {
    state.SkipWithError("no engine or no drawing device");
    return nullptr;
  }
  state.SetLabel(engine->GetDeviceName());
  engine->End();
  return engine;
}

// One whole engine frame: begin (clear), upload a w x h input, draw it over
// the output, present, end.
void BM_EngineFrame(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  EnginePtr engine = LoadEngine(state);
  if (!engine) return;
  int32_t tw = 2, th = 2;
  while (tw < w) tw *= 2;
  while (th < h) th *= 2;
  engine->CreateTexture("in", {tw, th, nb3D::kFormatRgba, nb3D::kFilterNearest, nullptr, 0});
  std::vector<uint32_t> input = RandomPixels(size_t(w) * h), output(size_t(kOutW) * kOutH);
  orrery::Screen screen{kOutW, kOutH, output.data()};
  const nb3D::Quad quad{
      -kOutW / 2.0f, -kOutH / 2.0f, kOutW / 2.0f, kOutH / 2.0f, 0, 0, float(w) / tw, float(h) / th, "in", 0, 0};
  auto frame = [&] {
    engine->Begin();
    engine->UpdateTexture("in", 0, 0, w, h, input.data(), w);
    engine->DrawQuad(quad);
    engine->Present(&screen);
    engine->End();
  };
  nimbo::bench::WarmUp(frame, 3);  // the first upload and read back set up the device's buffers
  for (auto _ : state) {
    frame();
    benchmark::DoNotOptimize(output.data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_EngineFrame)->Args({480, 270})->Args({1024, 1024})->Unit(benchmark::kMillisecond)->UseRealTime();

// The parts alone: an empty frame (begin clears, end), and a frame that
// only presents (the read back into the Screen).
void BM_EngineEmptyFrame(benchmark::State& state) {
  EnginePtr engine = LoadEngine(state);
  if (!engine) return;
  std::vector<uint32_t> output(size_t(kOutW) * kOutH);
  orrery::Screen screen{kOutW, kOutH, output.data()};
  const bool present = state.range(0) != 0;
  auto frame = [&] {
    engine->Begin();
    if (present) engine->Present(&screen);
    engine->End();
  };
  nimbo::bench::WarmUp(frame, 3);
  for (auto _ : state) frame();
}
BENCHMARK(BM_EngineEmptyFrame)->Arg(0)->Arg(1)->ArgNames({"present"})->Unit(benchmark::kMillisecond)->UseRealTime();

class BenchHost final : public orrery::HostContext {
 public:
  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return nullptr; }  // defaults: size from the host
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {kOutW, kOutH, 25.0f}; }
  void Notify(int32_t, int32_t) override {}
  void DeclareSlider(const orrery::SliderDesc&) override {}
  void PublishDynVars(orrery::DynVar*) override {}
  void* GetMemory(int32_t, size_t) override { return nullptr; }
  void FreeMemory(int32_t) override {}
  int64_t GetTimeMs() override { return 0; }
  void DescribeSetting(const orrery::SettingInfo&) override {}
};

// ReScaler as a host runs it: the host proposes an input size, ReScaler
// answers the one it wants (1920x1080 is clamped to 1024x1024), then frames.
void BM_ReScaler(benchmark::State& state) {
  setenv("ORRERY_BIN_PATH", NIMBO_BIN_DIR, 0);
  BenchHost host;
  std::unique_ptr<orrery::Effect> effect = nimbo::bench::CreateEffectNamed("ReScaler");
  if (!effect) return state.SkipWithError("no ReScaler in the package");
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  orrery::Size in = effect->GetInputScreenRes(0, int32_t(state.range(0)), int32_t(state.range(1)));
  if (!effect->Initialize()) {
    state.SkipWithError("ReScaler has no engine");
    return;
  }
  std::vector<uint32_t> input = RandomPixels(size_t(in.width) * in.height), output(size_t(kOutW) * kOutH);
  const orrery::Screen in_screen{in.width, in.height, input.data()};
  const orrery::Screen* inputs[1] = {&in_screen};
  orrery::Screen out_screen{kOutW, kOutH, output.data()};
  nimbo::bench::WarmUp([&] { effect->Render({inputs, 1}, &out_screen); }, 3);
  for (auto _ : state) {
    if (!effect->Render({inputs, 1}, &out_screen)) {
      state.SkipWithError("Render failed");
      break;
    }
  }
  char label[64];
  std::snprintf(label, sizeof(label), "input %dx%d", in.width, in.height);
  state.SetLabel(label);
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ReScaler)->Args({480, 270})->Args({1920, 1080})->Unit(benchmark::kMillisecond)->UseRealTime();

// The reference: the same nearest-neighbour stretch on one core, no engine.
void BM_CpuNearestStretch(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  std::vector<uint32_t> input = RandomPixels(size_t(w) * h), output(size_t(kOutW) * kOutH);
  std::vector<int32_t> column(kOutW);
  for (int32_t x = 0; x < kOutW; ++x) column[x] = int32_t(int64_t(x) * w / kOutW);
  for (auto _ : state) {
    for (int32_t y = 0; y < kOutH; ++y) {
      const uint32_t* row = &input[size_t(int64_t(y) * h / kOutH) * w];
      uint32_t* out = &output[size_t(y) * kOutW];
      for (int32_t x = 0; x < kOutW; ++x) out[x] = row[column[x]];
    }
    benchmark::DoNotOptimize(output.data());
  }
}
BENCHMARK(BM_CpuNearestStretch)->Args({480, 270})->Args({1024, 1024})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
