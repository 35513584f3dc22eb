// The isosurface extractor on 64^3 fields: a sphere, eight metaballs, a
// gyroid (a surface through the whole grid), with and without the closed
// border.
//
// `bench_isosurface --raw FILE N LEVEL REPEATS` instead times the extraction
// of a raw little-endian float field of N^3 samples (x fastest) and prints
// "triangles <count> ms <per extraction>": how isosurface_vs_skimage.sh
// measures us on exactly the field it gives scikit-image.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "render3d/isosurface.h"

namespace {

using nimbo::ExtractIsosurface;
using nimbo::IsoGrid;
using nimbo::IsoMesh;

constexpr int kSide = 64;

std::vector<float> MakeField(int kind) {
  std::vector<float> f(size_t(kSide) * kSide * kSide);
  for (int z = 0; z < kSide; ++z) {
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        const float px = float(x) / (kSide - 1), py = float(y) / (kSide - 1), pz = float(z) / (kSide - 1);
        float v = 0;
        if (kind == 0) {
          v = 0.4f - std::sqrt((px - 0.5f) * (px - 0.5f) + (py - 0.5f) * (py - 0.5f) + (pz - 0.5f) * (pz - 0.5f));
        } else if (kind == 1) {
          for (int b = 0; b < 8; ++b) {
            const float cx = 0.3f + 0.4f * float(b & 1), cy = 0.3f + 0.4f * float(b >> 1 & 1), cz = 0.3f + 0.4f * float(b >> 2);
            v += 0.01f / ((px - cx) * (px - cx) + (py - cy) * (py - cy) + (pz - cz) * (pz - cz) + 1e-4f);
          }
          v -= 1.0f;
        } else {
          const float s = 4.0f * 3.14159265f;
          v = std::sin(s * px) * std::cos(s * py) + std::sin(s * py) * std::cos(s * pz) + std::sin(s * pz) * std::cos(s * px);
        }
        f[(size_t(z) * kSide + y) * kSide + x] = v;
      }
    }
  }
  return f;
}

void BM_Isosurface(benchmark::State& state) {
  const std::vector<float> field = MakeField(int(state.range(0)));
  IsoGrid grid;
  grid.values = field.data();
  grid.nx = grid.ny = grid.nz = kSide;
  IsoMesh mesh;
  for (auto _ : state) {
    ExtractIsosurface(grid, 0.0f, state.range(1) != 0, &mesh);
    benchmark::DoNotOptimize(mesh.triangles.data());
  }
  state.counters["triangles"] = double(mesh.TriangleCount());
}
BENCHMARK(BM_Isosurface)->ArgNames({"field", "closed"})->ArgsProduct({{0, 1, 2}, {0, 1}})->Unit(benchmark::kMillisecond);

int TimeRawField(const char* path, int side, float level, int repeats) {
  std::vector<float> field(size_t(side) * side * side);
  std::FILE* file = std::fopen(path, "rb");
  if (!file || std::fread(field.data(), sizeof(float), field.size(), file) != field.size()) {
    std::fprintf(stderr, "bench_isosurface: cannot read %d^3 floats from %s\n", side, path);
    return 1;
  }
  std::fclose(file);
  IsoGrid grid;
  grid.values = field.data();
  grid.nx = grid.ny = grid.nz = side;
  IsoMesh mesh;
  ExtractIsosurface(grid, level, false, &mesh);  // warm-up
  // Processor time, like the script's measure of the peer: on a shared
  // machine wall time counts the other processes too.
  const std::clock_t start = std::clock();
  for (int i = 0; i < repeats; ++i) ExtractIsosurface(grid, level, false, &mesh);
  const double ms = double(std::clock() - start) * 1000.0 / CLOCKS_PER_SEC;
  std::printf("triangles %zu ms %.4f\n", mesh.TriangleCount(), ms / repeats);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 6 && std::strcmp(argv[1], "--raw") == 0)
    return TimeRawField(argv[2], std::atoi(argv[3]), std::strtof(argv[4], nullptr), std::max(1, std::atoi(argv[5])));
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
