// Evaluator3D at 256 x 256 vertices with the default formulas plus four
// auxiliary formulas (c, d, e, f, with y made of them so they shape a wave):
//   - the formula pass alone on one core, through the block evaluator and
//     through the one-point evaluator it is tested equal to;
//   - the whole frame at 640 x 480 (formulas, normals, texture coordinates,
//     drawing through the engine, which runs on Mesa's software renderer
//     where there is no GPU), rendered through the package as a host does.
// Frames count the processor time of every thread of the process (the
// software renderer rasterises on threads of its own). A 640 x 480 frame copy is measured in the same run so the figures read as
// ratios on a shared machine. Targets: the formula pass at 60 frames a
// second (16.7 ms), the whole frame at 30 (33.3 ms).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_effects.h"
#include "formula_set.h"
#include "grid_eval.h"
#include "grid_mesh.h"

namespace {

using namespace nimbo::e3d;

constexpr int32_t kGrid = 256;
constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;

// The auxiliary formulas the targets were set with.
constexpr const char* kAux[][2] = {
    {"c", "sin(a*4*pi+t)"}, {"d", "cos(b*4*pi-t)"}, {"e", "c*d"}, {"f", "sqrt((a-0.5)^2+(b-0.5)^2)"}};
constexpr const char* kWaveY = "e*10*(1-f)";

FormulaSet BenchSet() {
  FormulaSet set;
  set.imax = set.jmax = kGrid;
  for (const auto& [name, text] : kAux) set.text[size_t(FieldByName(name))] = text;
  set.text[kY] = kWaveY;
  return set;
}

void BM_FrameCopy640x480(benchmark::State& state) { nimbo::bench::CopyFrames(state, kWidth, kHeight); }
BENCHMARK(BM_FrameCopy640x480)->Unit(benchmark::kMillisecond);

// The formula pass frame after frame: the frame's variables, the camera
// formulas, then the grid through `evaluate(grid)`.
template <class Evaluate>
void FormulaPass(benchmark::State& state, const FormulaSet& set, const CompiledSet& compiled, Evaluate evaluate) {
  if (compiled.first_error >= 0) return state.SkipWithError("the set does not compile");
  GridValues grid;
  float t = 0;
  for (auto _ : state) {
    SetFrameVariables(set, {t += 0.04f, kWidth, kHeight, {}});
    EvaluateCamera(compiled);
    evaluate(grid);
    benchmark::DoNotOptimize(grid.y.data());
  }
  state.SetItemsProcessed(state.iterations() * kGrid * kGrid);
}

void BM_FormulaPass256(benchmark::State& state) {
  const FormulaSet set = BenchSet();
  const CompiledSet compiled = Recompile(set);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  FormulaPass(state, set, compiled, [&](GridValues& grid) { evaluator.Evaluate({}, grid); });
}
BENCHMARK(BM_FormulaPass256)->Unit(benchmark::kMillisecond);

void BM_FormulaPass256OnePoint(benchmark::State& state) {
  const FormulaSet set = BenchSet();
  const CompiledSet compiled = Recompile(set);
  FormulaPass(state, set, compiled, [&](GridValues& grid) { EvaluateGridOnePoint(set, compiled, {}, grid); });
}
BENCHMARK(BM_FormulaPass256OnePoint)->Unit(benchmark::kMillisecond);

// Everything the effect does on the CPU for a frame before the engine
// draws: formulas, normals, both texture-coordinate sets (the second by
// environment mapping, its default), and the triangles.
void BM_MeshBuild256(benchmark::State& state) {
  const FormulaSet set = BenchSet();
  const CompiledSet compiled = Recompile(set);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues grid;
  GridNormals normals;
  std::vector<nb3D::Vertex> vertices;
  std::vector<uint32_t> triangles;
  float t = 0;
  for (auto _ : state) {
    SetFrameVariables(set, {t += 0.04f, kWidth, kHeight, {}});
    const CameraValues camera = EvaluateCamera(compiled);
    evaluator.Evaluate({}, grid);
    ComputeNormals(grid, false, false, normals);
    AssembleVertices(set, grid, normals, camera, vertices);
    BuildTriangles(set, true, triangles);
    benchmark::DoNotOptimize(vertices.data());
    benchmark::DoNotOptimize(triangles.data());
  }
}
BENCHMARK(BM_MeshBuild256)->Unit(benchmark::kMillisecond);

void BM_WholeFrame256At640x480(benchmark::State& state) {
  nimbo::bench::HostedEffect effect(kWidth, kHeight);
  const std::string why = effect.Start("Evaluator3D", [](nimbo::SettingsDocument& store) {
    store.SetInt("rangei", kGrid);
    store.SetInt("rangej", kGrid);
    for (const auto& [name, text] : kAux) store.SetString((std::string("expr_") + name).c_str(), text);
    store.SetString("expr_y", kWaveY);
  });
  if (!why.empty()) return state.SkipWithError(why.c_str());
  std::vector<uint32_t> background(size_t(kWidth) * kHeight, 0xFF204060u), pixels(background.size());
  std::vector<uint32_t> texture = nimbo::bench::NoisePixels(background.size());
  orrery::Screen bg{kWidth, kHeight, background.data()}, tex{kWidth, kHeight, texture.data()};
  orrery::Screen out{kWidth, kHeight, pixels.data()};
  const orrery::Screen* screens[] = {&bg, &tex, &tex, nullptr};
  nimbo::bench::TimeFrames(state, [&] { return effect.Render({screens, 4}, &out); });
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WholeFrame256At640x480)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
