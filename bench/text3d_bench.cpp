// Text3D with a 40-character line at a 64-pixel font, animated (wave and
// spin), at 640 x 480 through the engine (Mesa's software renderer where
// there is no GPU), rendered through the package as a host does:
//   - the first frame of a fresh effect (every glyph outline flattened,
//     tessellated and extruded, then drawn);
//   - the glyph meshes of the line alone, built from an empty cache;
//   - a frame once the glyphs are cached.
// Frames count the processor time of every thread of the process (the
// software renderer rasterises on threads of its own). A 640 x 480 frame copy is measured in the same run so the figures read as
// ratios on a shared machine. Targets: a cached frame at 60 frames a second
// (16.7 ms), the first frame under 50 ms.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <cstring>
#include <memory>
#include <sys/resource.h>
#include <vector>

#include "bench_effects.h"
#include "runtime/effect_host.h"
#include "text_layout.h"

namespace {

constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;
constexpr const char* kLine = "Sphinx of black quartz, judge my vow now";  // 40 characters
constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

void BM_FrameCopy640x480(benchmark::State& state) { nimbo::bench::CopyFrames(state, kWidth, kHeight); }
BENCHMARK(BM_FrameCopy640x480)->Unit(benchmark::kMillisecond);

void BM_GlyphMeshes40Chars(benchmark::State& state) {
  const std::vector<uint32_t> codepoints = nimbo::text3d::DecodeUtf8(kLine, 100);
  size_t letters = 0;
  for (auto _ : state) {
    nimbo::text3d::GlyphCache cache;
    nimbo::text3d::GlyphSet* set = cache.Select(kFont, 64, 16, nullptr);
    if (!set) return state.SkipWithError("no DejaVu Sans (fonts-dejavu-core)");
    letters = nimbo::text3d::LayOut(*set, codepoints).letters.size();
    benchmark::DoNotOptimize(letters);
  }
  state.counters["letters"] = double(letters);
}
BENCHMARK(BM_GlyphMeshes40Chars)->Unit(benchmark::kMillisecond);

// An effect set up with the line, animated, its engine initialised.
struct TextEffect {
  nimbo::host::EffectHost host{kWidth, kHeight, 25.0};
  std::unique_ptr<orrery::Effect> fx;
  std::vector<uint32_t> background = std::vector<uint32_t>(size_t(kWidth) * kHeight, 0xFF204060u);
  std::vector<uint32_t> pixels = std::vector<uint32_t>(size_t(kWidth) * kHeight);
  int64_t frame = 0;

  bool Start() {
    setenv("ORRERY_BIN_PATH", NIMBO_BIN_DIR, 0);
    nimbo::SettingsDocument& store = host.Store();
    store.BeginWriting();
    store.SetInt("!", 1);
    store.SetString("text", kLine);
    store.SetInt("size", 64);
    store.SetInt("bgtype", 1);
    fx = nimbo::bench::CreateEffectNamed("Text3D");
    if (!fx) return false;
    fx->SetHostContext(&host);
    fx->UpdateConfig();
    if (orrery::DynVar* spin = host.FindDynVar("Spin speed")) spin->value = 0.3f;
    return fx->Initialize() != 0;
  }
  bool Render() {
    orrery::Screen bg{kWidth, kHeight, background.data()}, out{kWidth, kHeight, pixels.data()};
    const orrery::Screen* screens[] = {&bg, nullptr, nullptr, nullptr};
    host.SetFrame(frame++);
    return fx->Render(orrery::InputList{screens, 4}, &out) != 0;
  }
};

// Processor time of every thread of the process, in milliseconds.
double ProcessCpuMs() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) * 1e3 + double(t.tv_nsec) * 1e-6;
}

// Pages the process touched for the first time (minor page faults): on a
// virtual machine each costs tens of microseconds, and a process's first
// frame takes many (new texture storage, the renderer's first code).
double MinorFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_minflt);
}

// The very first Text3D of a process, in its phases (wall and processor
// milliseconds as counters): the engine's start in Initialize (loading the
// engine and Mesa, the EGL context, the shader programs) and the first
// frame (opening the font, the glyph meshes, the software renderer's code
// for the first draws). Run it alone (--benchmark_filter=ProcessFirst) in
// a fresh process: later runs in the same process find everything loaded.
// The renderer's code for the first draws comes partly from Mesa's shader
// cache on disk: with an empty cache (a fresh machine, or
// MESA_SHADER_CACHE_DISABLE=true) the first frame takes about three times
// as long, almost all of it in LLVM.
void BM_ProcessFirstFrame640x480(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  auto ms_since = [](Clock::time_point t0) { return std::chrono::duration<double, std::milli>(Clock::now() - t0).count(); };
  for (auto _ : state) {
    TextEffect effect;
    const Clock::time_point t0 = Clock::now();
    const double c0 = ProcessCpuMs(), f0 = MinorFaults();
    if (!effect.Start()) return state.SkipWithError("no Text3D or no engine");
    const Clock::time_point t1 = Clock::now();
    const double c1 = ProcessCpuMs(), f1 = MinorFaults();
    if (!effect.Render()) return state.SkipWithError("Render failed");
    state.counters["start_wall_ms"] = std::chrono::duration<double, std::milli>(t1 - t0).count();
    state.counters["start_cpu_ms"] = c1 - c0;
    state.counters["frame_wall_ms"] = ms_since(t1);
    state.counters["frame_cpu_ms"] = ProcessCpuMs() - c1;
    state.counters["start_faults"] = f1 - f0;
    state.counters["frame_faults"] = MinorFaults() - f1;
  }
}
BENCHMARK(BM_ProcessFirstFrame640x480)->Unit(benchmark::kMillisecond)->Iterations(1)->MeasureProcessCPUTime();

void BM_FirstFrame640x480(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto effect = std::make_unique<TextEffect>();
    if (!effect->Start()) return state.SkipWithError("no Text3D or no engine");
    state.ResumeTiming();
    if (!effect->Render()) return state.SkipWithError("Render failed");
    state.PauseTiming();
    effect.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_FirstFrame640x480)->Unit(benchmark::kMillisecond)->Iterations(20)->MeasureProcessCPUTime();

void BM_AnimatedFrame640x480(benchmark::State& state) {
  TextEffect effect;
  if (!effect.Start()) return state.SkipWithError("no Text3D or no engine");
  nimbo::bench::WarmUp([&] { return effect.Render(); });
  for (auto _ : state) {
    if (!effect.Render()) return state.SkipWithError("Render failed");
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AnimatedFrame640x480)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
