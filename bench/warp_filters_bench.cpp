// Per-frame cost at 1920x1080 of Distorter's sampling (nearest, bilinear,
// scalar and SIMD), its map build, and the RGB Displacer, ColorReducer and
// Glitter effects, beside a plain frame copy measured in the same run.
// Compare ratios to the copy, not absolute times: the machines are shared.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_effects.h"
#include "distorter_map.h"
#include "distorter_sample.h"
#include "orrery/effect.h"
#include "runtime/aligned_vector.h"
#include "runtime/effect_host.h"

namespace {

// Frames and effect memory 64-byte aligned, as the nimbo host gives them.
template <class T>
using Buffer = nimbo::host::AlignedVector<T>;

constexpr int kW = 1920, kH = 1080;

Buffer<uint32_t> RandomFrame(int w, int h, uint32_t seed) {
  Buffer<uint32_t> f(size_t(w) * h);
  std::mt19937 rng(seed);
  for (uint32_t& p : f) p = rng();
  return f;
}

void BM_FrameCopy(benchmark::State& state) {
  Buffer<uint32_t> in = RandomFrame(kW, kH, 1), out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size() * 4);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

// A swirl-like morph of four line pairs: a realistic spread of positions.
std::vector<nimbo::distorter::LinePair> DemoLines(float w, float h) {
  using nimbo::distorter::LinePair;
  std::vector<LinePair> lines(4);
  lines[0].l1 = {{0.2f * w, 0.2f * h}, {0.8f * w, 0.2f * h}};
  lines[0].l2 = {{0.25f * w, 0.3f * h}, {0.8f * w, 0.15f * h}};
  lines[1].l1 = {{0.8f * w, 0.2f * h}, {0.8f * w, 0.8f * h}};
  lines[1].l2 = {{0.7f * w, 0.25f * h}, {0.85f * w, 0.8f * h}};
  lines[2].l1 = {{0.8f * w, 0.8f * h}, {0.2f * w, 0.8f * h}};
  lines[2].l2 = {{0.75f * w, 0.7f * h}, {0.2f * w, 0.85f * h}};
  lines[3].l1 = {{0.2f * w, 0.8f * h}, {0.2f * w, 0.2f * h}};
  lines[3].l2 = {{0.3f * w, 0.75f * h}, {0.15f * w, 0.2f * h}};
  return lines;
}

struct SamplingRig {
  SamplingRig() : in(RandomFrame(kW, kH, 2)), out(in.size()), a(in.size()), b(in.size()) {
    nimbo::distorter::BuildMorphMap(DemoLines(kW, kH), kW, kH, kW, kH, a.data());
    nimbo::distorter::BuildMorphMap({}, kW, kH, kW, kH, b.data());
  }
  Buffer<uint32_t> in, out, a, b;
};

// Arg 0: 0 scalar, 1 SSE2, 2 best (AVX2 where present). Arg 1: filtering.
// Sampling needs no preparation: this is the whole per-frame cost.
void BM_DistorterSampling(benchmark::State& state) {
  static SamplingRig rig;
  using namespace nimbo::distorter;
  const SampleKernels kernels = state.range(0) == 0   ? ScalarSampleKernels()
                                : state.range(0) == 1 ? Sse2SampleKernels()
                                                      : ActiveSampleKernels();
  const bool filtering = state.range(1) != 0;
  for (auto _ : state) {
    const SampleParams p{rig.in.data(), kW, kH, 12345};
    SampleFrame(kernels, rig.a.data(), rig.b.data(), rig.out.data(), kW, kH, p, filtering);
    benchmark::DoNotOptimize(rig.out.data());
  }
}
BENCHMARK(BM_DistorterSampling)
    ->ArgsProduct({{0, 1, 2}, {0, 1}})
    ->ArgNames({"simd", "filter"})
    ->Unit(benchmark::kMillisecond);

// The best bilinear kernel on a 480x64 frame with the same morph: input,
// maps and output (about 0.5 MB) stay in the cache, so this is the kernel's
// arithmetic without the memory traffic.
void BM_DistorterBilinear_InCache(benchmark::State& state) {
  constexpr int kSmallW = 480, kSmallH = 64;
  const Buffer<uint32_t> in = RandomFrame(kSmallW, kSmallH, 2);
  Buffer<uint32_t> out(in.size()), a(in.size()), b(in.size());
  nimbo::distorter::BuildMorphMap(DemoLines(kSmallW, kSmallH), kSmallW, kSmallH, kSmallW, kSmallH, a.data());
  nimbo::distorter::BuildMorphMap({}, kSmallW, kSmallH, kSmallW, kSmallH, b.data());
  const nimbo::distorter::SampleKernels& kernels = nimbo::distorter::ActiveSampleKernels();
  for (auto _ : state) {
    const nimbo::distorter::SampleParams p{in.data(), kSmallW, kSmallH, 12345};
    SampleFrame(kernels, a.data(), b.data(), out.data(), kSmallW, kSmallH, p, true);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_DistorterBilinear_InCache)->Unit(benchmark::kMicrosecond);

// Arg 0: line pairs; arg 1: 0 scalar field kernel, 1 best (AVX2 where
// present). Both use the build's two threads: wall time is what the user
// waits, CPU time the work.
void BM_DistorterMapBuild(benchmark::State& state) {
  const auto lines = DemoLines(kW, kH);
  const auto kernel = state.range(1) == 0 ? nimbo::distorter::MapKernel::kScalar : nimbo::distorter::MapKernel::kBest;
  Buffer<uint32_t> map(size_t(kW) * kH);
  for (auto _ : state) {
    nimbo::distorter::BuildMorphMap(std::span(lines.data(), size_t(state.range(0))), kW, kH, kW, kH, map.data(),
                                    kernel);
    benchmark::DoNotOptimize(map.data());
  }
}
BENCHMARK(BM_DistorterMapBuild)
    ->ArgsProduct({{0, 1, 4}, {0, 1}})
    ->ArgNames({"pairs", "simd"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// ---- whole effects through the interface ----------------------------------------

// One effect of the package, found by its name, over a frame of random
// pixels; frames rendered before the timed loop take the first frames'
// allocations (Distorter's maps) out of the figure.
void BM_Effect(benchmark::State& state, const char* name) {
  nimbo::host::EffectHost host(kW, kH, 25.0);
  std::unique_ptr<orrery::Effect> effect = nimbo::bench::CreateEffectNamed(name);
  if (!effect) return state.SkipWithError("no such effect");
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  effect->Initialize();
  Buffer<uint32_t> in = RandomFrame(kW, kH, 3), out(in.size());
  // Mostly dark with bright speckles, so Glitter has something to find.
  for (size_t i = 0; i < in.size(); ++i) in[i] = (i % 97 == 0) ? 0xFFFFFFFFu : (in[i] & 0xFF7F7F7Fu);
  orrery::Screen src{kW, kH, in.data()}, dst{kW, kH, out.data()};
  const orrery::Screen* inputs[] = {&src};
  orrery::InputList list{inputs, 1};
  nimbo::bench::WarmUp([&] { effect->Render(list, &dst); });
  for (auto _ : state) {
    effect->Render(list, &dst);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetLabel(effect->GetName());
}
BENCHMARK_CAPTURE(BM_Effect, Distorter, "Distorter")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Effect, RGBDisplacer, "RGB Displacer")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Effect, ColorReducer, "ColorReducer")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Effect, Glitter, "Glitter")->Unit(benchmark::kMillisecond);

// For bench/distorter_vs_remap.sh: the demo morph's map at 1920x1080 as
// the peers take it: xmap.pgm / ymap.pgm (16-bit whole-pixel positions, what
// ffmpeg's remap reads) and xmap.f32 / ymap.f32 (exact positions as floats,
// from which OpenCV builds its fixed-point maps).
int WriteMaps(const std::string& dir) {
  Buffer<uint32_t> map(size_t(kW) * kH);
  nimbo::distorter::BuildMorphMap(DemoLines(kW, kH), kW, kH, kW, kH, map.data());
  for (int axis = 0; axis < 2; ++axis) {
    const std::string name = dir + (axis == 0 ? "/xmap" : "/ymap");
    std::FILE* pgm = std::fopen((name + ".pgm").c_str(), "wb");
    std::FILE* f32 = std::fopen((name + ".f32").c_str(), "wb");
    if (!pgm || !f32) {
      std::fprintf(stderr, "cannot write maps into %s\n", dir.c_str());
      if (pgm) std::fclose(pgm);
      if (f32) std::fclose(f32);
      return 1;
    }
    std::fprintf(pgm, "P5\n%d %d\n65535\n", kW, kH);
    for (uint32_t e : map) {
      const uint32_t v = axis == 0 ? e >> 16 : e & 0xFFFF;
      const uint8_t whole[2] = {uint8_t((v >> 4) >> 8), uint8_t(v >> 4)};  // big-endian
      const float exact = float(v) / 16.0f;
      std::fwrite(whole, 1, 2, pgm);
      std::fwrite(&exact, sizeof exact, 1, f32);
    }
    std::fclose(pgm);
    std::fclose(f32);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--write-maps") return WriteMaps(argv[2]);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
