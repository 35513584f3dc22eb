// The .3ds reader against lib3ds and assimp, in one run: loading a scene of
// about 10 MB (meshes of the 16-bit limits with texture coordinates and
// material groups) from a file the page cache holds, and posing a scene of
// 100 animated nodes (position, rotation and scale tracks, ten levels of
// hierarchy).
//   taskset -c 1 build/bench/bench_c3ds_load
// Compare Load/ours with Load/lib3ds (target: within 3x) and Load/assimp
// (target: at least as fast); SetFrame/100 nodes has a target of 0.1 ms.
#include <benchmark/benchmark.h>
#include <lib3ds/file.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "c3ds_files.h"
#include "render3d/c3ds_scene.h"

namespace {

using nimbo::C3DSScene;

// The large scene, written once per run.
const std::string& LargeFile() {
  static const std::string path = [] {
    const std::string p = (std::filesystem::temp_directory_path() / "nimbo_bench_large.3ds").string();
    const std::vector<uint8_t> bytes = nimbo::scene3ds::testing::LargeScene(10u << 20);
    std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return p;
  }();
  return path;
}

void SetBytes(benchmark::State& state) {
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(LargeFile())));
}

void LoadOurs(benchmark::State& state) {
  const std::string& path = LargeFile();
  for (auto _ : state) {
    C3DSScene scene;
    if (!scene.Load(path)) state.SkipWithError("our reader failed");
    benchmark::DoNotOptimize(scene.Faces().data());
  }
  SetBytes(state);
}

void LoadLib3ds(benchmark::State& state) {
  const std::string& path = LargeFile();
  for (auto _ : state) {
    Lib3dsFile* file = lib3ds_file_load(path.c_str());
    if (!file) state.SkipWithError("lib3ds failed");
    benchmark::DoNotOptimize(file);
    lib3ds_file_free(file);
  }
  SetBytes(state);
}

void LoadAssimp(benchmark::State& state) {
  const std::string& path = LargeFile();
  for (auto _ : state) {
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(path, 0);  // no post-processing: reading only
    if (!scene) state.SkipWithError("assimp failed");
    benchmark::DoNotOptimize(scene);
  }
  SetBytes(state);
}

void SetFrame100(benchmark::State& state) {
  const std::vector<uint8_t> bytes = nimbo::scene3ds::testing::AnimatedScene(100, 10);
  C3DSScene scene;
  if (!scene.LoadFromMemory(bytes.data(), bytes.size(), "animated")) state.SkipWithError("load failed");
  float frame = 0;
  for (auto _ : state) {
    scene.SetFrame(frame);
    frame += 0.37f;
    if (frame > 90) frame = 0;
    benchmark::DoNotOptimize(scene.Meshes().data());
  }
}

BENCHMARK(LoadOurs)->Name("Load/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(LoadLib3ds)->Name("Load/lib3ds")->Unit(benchmark::kMillisecond);
BENCHMARK(LoadAssimp)->Name("Load/assimp")->Unit(benchmark::kMillisecond);
BENCHMARK(SetFrame100)->Name("SetFrame/100 nodes")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
