// ImplicitBeast on a 48^3 grid with a 10-line program (a breathing gyroid
// ball with a twist, nine helper lines and FUN):
//   - the surface pass alone on one core: FUN sampled through the block
//     evaluator, then the surface with gradient normals;
//   - the same pass sampling through the one-point evaluator the block
//     evaluator is tested equal to, for the ratio between them;
//   - the whole frame at 640 x 480 through the package as a host renders it
//     (the surface, texture coordinates, drawing through the engine, which
//     runs on Mesa's software renderer where there is no GPU).
// A 640 x 480 frame copy is measured in the same run so the figures read as
// ratios on a shared machine. Target: 20 frames a second on one core (50 ms
// a frame).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_effects.h"
#include "implicit_field.h"
#include "implicit_programs.h"

namespace {

using namespace nimbo::implicit;

constexpr int32_t kGrid = 48;
constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;

constexpr const char* kTenLines =
    "R2=X*X+Y*Y+Z*Z\n"
    "R=SQRT(R2)\n"
    "A=Y*0.8+T*0.3\n"
    "CA=COS(A)\n"
    "SA=SIN(A)\n"
    "U=X*CA-Z*SA\n"
    "W=X*SA+Z*CA\n"
    "G=SIN(4*U+T)*COS(4*Y)+SIN(4*Y)*COS(4*W)+SIN(4*W)*COS(4*U)\n"
    "S=R-1.2-0.1*SIN(T*1.7)\n"
    "FUN=MAX(S,ABS(G)-0.35)\n";

ProgramSet BenchPrograms() {
  ProgramSet set;
  set.text[kFunProgram] = kTenLines;
  return set;
}

void BM_FrameCopy640x480(benchmark::State& state) { nimbo::bench::CopyFrames(state, kWidth, kHeight); }
BENCHMARK(BM_FrameCopy640x480)->Unit(benchmark::kMillisecond);

void BM_SurfacePass48(benchmark::State& state) {
  CompiledPrograms compiled = CompilePrograms(BenchPrograms(), {});
  if (!compiled.Ok()) return state.SkipWithError("the program does not compile");
  FieldSampler sampler(compiled.program[kFunProgram], kGrid);
  std::vector<float> field;
  nimbo::IsoMesh mesh;
  float t = 0;
  for (auto _ : state) {
    sampler.Sample(t += 0.04f, Box{}, field);
    ExtractSurface(field, kGrid, Box{}, true, &mesh);
    benchmark::DoNotOptimize(mesh.positions.data());
  }
  state.counters["triangles"] = double(mesh.TriangleCount());
  state.SetItemsProcessed(state.iterations() * kGrid * kGrid * kGrid);
}
BENCHMARK(BM_SurfacePass48)->Unit(benchmark::kMillisecond);

void BM_SurfacePass48OnePoint(benchmark::State& state) {
  CompiledPrograms compiled = CompilePrograms(BenchPrograms(), {});
  if (!compiled.Ok()) return state.SkipWithError("the program does not compile");
  nimbo::formula::Program& program = compiled.program[kFunProgram];
  std::vector<float> field(size_t(kGrid) * kGrid * kGrid);
  nimbo::IsoMesh mesh;
  const Box box;
  float t = 0;
  for (auto _ : state) {
    t += 0.04f;
    size_t at = 0;
    for (int32_t k = 0; k < kGrid; ++k)
      for (int32_t j = 0; j < kGrid; ++j)
        for (int32_t i = 0; i < kGrid; ++i)
          field[at++] = program.Evaluate(t, SampleCoordinate(box, 0, i, kGrid), SampleCoordinate(box, 1, j, kGrid),
                                         SampleCoordinate(box, 2, k, kGrid));
    ExtractSurface(field, kGrid, box, true, &mesh);
    benchmark::DoNotOptimize(mesh.positions.data());
  }
  state.SetItemsProcessed(state.iterations() * kGrid * kGrid * kGrid);
}
BENCHMARK(BM_SurfacePass48OnePoint)->Unit(benchmark::kMillisecond);

void BM_WholeFrame48At640x480(benchmark::State& state) {
  nimbo::bench::HostedEffect effect(kWidth, kHeight);
  const std::string why = effect.Start("ImplicitBeast", [](nimbo::SettingsDocument& store) {
    store.SetInt("grid", kGrid);
    store.SetString("program", kTenLines);
  });
  if (!why.empty()) return state.SkipWithError(why.c_str());
  std::vector<uint32_t> background(size_t(kWidth) * kHeight, 0xFF204060u), pixels(background.size());
  orrery::Screen bg{kWidth, kHeight, background.data()}, out{kWidth, kHeight, pixels.data()};
  const orrery::Screen* screens[] = {&bg, nullptr, nullptr, nullptr};
  nimbo::bench::TimeFrames(state, [&] { return effect.Render({screens, 4}, &out); });
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WholeFrame48At640x480)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
