// The built-in functions and each dialect's process-wide table and stack.
#include <cctype>

#include "formula/code.h"
#include "function_math.h"

namespace nimbo::formula {
namespace {

template <uint32_t kIndex>
double Entry(double a, double b, double c) {
  return CallFunction(kIndex, a, b, c);
}

// Row order is the function index carried by the compiled code.
constexpr FunctionRow kFunctions[kFunctionCount] = {
    {"sin", 1, Entry<0>},    {"cos", 1, Entry<1>},    {"tan", 1, Entry<2>},   {"asin", 1, Entry<3>},
    {"acos", 1, Entry<4>},   {"atan", 1, Entry<5>},   {"angle", 2, Entry<6>}, {"sqrt", 1, Entry<7>},
    {"exp", 1, Entry<8>},    {"ln", 1, Entry<9>},     {"abs", 1, Entry<10>},  {"mod", 2, Entry<11>},
    {"floor", 1, Entry<12>}, {"ceil", 1, Entry<13>},  {"sign", 1, Entry<14>}, {"max", 2, Entry<15>},
    {"min", 2, Entry<16>},   {"rand", 0, Entry<17>},  {"range", 3, Entry<18>},
};

static_assert([] {
  for (uint32_t k = 0; k < kFunctionCount; ++k)
    if (kFunctions[k].args != kFunctionArgs[k]) return false;
  return true;
}());

}  // namespace

Engine g_engines[2];

std::span<const FunctionRow, kFunctionCount> Functions() { return kFunctions; }

std::string FunctionName(Dialect dialect, uint32_t index) {
  std::string name = kFunctions[index].name;
  if (dialect == Dialect::kProgram)
    for (char& c : name) c = char(std::toupper(static_cast<unsigned char>(c)));
  return name;
}


void SetVariable(Dialect dialect, uint32_t code, float value) {
  if (code < uint32_t(kVariableCount)) EngineOf(dialect).variables[code] = value;
}

void SetVariables(Dialect dialect, const uint32_t* codes, const float* values) {
  for (; *codes != 0; ++codes, ++values) SetVariable(dialect, *codes, *values);
}

}  // namespace nimbo::formula
