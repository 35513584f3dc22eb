// The built-in functions and each dialect's process-wide table and stack.
#include <cctype>
#include <cmath>

#include "formula/code.h"
#include "random/rand15.h"

namespace nimbo::formula {
namespace {

double Sin(double a, double, double) { return std::sin(a); }
double Cos(double a, double, double) { return std::cos(a); }
double Tan(double a, double, double) { return std::tan(a); }
double Asin(double a, double, double) { return std::asin(a); }
double Acos(double a, double, double) { return std::acos(a); }
double Atan(double a, double, double) { return std::atan(a); }
double Angle(double y, double x, double) { return std::atan2(y, x); }
double Sqrt(double a, double, double) { return std::sqrt(a); }
double Exp(double a, double, double) { return std::exp(a); }
double Ln(double a, double, double) { return std::log(a); }
double Abs(double a, double, double) { return std::fabs(a); }
double Mod(double a, double b, double) { return std::fmod(a, b); }
double Floor(double a, double, double) { return std::floor(a); }
double Ceil(double a, double, double) { return std::ceil(a); }
// NaN is neither above nor below 0, so it gives 0 like 0 itself.
double Sign(double a, double, double) { return a > 0 ? 1.0 : (a < 0 ? -1.0 : 0.0); }
// Written as comparisons, not std::max/min: with a NaN the second argument
// wins unless the comparison holds, exactly as the table says.
double Max(double a, double b, double) { return a > b ? a : b; }
double Min(double a, double b, double) { return a < b ? a : b; }
double Rand(double, double, double) { return double(random::Rand15()) / 32767.0; }
double Range(double x, double lo, double hi) { return (lo <= x && x <= hi) ? 1.0 : 0.0; }

// Row order is the function index carried by the compiled code.
constexpr FunctionRow kFunctions[kFunctionCount] = {
    {"sin", 1, Sin},     {"cos", 1, Cos},     {"tan", 1, Tan},   {"asin", 1, Asin},   {"acos", 1, Acos},
    {"atan", 1, Atan},   {"angle", 2, Angle}, {"sqrt", 1, Sqrt}, {"exp", 1, Exp},     {"ln", 1, Ln},
    {"abs", 1, Abs},     {"mod", 2, Mod},     {"floor", 1, Floor}, {"ceil", 1, Ceil}, {"sign", 1, Sign},
    {"max", 2, Max},     {"min", 2, Min},     {"rand", 0, Rand}, {"range", 3, Range},
};

Engine g_engines[2];

}  // namespace

std::span<const FunctionRow, kFunctionCount> Functions() { return kFunctions; }

std::string FunctionName(Dialect dialect, uint32_t index) {
  std::string name = kFunctions[index].name;
  if (dialect == Dialect::kProgram)
    for (char& c : name) c = char(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

Engine& EngineOf(Dialect dialect) { return g_engines[dialect == Dialect::kFormula ? 0 : 1]; }

void SetVariable(Dialect dialect, uint32_t code, float value) {
  if (code < uint32_t(kVariableCount)) EngineOf(dialect).variables[code] = value;
}

void SetVariables(Dialect dialect, const uint32_t* codes, const float* values) {
  for (; *codes != 0; ++codes, ++values) SetVariable(dialect, *codes, *values);
}

}  // namespace nimbo::formula
