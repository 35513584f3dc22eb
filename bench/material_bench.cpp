// Building a material texture: a 1024 x 1024 picture layer with blur 0.3
// (five 3x3 passes) and both sphere light maps, whole and per kernel, with
// the scalar reference against the SIMD kernels this CPU gets. Target: the
// whole build under 40 ms on one core.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "render3d/material.h"
#include "render3d/material_kernels.h"
#include "render3d/texture_build.h"

namespace {

using namespace nimbo;

constexpr int32_t kSide = 1024;

std::vector<uint32_t> Picture() {
  std::vector<uint32_t> p(size_t(kSide) * kSide);
  std::mt19937 rng(3);
  for (uint32_t& v : p) v = rng() | 0xFF000000u;
  return p;
}

TextureLayer Layer() {
  TextureLayer t = DefaultMaterial().tex[0];
  t.blur = 0.3f;
  t.l_x = 0.3f, t.l_y = -0.4f;
  return t;
}

// Argument 0 = the scalar reference, 1 = SSE2, 2 = the best this CPU has.
const MaterialKernels& Kernels(const benchmark::State& state) {
  switch (state.range(0)) {
    case 0: return MaterialKernelsScalar();
    case 1: return MaterialKernelsSse2();
    default: return MaterialKernelsBest();
  }
}

void BM_PictureLayer(benchmark::State& state) {
  const MaterialKernels& k = Kernels(state);
  const std::vector<uint32_t> source = Picture();
  std::vector<uint32_t> pixels = source, scratch;
  const TextureLayer layer = Layer();
  for (auto _ : state) {
    state.PauseTiming();
    pixels = source;
    state.ResumeTiming();
    FinishPictureLayer(pixels.data(), kSide, kSide, kSide, layer, true, k, scratch);
    benchmark::DoNotOptimize(pixels.data());
  }
  state.SetLabel(k.name);
}

void BM_BlurPass(benchmark::State& state) {
  const MaterialKernels& k = Kernels(state);
  std::vector<uint32_t> pixels = Picture(), scratch;
  for (auto _ : state) {
    BlurPicture(pixels.data(), kSide, kSide, kSide, 1, k, scratch);
    benchmark::DoNotOptimize(pixels.data());
  }
  state.SetLabel(k.name);
}

void BM_LightMap(benchmark::State& state) {
  const MaterialKernels& k = Kernels(state);
  std::vector<uint32_t> map(size_t(kSide) * kSide);
  const TextureLayer layer = Layer();
  for (auto _ : state) {
    BuildLightMap(map.data(), kSide, kSide, layer, k);
    benchmark::DoNotOptimize(map.data());
  }
  state.SetLabel(k.name);
}

void BM_ApplyLightMap(benchmark::State& state) {
  const MaterialKernels& k = Kernels(state);
  std::vector<uint32_t> pixels = Picture(), map = Picture();
  for (auto _ : state) {
    ApplyLightMap(map.data(), pixels.data(), kSide, kSide, kSide, k);
    benchmark::DoNotOptimize(pixels.data());
  }
  state.SetLabel(k.name);
}

BENCHMARK(BM_PictureLayer)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlurPass)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LightMap)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ApplyLightMap)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
