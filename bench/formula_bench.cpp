// The formula language's cost per evaluated point, beside native C++ of the
// same expressions and beside muparser (a parser users would otherwise
// embed), in one run on one core: report the ratios, not the times.
//
//   Vertex/...     Evaluator3D's default vertex formulas over a 256x256 grid:
//                  a=i/(imax-1), b=j/(jmax-1), then x=(a-0.5)*100, y=0,
//                  z=(b-0.5)*100, u=a, v=b per vertex
//   Implicit/...   a six-line program-dialect implicit function over 32^3
//                  samples (a torus with ripples, unioned with a sphere)
//
//   .../Native     the same expressions written in C++ (float, float functions)
//   Implicit/NativeExact  the same in C++ with the language's own precision
//                  (functions called in double and narrowed), so the very
//                  same values: what the block evaluator can at best approach
//   .../OnePoint   the one-point evaluator, every formula per point
//   .../Block      the block evaluator over the whole grid
//   .../MuParser   muparser, one parser per formula, Eval() per point
// items_per_second counts points.
#include <benchmark/benchmark.h>
#include <muParser.h>

#include <cmath>
#include <vector>

#include "formula/block_evaluator.h"
#include "formula/formula_dialect.h"
#include "formula/program.h"

namespace {

using namespace nimbo::formula;

constexpr int kGrid = 256;
constexpr size_t kPoints = size_t(kGrid) * kGrid;

const std::vector<std::string> kVertexNames = {"i", "j", "hmap", "a", "b", "c", "d", "e", "f", "g", "h"};
const char* const kAux[] = {"i/(imax-1)", "j/(jmax-1)"};
const char* const kVertex[] = {"(a-0.5)*100", "0", "(b-0.5)*100", "a", "b"};  // x y z u v

struct Grid {
  std::vector<float> i, j, a, b, out[5];
  Grid() : i(kPoints), j(kPoints), a(kPoints), b(kPoints) {
    for (size_t k = 0; k < kPoints; ++k) {
      i[k] = float(k % kGrid);
      j[k] = float(k / kGrid);
    }
    for (auto& o : out) o.resize(kPoints);
  }
};

void VertexNative(benchmark::State& state) {
  Grid g;
  const float imax = kGrid, jmax = kGrid;
  for (auto _ : state) {
    for (size_t k = 0; k < kPoints; ++k) {
      const float a = g.i[k] / (imax - 1), b = g.j[k] / (jmax - 1);
      g.out[0][k] = (a - 0.5f) * 100;
      g.out[1][k] = 0;
      g.out[2][k] = (b - 0.5f) * 100;
      g.out[3][k] = a;
      g.out[4][k] = b;
    }
    benchmark::DoNotOptimize(g.out[4].data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kPoints);
}

std::vector<Code> CompileAll(std::span<const char* const> texts, const std::vector<std::string>& own) {
  std::vector<Code> codes;
  for (const char* t : texts) codes.push_back(CompileFormula(t, own, {}).code);
  return codes;
}

void VertexOnePoint(benchmark::State& state) {
  Grid g;
  ResetFormulaVariables();
  const auto aux = CompileAll(kAux, {"i", "j", "a"});
  const auto vertex = CompileAll(kVertex, kVertexNames);
  Engine& e = EngineOf(Dialect::kFormula);
  e.variables[kImax] = kGrid;
  e.variables[kJmax] = kGrid;
  for (auto _ : state) {
    for (size_t k = 0; k < kPoints; ++k) {
      e.variables[kI] = g.i[k];
      e.variables[kJ] = g.j[k];
      e.variables[kA] = Evaluate(Dialect::kFormula, aux[0].data());
      e.variables[kA + 1] = Evaluate(Dialect::kFormula, aux[1].data());
      for (int n = 0; n < 5; ++n) g.out[n][k] = Evaluate(Dialect::kFormula, vertex[n].data());
    }
    benchmark::DoNotOptimize(g.out[4].data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kPoints);
}

void VertexBlock(benchmark::State& state) {
  Grid g;
  ResetFormulaVariables();
  Engine& e = EngineOf(Dialect::kFormula);
  e.variables[kImax] = kGrid;
  e.variables[kJmax] = kGrid;
  std::vector<BlockEvaluator> aux, vertex;
  for (const Code& c : CompileAll(kAux, {"i", "j", "a"})) aux.emplace_back(c);
  for (const Code& c : CompileAll(kVertex, kVertexNames)) vertex.emplace_back(c);
  const Column columns[] = {{kI, g.i.data()}, {kJ, g.j.data()}, {kA, g.a.data()}, {kA + 1, g.b.data()}};
  for (auto _ : state) {
    aux[0].Run(e.variables, columns, kPoints, g.a.data());
    aux[1].Run(e.variables, columns, kPoints, g.b.data());
    for (int n = 0; n < 5; ++n) vertex[n].Run(e.variables, columns, kPoints, g.out[n].data());
    benchmark::DoNotOptimize(g.out[4].data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kPoints);
}

void VertexMuParser(benchmark::State& state) {
  Grid g;
  double i = 0, j = 0, a = 0, b = 0, imax = kGrid, jmax = kGrid;
  std::vector<mu::Parser> aux(2), vertex(5);
  auto define = [&](mu::Parser& p, const char* text) {
    p.DefineVar("i", &i);
    p.DefineVar("j", &j);
    p.DefineVar("a", &a);
    p.DefineVar("b", &b);
    p.DefineVar("imax", &imax);
    p.DefineVar("jmax", &jmax);
    p.SetExpr(text);
    p.Eval();  // parse before timing
  };
  for (int n = 0; n < 2; ++n) define(aux[n], kAux[n]);
  for (int n = 0; n < 5; ++n) define(vertex[n], kVertex[n]);
  for (auto _ : state) {
    for (size_t k = 0; k < kPoints; ++k) {
      i = g.i[k];
      j = g.j[k];
      a = aux[0].Eval();
      b = aux[1].Eval();
      for (int n = 0; n < 5; ++n) g.out[n][k] = float(vertex[n].Eval());
    }
    benchmark::DoNotOptimize(g.out[4].data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kPoints);
}

// ---- the implicit function ------------------------------------------------------
constexpr int kSide = 32;
constexpr size_t kSamples = size_t(kSide) * kSide * kSide;
const char* const kProgram =
    "R = sqrt(X*X + Y*Y)\n"
    "A = R - 0.6\n"
    "B = A*A + Z*Z - 0.04\n"
    "C = sin(X*5 + T)*cos(Y*5)*0.02\n"
    "D = (X - 0.3)^2 + (Y + 0.2)^2 + Z*Z\n"
    "FUN = min(B + C, D - 0.09)*max(1, abs(Z*2))\n";

struct Volume {
  std::vector<float> x, y, z, out;
  Volume() : x(kSamples), y(kSamples), z(kSamples), out(kSamples) {
    for (size_t k = 0; k < kSamples; ++k) {
      x[k] = float(int(k % kSide)) / kSide * 2 - 1;
      y[k] = float(int(k / kSide % kSide)) / kSide * 2 - 1;
      z[k] = float(int(k / kSide / kSide)) / kSide * 2 - 1;
    }
  }
};

void ImplicitNative(benchmark::State& state) {
  Volume v;
  const float t = 0.25f;
  for (auto _ : state) {
    for (size_t k = 0; k < kSamples; ++k) {
      const float x = v.x[k], y = v.y[k], z = v.z[k];
      const float r = std::sqrt(x * x + y * y);
      const float a = r - 0.6f;
      const float b = a * a + z * z - 0.04f;
      const float c = std::sin(x * 5 + t) * std::cos(y * 5) * 0.02f;
      const float d = (x - 0.3f) * (x - 0.3f) + (y + 0.2f) * (y + 0.2f) + z * z;
      v.out[k] = std::min(b + c, d - 0.09f) * std::max(1.0f, std::abs(z * 2));
    }
    benchmark::DoNotOptimize(v.out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

float Narrow(double value) { return float(value); }

void ImplicitNativeExact(benchmark::State& state) {
  Volume v;
  const float t = 0.25f;
  for (auto _ : state) {
    for (size_t k = 0; k < kSamples; ++k) {
      const float x = v.x[k], y = v.y[k], z = v.z[k];
      const float r = Narrow(std::sqrt(double(x * x + y * y)));
      const float a = r - 0.6f;
      const float b = a * a + z * z - 0.04f;
      const float c = Narrow(std::sin(double(x * 5 + t))) * Narrow(std::cos(double(y * 5))) * 0.02f;
      const float dx = x - 0.3f, dy = y + 0.2f;
      const float d = Narrow(double(dx) * dx) + Narrow(double(dy) * dy) + z * z;
      const float m = b + c < d - 0.09f ? b + c : d - 0.09f;
      const float s = 1.0f > std::fabs(z * 2) ? 1.0f : std::fabs(z * 2);
      v.out[k] = m * s;
    }
    benchmark::DoNotOptimize(v.out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

void ImplicitOnePoint(benchmark::State& state) {
  Volume v;
  Program program;
  if (!program.Compile(kProgram, "FUN", {}, {}).ok) state.SkipWithError("the program does not compile");
  for (auto _ : state) {
    for (size_t k = 0; k < kSamples; ++k) v.out[k] = program.Evaluate(0.25f, v.x[k], v.y[k], v.z[k]);
    benchmark::DoNotOptimize(v.out.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

void ImplicitBlock(benchmark::State& state) {
  Volume v;
  Program program;
  if (!program.Compile(kProgram, "FUN", {}, {}).ok) state.SkipWithError("the program does not compile");
  ProgramBlockEvaluator block(program, kSamples);
  for (auto _ : state) {
    block.Run(0.25f, v.x.data(), v.y.data(), v.z.data(), kSamples, v.out.data());
    benchmark::DoNotOptimize(v.out.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

void ImplicitMuParser(benchmark::State& state) {
  Volume v;
  double x = 0, y = 0, z = 0, t = 0.25;
  mu::Parser p;
  p.DefineVar("X", &x);
  p.DefineVar("Y", &y);
  p.DefineVar("Z", &z);
  p.DefineVar("T", &t);
  // muparser's own form of the same program: assignments separated by
  // commas, the last expression is the value.
  p.SetExpr(
      "R = sqrt(X*X + Y*Y), A = R - 0.6, B = A*A + Z*Z - 0.04, C = sin(X*5 + T)*cos(Y*5)*0.02,"
      "D = (X - 0.3)^2 + (Y + 0.2)^2 + Z*Z, min(B + C, D - 0.09)*max(1, abs(Z*2))");
  double r = 0, a = 0, b = 0, c = 0, d = 0;
  p.DefineVar("R", &r);
  p.DefineVar("A", &a);
  p.DefineVar("B", &b);
  p.DefineVar("C", &c);
  p.DefineVar("D", &d);
  int results = 0;
  p.Eval(results);
  for (auto _ : state) {
    for (size_t k = 0; k < kSamples; ++k) {
      x = v.x[k];
      y = v.y[k];
      z = v.z[k];
      int n = 0;
      const double* all = p.Eval(n);
      v.out[k] = float(all[n - 1]);
    }
    benchmark::DoNotOptimize(v.out.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

BENCHMARK(VertexNative);
BENCHMARK(VertexOnePoint);
BENCHMARK(VertexBlock);
BENCHMARK(VertexMuParser);
BENCHMARK(ImplicitNative);
BENCHMARK(ImplicitNativeExact);
BENCHMARK(ImplicitOnePoint);
BENCHMARK(ImplicitBlock);
BENCHMARK(ImplicitMuParser);

}  // namespace

BENCHMARK_MAIN();
