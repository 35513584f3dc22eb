// The block evaluator against the one-point evaluator, over a generated
// corpus of formulas and points: every value must have the same bits (every
// NaN must be a NaN).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "formula/block_evaluator.h"
#include "formula/formula_dialect.h"

namespace nimbo::formula {
namespace {

// Random formula-dialect texts: variables, constants, every operator and
// function, parentheses and signs, nested a few levels.
class FormulaGenerator {
 public:
  explicit FormulaGenerator(uint32_t seed) : rng_(seed) {}
  std::string Next(int depth = 0) {
    const int pick = Pick(depth > 4 ? 3 : 10);
    switch (pick) {
      case 0: return kVariables[Pick(std::size(kVariables))];
      case 1: return Constant();
      case 2: return "(" + Next(depth + 1) + ")";
      case 3: case 4: case 5: {
        static const char kOps[] = "+-*/^";
        return Next(depth + 1) + kOps[Pick(5)] + Operand(depth + 1);
      }
      case 6: return "-" + Operand(depth + 1);
      default: {
        const FunctionRow& f = Functions()[Pick(kFunctionCount)];
        if (std::string(f.name) == "rand") return "rand()";
        std::string call = std::string(f.name) + "(";
        for (int k = 0; k < f.args; ++k) call += (k ? "," : "") + Next(depth + 1);
        return call + ")";
      }
    }
  }

 private:
  static constexpr const char* kVariables[] = {"i", "j", "a", "b", "t", "imax"};
  std::string Operand(int depth) { return Pick(2) ? "(" + Next(depth) + ")" : kVariables[Pick(std::size(kVariables))]; }
  std::string Constant() {
    static const char* kConstants[] = {"0", "1", "2", "0.5", "100", "3.25", "1000000", "0.001", "7"};
    return kConstants[Pick(std::size(kConstants))];
  }
  int Pick(size_t n) { return int(rng_() % n); }
  std::mt19937 rng_;
};

TEST(BlockEvaluator, EveryValueHasTheBitsOfTheOnePointEvaluator) {
  const std::vector<std::string> names = {"i", "j", "a", "b"};
  constexpr size_t kPoints = 700;  // two full blocks and a part
  std::vector<float> i(kPoints), j(kPoints), a(kPoints), b(kPoints), out(kPoints);
  std::mt19937 rng(7);
  const float specials[] = {0.0f, -0.0f, 1.0f, -1.0f, std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(), 1e-40f, 3e38f, -2.5f};
  for (size_t k = 0; k < kPoints; ++k) {
    i[k] = float(k % 37);
    j[k] = float(k / 37);
    a[k] = k < std::size(specials) ? specials[k] : std::uniform_real_distribution<float>(-4, 4)(rng);
    b[k] = std::bit_cast<float>(uint32_t(rng()));  // any pattern, NaNs and denormals included
  }
  const Column columns[] = {{kI, i.data()}, {kJ, j.data()}, {kA, a.data()}, {kA + 1, b.data()}};

  ResetFormulaVariables();
  Engine& engine = EngineOf(Dialect::kFormula);
  engine.variables[kT] = 0.75f;
  engine.variables[kImax] = 37;

  FormulaGenerator generator(2024);
  int compiled = 0;
  for (int n = 0; n < 3000; ++n) {
    const std::string text = generator.Next();
    const FormulaResult r = CompileFormula(text, names, {});
    if (!r.ok) continue;
    ++compiled;
    BlockEvaluator block(r.code);
    block.Run(engine.variables, columns, kPoints, out.data());
    for (size_t k = 0; k < kPoints; ++k) {
      engine.variables[kI] = i[k];
      engine.variables[kJ] = j[k];
      engine.variables[kA] = a[k];
      engine.variables[kA + 1] = b[k];
      const float one = Evaluate(Dialect::kFormula, r.code.data());
      // A NaN is a NaN on both sides; which NaN (sign and payload) is the
      // hardware's pick between two NaN operands, whose order the compiler
      // may swap for + and *, so it is not compared.
      if (std::isnan(one)) ASSERT_TRUE(std::isnan(out[k])) << text << " at point " << k;
      else ASSERT_EQ(std::bit_cast<uint32_t>(out[k]), std::bit_cast<uint32_t>(one)) << text << " at point " << k;
    }
  }
  EXPECT_GT(compiled, 2000) << "the generator must mostly make valid formulas";
}

TEST(BlockEvaluator, VariablesWithoutAColumnReadTheTable) {
  const FormulaResult r = CompileFormula("i*t+t", {"i"}, {});
  ASSERT_TRUE(r.ok);
  float table[kVariableCount] = {};
  table[kT] = 2;
  const float i[] = {1, 2, 3};
  float out[3];
  BlockEvaluator block(r.code);
  const Column columns[] = {{kI, i}};
  block.Run(table, columns, 3, out);
  EXPECT_EQ(out[0], 4);
  EXPECT_EQ(out[2], 8);
  table[kT] = 1;
  block.Run(table, {}, 3, out);  // i from the table (0) now
  EXPECT_EQ(out[1], 1);
  // An unknown word ends the run with 0, as in the one-point evaluator.
  BlockEvaluator bad(Code{'D', std::bit_cast<uint32_t>(5.0f), 'Q', 0});
  bad.Run(table, {}, 3, out);
  EXPECT_EQ(out[0], 0);
}

TEST(ProgramBlockEvaluator, GivesProgramEvaluateValuesPerSample) {
  Program program;
  ASSERT_TRUE(program
                  .Compile("R = sqrt(X*X + Y*Y)\nA = R - size\nnx = angle(Y, X)\nA = A*A + Z^2\n"
                           "FUN = min(A, (X-0.3)^2 + Z*Z - 0.09)*max(1, abs(Z*2)) + sin(T)",
                           "FUN", {"nx", "ny"}, {{"size", 0.6f}})
                  .ok);
  constexpr size_t kSamples = 600;
  std::vector<float> x(kSamples), y(kSamples), z(kSamples), result(kSamples);
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> coordinate(-2, 2);
  for (size_t k = 0; k < kSamples; ++k) x[k] = coordinate(rng), y[k] = coordinate(rng), z[k] = coordinate(rng);
  x[0] = y[0] = 0;  // angle(0, 0), sqrt(0)

  ProgramBlockEvaluator block(program, kSamples);
  block.Run(0.5f, x.data(), y.data(), z.data(), kSamples, result.data());
  for (size_t k = 0; k < kSamples; ++k) {
    const float one = program.Evaluate(0.5f, x[k], y[k], z[k]);
    ASSERT_EQ(std::bit_cast<uint32_t>(result[k]), std::bit_cast<uint32_t>(one)) << k;
    ASSERT_EQ(std::bit_cast<uint32_t>(block.Output(0, k)), std::bit_cast<uint32_t>(program.Output(0))) << k;
    ASSERT_EQ(std::bit_cast<uint32_t>(block.Output(1, k)), std::bit_cast<uint32_t>(program.Output(1))) << k;
  }
}

}  // namespace
}  // namespace nimbo::formula
