// The compiler and the one-point evaluator, through the plain Compile entry
// (texts already prepared: single letters address their own table entry).
#include <gtest/gtest.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <random>

#include "formula/compiler.h"
#include "formula/text.h"
#include "function_math.h"
#include "random/rand15.h"

namespace nimbo::formula {
namespace {

// Every lower-case letter may be used; 'x' holds 0.5, 'y' holds 2.
const std::vector<uint32_t>& AllLetters() {
  static const std::vector<uint32_t> codes = [] {
    std::vector<uint32_t> c;
    for (uint32_t l = 'a'; l <= 'z'; ++l) c.push_back(l);
    c.push_back(300);
    return c;
  }();
  return codes;
}

CompileResult C(const std::string& text, Dialect d = Dialect::kFormula) { return Compile(d, Widen(text), AllLetters()); }

float Value(const std::string& text, Dialect d = Dialect::kFormula) {
  SetVariable(d, 'x', 0.5f);
  SetVariable(d, 'y', 2.0f);
  const CompileResult r = C(text, d);
  EXPECT_TRUE(r.ok) << text << " fails at " << r.position;
  return r.ok ? Evaluate(d, r.code.data()) : NAN;
}

uint32_t Bits(float f) { return std::bit_cast<uint32_t>(f); }

TEST(Compiler, GroupsFromTheLeftAndMinusBindsTighterThanPower) {
  const struct {
    const char* text;
    float value;
  } cases[] = {
      {"-2^2", 4},   {"2^3^2", 64}, {"10-2-3", 5},      {"8/2/2", 2},     {"2*(-3)", -6}, {"1+2*3", 7},
      {"2*3^2", 18}, {"-x", -0.5f}, {"(1+2)*(3+4)", 21}, {"-(2)^2", 4},   {"2-x-x", 1},   {"y^y^y", 16},
      {"12", 12},    {".5", 0.5f},  {"5.", 5},           {"((((7))))", 7}, {"", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(Value(c.text), c.value) << c.text;
}

TEST(Compiler, ErrorPositionsIndexTheCompiledText) {
  const struct {
    const char* text;
    int position;
  } cases[] = {
      {"2*-3", 2},       {"x^-2", 2},        {"x+-y", 2},      {"+1", 0},         {"1+", 2},
      {"(", 0},          {")", 0},           {"(1", 1},        {"1)", 1},         {"((x)(y)", 6},
      {"(x)(y)", 4},     {"()", 1},          {"sin(1,2)", 6},  {"angle(1)", 6},   {"max()", 3},
      {"max(1,2,3)", 8}, {"range(1,2)", 8},  {"rand(1)", 5},   {"foo(1)", 0},     {"sin", 3},
      {"sin(1", 4},      {"sin1)", 4},       {"1.2.3", 0},     {"max(1,)", 6},    {"2(3)", 0},
      {"sin(1)x", 3},    {"#", 0},           {"1,2", 0},       {"x*y*", 4},       {"1e", 0},
  };
  for (const auto& c : cases) {
    const CompileResult r = C(c.text);
    EXPECT_FALSE(r.ok) << c.text;
    EXPECT_EQ(r.position, c.position) << c.text;
    EXPECT_TRUE(r.code.empty());
  }
  // The pre-check names the first standalone variable that is not allowed,
  // before anything else is looked at.
  const uint32_t only_a[] = {'a'};
  EXPECT_EQ(Compile(Dialect::kFormula, Widen("a+(b"), only_a).position, 3);
  EXPECT_EQ(Compile(Dialect::kFormula, Widen("ab+c"), only_a).position, 3) << "ab is no standalone letter";
  EXPECT_EQ(Compile(Dialect::kFormula, Widen("2b"), only_a).position, 1);
}

TEST(Compiler, EmitsPostfixWordsAndFoldsConstantFragments) {
  const uint32_t half = Bits(0.5f), hundred = Bits(100.0f);
  EXPECT_EQ(C("(x-0.5)*100").code, (Code{'V', 'x', 'D', half, '-', 'D', hundred, '*', 0}));
  EXPECT_EQ(C("-x").code, (Code{'V', 'x', 'M', 0}));
  EXPECT_EQ(C("max(x,1)").code, (Code{'V', 'x', 'D', Bits(1), 'F', 15, 0}));
  EXPECT_EQ(C("2*x*3").code, (Code{'D', Bits(2), 'V', 'x', '*', 'D', Bits(3), '*', 0})) << "(2*x)*3 has no constant pair";
  EXPECT_EQ(C("x*(2*3)").code, (Code{'V', 'x', 'D', Bits(6), '*', 0}));
  EXPECT_EQ(C("").code, ZeroCode());
  // A folded fragment has the bits the evaluator gives the same fragment
  // over variables.
  for (const char* f : {"sin", "cos", "tan", "asin", "acos", "atan", "sqrt", "exp", "ln", "abs", "floor", "ceil"}) {
    const std::string folded = std::string(f) + "(0.5)*2^0.3/7";
    const std::string unfolded = std::string(f) + "(x)*y^0.3/7";
    EXPECT_EQ(C(folded).code.size(), 3u) << folded;
    EXPECT_EQ(Bits(Value(folded)), Bits(Value(unfolded))) << f;
  }
}

TEST(Compiler, FunctionsFollowTheirTable) {
  EXPECT_EQ(Value("range(1,1,2)"), 1);
  EXPECT_EQ(Value("range(2,1,2)"), 1);
  EXPECT_EQ(Value("range(2.0001,1,2)"), 0);
  EXPECT_EQ(Value("range(0-1,1,2)"), 0);
  EXPECT_EQ(Bits(Value("sign(0)")), Bits(0.0f));
  EXPECT_EQ(Value("sign(0-3)"), -1);
  EXPECT_EQ(Value("sign(0/0)"), 0) << "NaN is neither above nor below 0";
  EXPECT_EQ(Value("max(1,1)"), 1);
  EXPECT_TRUE(std::isnan(Value("max(0/0,1)")) == false) << "the second argument wins a NaN comparison";
  EXPECT_TRUE(std::isnan(Value("max(1,0/0)")));
  EXPECT_EQ(Value("min(1,2)"), 1);
  EXPECT_EQ(Value("mod(0-7,3)"), -1) << "the sign of the dividend";
  EXPECT_EQ(Value("angle(1,0)"), float(std::atan2(1.0, 0.0))) << "y first, x second";
  EXPECT_EQ(Value("floor(0-1.5)"), -2);
  EXPECT_EQ(Value("ceil(0-1.5)"), -1);
  EXPECT_EQ(Value("abs(0-2)"), 2);
  EXPECT_EQ(Bits(Value("2^0.5")), Bits(float(std::pow(2.0, 0.5)))) << "power in double, narrowed";
  EXPECT_EQ(Bits(Value("1/3")), Bits(1.0f / 3.0f)) << "division in single precision";
  EXPECT_TRUE(std::isinf(Value("1/0")));
  EXPECT_TRUE(std::isnan(Value("sqrt(0-1)")));
  EXPECT_EQ(Value("1E5", Dialect::kProgram), 1e5f);
  EXPECT_EQ(Value("1E-5", Dialect::kProgram), 1e-5f);
  EXPECT_EQ(Value("2E+1-1", Dialect::kProgram), 19);
  EXPECT_EQ(Value("SIN(0)+MAX(1,2)", Dialect::kProgram), 2);
  EXPECT_FALSE(C("sin(0)", Dialect::kProgram).ok) << "the program dialect's names are upper case";
  EXPECT_FALSE(C("INF", Dialect::kProgram).ok) << "only decimal numbers";
  EXPECT_FALSE(C("0X10", Dialect::kProgram).ok);
  EXPECT_TRUE(std::isinf(Value("1E39", Dialect::kProgram))) << "past single precision";
}

TEST(Compiler, SquaringSkipsPowWithoutChangingABit) {
  std::mt19937 rng(5);
  for (int n = 0; n < 2000000; ++n) {
    const float a = std::bit_cast<float>(uint32_t(rng()));
    const float expected = float(std::pow(double(a), 2.0));
    if (std::isnan(expected)) EXPECT_TRUE(std::isnan(Power(a, 2.0f)));
    else ASSERT_EQ(Bits(Power(a, 2.0f)), Bits(expected)) << a;
  }
  for (const float a : {0.0f, -0.0f, INFINITY, -INFINITY, 1e-45f, 3.4e38f, -1.0f})
    EXPECT_EQ(Bits(Power(a, 2.0f)), Bits(float(std::pow(double(a), 2.0)))) << a;
}

TEST(Compiler, RandIsDrawnOncePerCallPerCompile) {
  random::SeedRand15(1);
  const CompileResult first = C("rand()+0*rand( )");
  ASSERT_TRUE(first.ok);
  EXPECT_EQ(first.code.size(), 3u);
  const float expected = float(41.0 / 32767.0) + 0 * float(18467.0 / 32767.0);
  EXPECT_EQ(Evaluate(Dialect::kFormula, first.code.data()), expected);
  EXPECT_EQ(Evaluate(Dialect::kFormula, first.code.data()), expected) << "no new draw per evaluation";
  EXPECT_EQ(random::Rand15(), 6334) << "two draws were taken, no more";
}

TEST(Compiler, NumbersIgnoreTheLocale) {
  const char* old = std::setlocale(LC_NUMERIC, nullptr);
  const std::string saved = old ? old : "C";
  if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8") && !std::setlocale(LC_NUMERIC, "de_DE.utf8"))
    GTEST_SKIP() << "no decimal-comma locale here";
  EXPECT_EQ(Value("1.5"), 1.5f);
  EXPECT_FALSE(C("1,5").ok);
  std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(Compiler, AnyTextEndsInAnErrorOrAValueWithinItsBounds) {
  // The deepest stack a 999-character field can ask for: each "x+y*x^("
  // level keeps three values waiting.
  const size_t levels = (999 - 1) / 8;
  std::string deep;
  for (size_t k = 0; k < levels; ++k) deep += "x+y*x^(";
  deep += "x" + std::string(levels, ')');
  ASSERT_LE(deep.size(), 999u);
  const CompileResult r = C(deep);
  ASSERT_TRUE(r.ok);
  EXPECT_GE(StackDepth(r.code.data()), int(3 * levels));
  EXPECT_LE(StackDepth(r.code.data()), kStackSlots);
  EXPECT_TRUE(std::isfinite(Evaluate(Dialect::kFormula, r.code.data())));

  EXPECT_EQ(C(std::string(999, '(')).position, 998);
  const std::string nested = std::string(999, '(') + "1" + std::string(999, ')');
  EXPECT_TRUE(C(nested).ok) << "999 levels of parentheses compile";
  const std::string too_deep = std::string(5000, '(') + "1" + std::string(5000, ')');
  EXPECT_EQ(C(too_deep).position, kMaxNesting) << "the nesting limit is an error where it is reached";
  std::string wide;
  for (int k = 0; k < kStackSlots / 2 + 1; ++k) wide += "range(x,y,";
  wide += "x" + std::string(kStackSlots / 2 + 1, ')');
  const CompileResult overflow = C(wide);
  EXPECT_FALSE(overflow.ok);
  EXPECT_EQ(overflow.position, -1) << "code that would overflow the stack is refused";

  // Every byte, and a token, in and out of parentheses.
  for (uint32_t c = 1; c < 300; ++c) {
    for (const Text& text : {Text(1, char32_t(c)), Text{U'('} + char32_t(c) + U")", Text{char32_t(c), U'(', U')'}}) {
      const CompileResult any = Compile(Dialect::kFormula, text, AllLetters());
      if (any.ok) {
        EXPECT_LE(any.code.size(), EstimateCodeWords(text));
      }
    }
  }
}

TEST(Compiler, TokensAreLowerCaseLetters) {
  Text text = Widen("1+ab*2");
  SubstituteName(text, "ab", 300);
  EXPECT_EQ(text, (Text{U'1', U'+', char32_t(300), U'*', U'2'}));
  const CompileResult r = Compile(Dialect::kFormula, text, AllLetters());
  EXPECT_EQ(r.code, (Code{'D', Bits(1), 'V', 300, 'D', Bits(2), '*', '+', 0}));
  // A token next to a letter is part of a name, not a standalone variable.
  EXPECT_EQ(Compile(Dialect::kFormula, Text{char32_t(300), U'x'}, AllLetters()).position, 0);
  EXPECT_TRUE(IsLower(300) && IsLetter(300) && IsWordChar(300) && !IsDigit(300) && !IsBlank(300));
  EXPECT_FALSE(IsLetter(0xe9)) << "bytes above 127 are in no class";
}

}  // namespace
}  // namespace nimbo::formula
