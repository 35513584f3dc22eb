// WAXRotate's resampling of a 64^3 volume (target: under 4 ms on one core):
// a ball filling a third of the volume and a volume solid to its border,
// each turned by an odd angle with scale, and by a quarter turn; beside them
// the copy of one volume (1 MiB) as the yardstick measured in the same run.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "render3d/wax_volume.h"
#include "wax_rotate_kernel.h"

namespace {

using nimbo::wax::Volume;

Volume MakeVolume(bool solid) {
  Volume v;
  for (int32_t z = 0; z < 64; ++z)
    for (int32_t y = 0; y < 64; ++y)
      for (int32_t x = 0; x < 64; ++x) {
        const float d = std::sqrt(float((x - 31.5f) * (x - 31.5f) + (y - 31.5f) * (y - 31.5f) + (z - 31.5f) * (z - 31.5f)));
        const uint32_t colour = uint32_t(x * 4) << 16 | uint32_t(y * 4) << 8 | uint32_t(z * 4);
        if (solid || d < 27) v.Set(x, y, z, 0xFF000000u | colour);
      }
  return v;
}

void BM_Copy(benchmark::State& state) {
  const Volume in = MakeVolume(true);
  Volume out;
  for (auto _ : state) {
    std::memcpy(out.Data(), in.Data(), nimbo::wax::kVoxelCount * 4);
    benchmark::DoNotOptimize(out.Data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Copy)->Unit(benchmark::kMillisecond);

void BM_Rotate(benchmark::State& state) {
  const Volume in = MakeVolume(state.range(0) != 0);
  const nimbo::wax::SourceMap map = state.range(1) ? nimbo::wax::RotationMap(0, 0, 90, 1)
                                                   : nimbo::wax::RotationMap(23, 41, 17, 0.9f);
  Volume out;
  for (auto _ : state) {
    nimbo::wax::Resample(in, map, &out);
    benchmark::DoNotOptimize(out.Data());
  }
}
// Args: solid to the border (0 = ball), quarter turn (0 = 23/41/17 degrees at scale 0.9).
BENCHMARK(BM_Rotate)->ArgNames({"solid", "quarter"})->Args({0, 0})->Args({1, 0})->Args({0, 1})->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
