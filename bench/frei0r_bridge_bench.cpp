// The frei0r bridge's own cost, for every image effect at 1920x1080: the
// effect through the host runtime as `nimbo render` runs it
// (EffectStage::RenderFrame over the frames a decoder hands it) and through
// its frei0r plug-in (f0r_update over a host's frames, as ffmpeg, MLT and
// GStreamer call it), in one process, so decode and encode are out of both.
//
// Each iteration renders one frame both ways, one after the other, and
// times each with the process's CPU clock: on a shared, noisy machine the
// two figures then see the same load, and their ratio (the counter
// "bridge_over_runtime", target <= 1.10) is what the bridge adds. The
// process clock, not the thread's, because the effects that draw (ReScaler)
// have the engine's rasteriser threads do most of their work, and each frame
// is finished (read back) before its call returns.
//
// Both sides alternate between two source frames, as a video does. The
// host's frames are 64-byte aligned, as ffmpeg's frame pool hands them out.
// The second argument is how many output frames the host uses in turn: 1 is
// ffmpeg's and MLT's pools when each frame is consumed before the next is
// asked for (a frame returned to the pool is the next one handed out), 2 a
// host that keeps the previous frame while the next is rendered; the runtime
// renders into its one output frame either way.
//
// An input the effect asks for at another size (ReScaler: 1024x1024 at
// 1080p) is where the two hosts differ, so the third argument says where the
// runtime's frames come from. 0: already at the asked size, as nimbo's
// decoder delivers a YUV clip, whose conversion to the screen layout does the
// scaling in the same pass (decoding, not counted). 1: the same 1080p BGRA
// frames the plug-in gets, scaled to the asked size by the host as `nimbo
// render`'s input does for a BGRA clip (the same swscale call), and counted.
// The bridge always scales the host's frame itself and pays for it.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <time.h>

extern "C" {
#include <frei0r.h>
}

#include <cstdlib>
#include <string>
#include <vector>

#include "media/frame_scaler.h"
#include "runtime/effect_stage.h"
#include "runtime/host_services.h"

namespace {

using nimbo::host::FrameBuffer;

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
constexpr double kFps = 25.0;
// Frames rendered before timing: the first ones allocate the effects' buffers
// and fill TimeBlur2's ring.
constexpr int kWarmUpFrames = 10;

struct Case {
  const char* effect;
  const char* plugin;  // file in build/lib/frei0r-1
  bool mixer;
};
// The image effects, each once (ChromaKeyPRO as the two-input mixer).
const Case kCases[] = {
    {"ReScaler", "nimbo_rescaler", false},
    {"LoPass", "nimbo_lopass", false},
    {"TimeBlur2", "nimbo_timeblur2", false},
    {"Fast h-Blur", "nimbo_fast_h_blur", false},
    {"RGB Displacer", "nimbo_rgb_displacer", false},
    {"ColorReducer", "nimbo_colorreducer", false},
    {"Glitter", "nimbo_glitter", false},
    {"Retina Killer", "nimbo_retina_killer", false},
    {"ChromaKeyPRO", "nimbo_chromakeypro", true},
    {"XtractAlpha", "nimbo_xtractalpha", false},
    {"ColorTrafo", "nimbo_colortrafo", false},
    {"ColorTracker", "nimbo_colortracker", false},
    {"Distorter", "nimbo_distorter", false},
    {"LowQ", "nimbo_lowq", false},
};

FrameBuffer Frame(uint32_t seed) {
  FrameBuffer frame(kWidth, kHeight);
  uint32_t x = seed * 2654435761u + 1;
  for (uint32_t& p : frame.pixels) {
    x = x * 1664525u + 1013904223u;
    p = 0xFF000000u | (x >> 8);
  }
  return frame;
}

const nimbo::host::Package& Package() {
  static const nimbo::host::Package* package = [] {
    nimbo::host::InstallHostServices(NIMBO_PLUGINS_DIR, NIMBO_BIN_DIR);
    return new nimbo::host::Package(NIMBO_PLUGINS_DIR);
  }();
  return *package;
}

double ProcessSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// The plug-in as a host opens it: dlopen and the f0r_* functions.
struct Plugin {
  f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
  void (*destruct)(f0r_instance_t) = nullptr;
  void (*update2)(f0r_instance_t, double, const uint32_t*, const uint32_t*, const uint32_t*, uint32_t*) = nullptr;

  bool Open(const std::string& file) {
    const std::string path = std::string(NIMBO_FREI0R_DIR) + "/" + file + ".so";
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) return false;
    auto init = reinterpret_cast<int (*)()>(dlsym(library, "f0r_init"));
    construct = reinterpret_cast<decltype(construct)>(dlsym(library, "f0r_construct"));
    destruct = reinterpret_cast<decltype(destruct)>(dlsym(library, "f0r_destruct"));
    update2 = reinterpret_cast<decltype(update2)>(dlsym(library, "f0r_update2"));
    return init && construct && destruct && update2 && init();
  }
};

void BM_BridgeOverRuntime(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  Plugin plugin;
  if (!plugin.Open(c.plugin)) {
    state.SkipWithError("cannot open the plug-in");
    return;
  }
  const FrameBuffer sources[2] = {Frame(0), Frame(1)};

  const bool runtime_scales = state.range(2) != 0;
  nimbo::host::EffectStage stage(Package(), Package().Find(c.effect), kWidth, kHeight, kFps);
  stage.Configure({});
  // What the decoder would hand the runtime: each input at the size the effect asked for.
  std::vector<std::vector<FrameBuffer>> decoded(size_t(stage.InputCount()));
  std::vector<nimbo::host::FrameScaler> input_scalers(size_t(stage.InputCount()));
  for (int32_t i = 0; i < stage.InputCount(); ++i) {
    const orrery::Size size = stage.InputSize(i);
    for (const FrameBuffer& source : sources)
      input_scalers[size_t(i)].Scale(source, decoded[size_t(i)].emplace_back(), size.width, size.height);
  }

  f0r_instance_t instance = plugin.construct(kWidth, kHeight);
  if (!instance) {
    state.SkipWithError("the plug-in made no instance");
    return;
  }
  std::vector<FrameBuffer> outputs(size_t(state.range(1)), FrameBuffer(kWidth, kHeight));

  int64_t frame = 0;
  double runtime_seconds = 0, bridge_seconds = 0;
  auto render = [&] {
    std::vector<const FrameBuffer*> inputs;
    for (int32_t i = 0; i < stage.InputCount(); ++i) inputs.push_back(&decoded[size_t(i)][size_t((frame + i) % 2)]);
    const double t0 = ProcessSeconds();
    if (runtime_scales) {
      for (int32_t i = 0; i < stage.InputCount(); ++i) {
        const orrery::Size size = stage.InputSize(i);
        FrameBuffer& scaled = decoded[size_t(i)][size_t((frame + i) % 2)];
        input_scalers[size_t(i)].Scale(sources[size_t((frame + i) % 2)], scaled, size.width, size.height);
      }
    }
    stage.RenderFrame(frame, inputs);
    const double t1 = ProcessSeconds();
    const uint32_t* a = sources[frame % 2].pixels.data();
    const uint32_t* b = c.mixer ? sources[(frame + 1) % 2].pixels.data() : nullptr;
    plugin.update2(instance, double(frame) / kFps, a, b, nullptr,
                   outputs[size_t(frame) % outputs.size()].pixels.data());
    const double t2 = ProcessSeconds();
    ++frame;
    runtime_seconds += t1 - t0;
    bridge_seconds += t2 - t1;
  };
  for (int i = 0; i < kWarmUpFrames; ++i) render();
  runtime_seconds = bridge_seconds = 0;
  for (auto _ : state) render();
  plugin.destruct(instance);

  const double frames = double(state.iterations());
  state.counters["runtime_ms"] = runtime_seconds * 1000.0 / frames;
  state.counters["bridge_ms"] = bridge_seconds * 1000.0 / frames;
  state.counters["bridge_over_runtime"] = runtime_seconds > 0 ? bridge_seconds / runtime_seconds : 0.0;
  state.SetLabel(runtime_scales ? std::string(c.effect) + " same frames" : std::string(c.effect));
}

BENCHMARK(BM_BridgeOverRuntime)
    ->ArgsProduct({benchmark::CreateDenseRange(0, int(std::size(kCases)) - 1, 1), {1, 2}, {0}})
    ->Args({0, 1, 1})  // ReScaler over the host's own 1080p frames on both sides
    ->Args({0, 2, 1})
    ->ArgNames({"effect", "host_frames", "runtime_scales"})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
