// What the effect benchmarks share: effects found by their name through the
// package's registry (indices change when effects are added; names do not),
// an effect set up and rendered as a host does it, the frames rendered
// before timing starts, and the frame copy their figures are read against.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/registry.h"
#include "framework/settings_document.h"
#include "orrery/effect.h"
#include "runtime/effect_host.h"

namespace nimbo::bench {

// A new effect whose name ends in `name` after the last backslash, as
// `nimbo list` shows it ("TimeBlur2", "Retina Killer"); null when the
// package has none.
inline std::unique_ptr<orrery::Effect> CreateEffectNamed(std::string_view name) {
  const Registry& registry = PackageRegistry();
  for (int32_t i = 0; i < registry.Count(); ++i) {
    std::unique_ptr<orrery::Effect> effect(registry.Create(i));
    if (!effect) continue;
    const std::string_view full = effect->GetName();
    const size_t slash = full.rfind('\\');
    if (full.substr(slash == std::string_view::npos ? 0 : slash + 1) == name) return effect;
  }
  return nullptr;
}

// Frames rendered before the timed loop: the first frames allocate and
// touch the effect's buffers (and fill TimeBlur2's ring), which a benchmark
// of the per-frame cost must not count.
inline constexpr int kWarmUpFrames = 10;

template <class RenderFrame>
void WarmUp(RenderFrame render_frame, int frames = kWarmUpFrames) {
  for (int i = 0; i < frames; ++i) render_frame();
}

// Warm-up frames, then one frame a timed iteration; a frame that fails
// ends the benchmark with an error instead of a figure.
template <class RenderFrame>
void TimeFrames(benchmark::State& state, RenderFrame render_frame) {
  WarmUp(render_frame);
  for (auto _ : state) {
    if (!render_frame()) return state.SkipWithError("Render failed");
    benchmark::ClobberMemory();
  }
}

// One effect of the package as a host runs it, at width x height and 25
// frames a second: the settings a benchmark gives are written into its store
// first (as a preset is), then come the configuration exchange and
// Initialize, then frames on the host's clock. The 3D effects load the
// engine from the build's bin folder.
class HostedEffect {
 public:
  HostedEffect(int32_t width, int32_t height) : host_(width, height, 25.0) {}

  // Starts the effect named `name` (as CreateEffectNamed finds it) with the
  // settings `write_settings(store)` writes: "" when it is ready to render,
  // else why not (for SkipWithError).
  template <class WriteSettings>
  std::string Start(std::string_view name, WriteSettings write_settings) {
    setenv("ORRERY_BIN_PATH", NIMBO_BIN_DIR, 0);
    SettingsDocument& store = host_.Store();
    store.BeginWriting();
    store.SetInt("!", 1);
    write_settings(store);
    fx_ = CreateEffectNamed(name);
    if (!fx_) return "no " + std::string(name) + " in the package";
    fx_->SetHostContext(&host_);
    fx_->UpdateConfig();
    return fx_->Initialize() ? "" : "no engine";
  }

  // The next frame: the host's clock moves on one frame, then the effect
  // renders; false when it reports a failure.
  bool Render(const orrery::InputList& inputs, orrery::Screen* out) {
    host_.SetFrame(frame_++);
    return fx_->Render(inputs, out) != 0;
  }
  int64_t Frame() const { return frame_; }
  host::EffectHost& Host() { return host_; }

 private:
  host::EffectHost host_;
  std::unique_ptr<orrery::Effect> fx_;
  int64_t frame_ = 0;
};

// `count` opaque pixels of hashed colours, different for each `seed`: a
// picture with no two neighbours alike, as a texture or a clip's frame.
inline std::vector<uint32_t> NoisePixels(size_t count, size_t seed = 0) {
  std::vector<uint32_t> pixels(count);
  for (size_t k = 0; k < count; ++k) pixels[k] = 0xFF000000u | uint32_t((k + seed) * 2654435761u >> 8);
  return pixels;
}

// The reference the effect benchmarks time beside their frames, so their
// figures read as ratios on a shared machine: one copy of a width x height
// frame of 32-bit pixels.
inline void CopyFrames(benchmark::State& state, int32_t width, int32_t height) {
  std::vector<uint32_t> a(size_t(width) * size_t(height), 0x01020304u), b(a.size());
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), a.size() * 4);
    benchmark::ClobberMemory();
  }
}

}  // namespace nimbo::bench
