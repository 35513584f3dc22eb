// What the effect benchmarks share: effects found by their name through the
// package's registry (indices change when effects are added; names do not),
// and the frames rendered before timing starts.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/registry.h"
#include "orrery/effect.h"

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
