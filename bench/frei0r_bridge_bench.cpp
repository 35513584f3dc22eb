// The frei0r bridge's own cost: Retina Killer, TimeBlur2 and ChromaKeyPRO at
// 1920x1080 through the host runtime as `nimbo render` runs them
// (EffectStage::RenderFrame over host frames) and through their frei0r
// plug-ins (f0r_update over a host's frames, as ffmpeg, MLT and GStreamer call
// it), in one process, so decode and encode are out of both. The ratio
// BM_Frei0r/x over BM_Runtime/x is what the bridge adds (target <= 1.10).
// Both alternate between two source frames, as a video does.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

extern "C" {
#include <frei0r.h>
}

#include <cstdlib>
#include <string>
#include <vector>

#include "runtime/effect_stage.h"
#include "runtime/host_services.h"

namespace {

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
// Frames rendered before timing: the first ones allocate the effects' buffers
// and fill TimeBlur2's ring.
constexpr int kWarmUpFrames = 10;

struct Case {
  const char* effect;
  const char* plugin;  // file in build/lib/frei0r-1
  bool mixer;
};
const Case kCases[] = {
    {"Retina Killer", "nimbo_retina_killer", false},
    {"TimeBlur2", "nimbo_timeblur2", false},
    {"ChromaKeyPRO", "nimbo_chromakeypro", true},
};

std::vector<uint32_t> Frame(uint32_t seed) {
  std::vector<uint32_t> pixels(size_t(kWidth) * kHeight);
  uint32_t x = seed * 2654435761u + 1;
  for (uint32_t& p : pixels) {
    x = x * 1664525u + 1013904223u;
    p = 0xFF000000u | (x >> 8);
  }
  return pixels;
}

const nimbo::host::Package& Package() {
  static const nimbo::host::Package* package = [] {
    nimbo::host::InstallHostServices(NIMBO_PLUGINS_DIR, NIMBO_BIN_DIR);
    return new nimbo::host::Package(NIMBO_PLUGINS_DIR);
  }();
  return *package;
}

void BM_Runtime(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  nimbo::host::EffectStage stage(Package(), Package().Find(c.effect), kWidth, kHeight, 25.0);
  stage.Configure({});
  std::vector<nimbo::host::FrameBuffer> sources(2);
  for (uint32_t i = 0; i < 2; ++i) {
    sources[i].Reset(kWidth, kHeight);
    const std::vector<uint32_t> pixels = Frame(i);
    std::copy(pixels.begin(), pixels.end(), sources[i].pixels.begin());
  }
  int64_t frame = 0;
  auto render = [&] {
    const nimbo::host::FrameBuffer* a = &sources[size_t(frame % 2)];
    const nimbo::host::FrameBuffer* b = &sources[size_t((frame + 1) % 2)];
    std::vector<const nimbo::host::FrameBuffer*> inputs = {a};
    if (c.mixer) inputs.push_back(b);
    stage.RenderFrame(frame++, inputs);
  };
  for (int i = 0; i < kWarmUpFrames; ++i) render();
  for (auto _ : state) render();
  state.SetLabel(c.effect);
}

void BM_Frei0r(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const std::string path = std::string(NIMBO_FREI0R_DIR) + "/" + c.plugin + ".so";
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    state.SkipWithError(("cannot open " + path).c_str());
    return;
  }
  auto init = reinterpret_cast<int (*)()>(dlsym(library, "f0r_init"));
  auto construct = reinterpret_cast<f0r_instance_t (*)(unsigned, unsigned)>(dlsym(library, "f0r_construct"));
  auto destruct = reinterpret_cast<void (*)(f0r_instance_t)>(dlsym(library, "f0r_destruct"));
  auto update2 = reinterpret_cast<void (*)(f0r_instance_t, double, const uint32_t*, const uint32_t*, const uint32_t*,
                                           uint32_t*)>(dlsym(library, "f0r_update2"));
  if (!init || !construct || !destruct || !update2 || !init()) {
    state.SkipWithError("not a frei0r plug-in");
    return;
  }
  f0r_instance_t instance = construct(kWidth, kHeight);
  const std::vector<uint32_t> sources[2] = {Frame(0), Frame(1)};
  // Hosts hand out frames from a pool: a few buffers used in turn.
  std::vector<uint32_t> outputs[2] = {std::vector<uint32_t>(sources[0].size()),
                                      std::vector<uint32_t>(sources[0].size())};
  int64_t frame = 0;
  auto render = [&] {
    const uint32_t* a = sources[frame % 2].data();
    const uint32_t* b = c.mixer ? sources[(frame + 1) % 2].data() : nullptr;
    update2(instance, double(frame) / 25.0, a, b, nullptr, outputs[frame % 2].data());
    ++frame;
  };
  for (int i = 0; i < kWarmUpFrames; ++i) render();
  for (auto _ : state) render();
  destruct(instance);
  state.SetLabel(c.effect);
}

BENCHMARK(BM_Runtime)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Frei0r)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
