// 3DSViewer's CPU part of a frame: posing a scene (the reader's SetFrame,
// the reference every frame pays anyway), turning the posed meshes into the
// engine's triangle batches, and the scene's lights worked out per corner.
// Ratios to the plain pose are what to read; the machines are shared.
//
//   taskset -c 1 build/bench/bench_viewer3ds
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "c3ds_files.h"
#include "viewer_lights.h"
#include "viewer_scene.h"

namespace {

namespace fs = std::filesystem;
using nimbo::viewer3ds::DrawBatch;
using nimbo::viewer3ds::ViewerScene;

// The scene written to a scratch file (the viewer reads from files).
struct SceneFile {
  explicit SceneFile(const std::vector<uint8_t>& bytes, const char* name) {
    path = (fs::temp_directory_path() / (std::string("bench_viewer3ds_") + name + std::to_string(::getpid()) + ".3ds")).string();
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f) {
      std::fwrite(bytes.data(), 1, bytes.size(), f);
      std::fclose(f);
    }
  }
  ~SceneFile() { fs::remove(path); }
  std::string path;
};

const SceneFile& Animated() {
  static const SceneFile file(nimbo::scene3ds::testing::AnimatedScene(100, 10), "animated");
  return file;
}
const SceneFile& Large() {
  static const SceneFile file(nimbo::scene3ds::testing::LargeScene(4 << 20), "large");
  return file;
}

size_t Corners(const std::vector<DrawBatch>& batches) {
  size_t n = 0;
  for (const DrawBatch& b : batches) n += b.vertices.size();
  return n;
}

void BM_PoseOnly(benchmark::State& state) {
  ViewerScene viewer;
  if (viewer.Load(Animated().path) != 0) return state.SkipWithError("scene");
  float frame = 0;
  for (auto _ : state) {
    viewer.Pose(frame);
    frame = frame > 90 ? 0 : frame + 0.7f;
  }
}
BENCHMARK(BM_PoseOnly);

void BM_PoseAndBatches(benchmark::State& state) {
  ViewerScene viewer;
  if (viewer.Load(Animated().path) != 0) return state.SkipWithError("scene");
  std::vector<DrawBatch> batches;
  float frame = 0;
  for (auto _ : state) {
    viewer.Pose(frame);
    viewer.BuildBatches(&batches);
    benchmark::DoNotOptimize(batches.data());
    frame = frame > 90 ? 0 : frame + 0.7f;
  }
  state.counters["corners"] = double(Corners(batches));
}
BENCHMARK(BM_PoseAndBatches);

// About 4 MB of meshes: 190 000 triangles.
void BM_LargeBatches(benchmark::State& state) {
  ViewerScene viewer;
  if (viewer.Load(Large().path) != 0) return state.SkipWithError("scene");
  std::vector<DrawBatch> batches;
  for (auto _ : state) {
    viewer.BuildBatches(&batches);
    benchmark::DoNotOptimize(batches.data());
  }
  state.counters["corners/s"] = benchmark::Counter(double(Corners(batches)), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_LargeBatches)->Unit(benchmark::kMillisecond);

void BM_LargeSceneLight(benchmark::State& state) {
  ViewerScene viewer;
  if (viewer.Load(Large().path) != 0) return state.SkipWithError("scene");
  std::vector<DrawBatch> batches;
  viewer.BuildBatches(&batches);
  std::vector<nimbo::viewer3ds::PointLight> lights(4);
  for (size_t i = 0; i < lights.size(); ++i) {
    lights[i].position[0] = 50.0f * float(i), lights[i].position[1] = 100, lights[i].position[2] = -80;
    lights[i].brightness = 0.5f;
  }
  const float to_camera[3] = {0, 0.6f, 0.8f};
  for (auto _ : state) {
    for (DrawBatch& b : batches) nimbo::viewer3ds::EncodeSceneLight(lights, to_camera, b.vertices.data(), b.vertices.size());
    benchmark::DoNotOptimize(batches.data());
  }
  state.counters["corners/s"] = benchmark::Counter(double(Corners(batches)), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_LargeSceneLight)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
