// Blob 3D's CPU part of a frame: eight blobs' field on a 64^3 grid and its
// surface (the target: 60 frames a second on one core), beside the field
// alone with the plain and the SSE2 row kernel.
#include <benchmark/benchmark.h>

#include <vector>

#include "blob_field.h"
#include "render3d/isosurface.h"

namespace {

using nimbo::blob::Blob;

constexpr int32_t kSide = 64;

std::vector<Blob> EightBlobs(float t) { return nimbo::blob::BlobsAt(8, t, 0.45f, 0.3f, 1.0f); }

void BM_FieldAndSurface8Blobs64(benchmark::State& state) {
  std::vector<float> field;
  nimbo::IsoMesh mesh;
  float t = 0;
  for (auto _ : state) {
    const std::vector<Blob> blobs = EightBlobs(t += 0.04f);
    nimbo::blob::FillBlobField(blobs, kSide, field);
    nimbo::IsoGrid grid;
    grid.values = field.data();
    grid.nx = grid.ny = grid.nz = kSide;
    nimbo::ExtractIsosurface(grid, 1.0f, true, &mesh);
    benchmark::DoNotOptimize(mesh.triangles.data());
  }
  state.counters["triangles"] = double(mesh.TriangleCount());
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FieldAndSurface8Blobs64)->Unit(benchmark::kMillisecond);

void BM_FieldRows(benchmark::State& state) {
  const std::vector<Blob> blobs = EightBlobs(1.0f);
  std::vector<float> yz(blobs.size(), 0.1f), row(kSide);
  const bool sse2 = state.range(0) != 0;
  for (auto _ : state) {
    for (int32_t r = 0; r < kSide * kSide; ++r) {
      if (sse2) nimbo::blob::BlobRowSse2(row.data(), kSide, -1.0f, 2.0f / 63, blobs, yz.data());
      else nimbo::blob::BlobRowScalar(row.data(), kSide, -1.0f, 2.0f / 63, blobs, yz.data());
      benchmark::DoNotOptimize(row.data());
    }
  }
}
BENCHMARK(BM_FieldRows)->ArgName("sse2")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
