// The compiled form of a formula and the stack machine that runs it.
//
// Text: a formula is held as 32-bit character codes. Codes 1..255 are typed
// characters; every code of 256 or more is a variable token that name
// substitution put in place of a whole name. Tokens count as lower-case
// letters for every character class, never as digits or blanks.
//
// Code: zero-terminated 32-bit words in postfix order. Opcodes are character
// codes: 'D' + single-precision bit pattern (constant), 'V' + variable code,
// 'F' + function index, the operators + - * / ^, 'M' (negate) and 0 (end).
// Any other opcode ends the run with 0.0.
//
// Precision: + - * / are single precision. 'F' widens its arguments to
// double, calls, and narrows the result. '^' does the same through pow():
// the power is computed in double and narrowed, like the functions, so
// 2^0.5 equals sqrt(2) to the bit.
//
// Threading: each dialect has one process-wide variable table and stack
// (Engine). Nothing here locks: the calling effect holds its own lock over
// a whole compile or set-variables-and-evaluate run.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace nimbo::formula {

using Text = std::u32string;        // formula text, tokens included
using Code = std::vector<uint32_t>;  // compiled words, the final 0 included

enum class Dialect { kFormula, kProgram };

enum Opcode : uint32_t {
  kEnd = 0,
  kConst = 'D',
  kVar = 'V',
  kCall = 'F',
  kAdd = '+',
  kSub = '-',
  kMul = '*',
  kDiv = '/',
  kPow = '^',
  kNeg = 'M',
};

inline constexpr uint32_t kFirstToken = 256;
// Entries of each dialect's variable table, indexed by variable code.
inline constexpr int kVariableCount = 1024;
// Slots of the evaluation stack. A value needs one operand and one operator
// character, so a text of up to 2,047 characters (twice the 999 of an
// editor field, and more) can never need more; the compiler refuses any
// code that would (see Compile).
inline constexpr int kStackSlots = 1024;

// One built-in function: its name in the formula dialect (the program
// dialect uses the upper-case name), argument count and entry point. Unused
// arguments are passed as 0.
struct FunctionRow {
  const char* name;
  int args;
  double (*call)(double a, double b, double c);
};
inline constexpr uint32_t kFunctionCount = 19;
inline constexpr uint32_t kRandIndex = 17;
std::span<const FunctionRow, kFunctionCount> Functions();
// The argument counts alone, by index, for the evaluators' inner loops.
inline constexpr int kFunctionArgs[kFunctionCount] = {1, 1, 1, 1, 1, 1, 2, 1, 1, 1, 1, 2, 1, 1, 1, 2, 2, 0, 3};
// The name of function `index` as the dialect spells it.
std::string FunctionName(Dialect dialect, uint32_t index);

// A dialect's process-wide state.
struct Engine {
  float variables[kVariableCount] = {};
  float stack[kStackSlots] = {};
};
extern Engine g_engines[2];  // [0] formula dialect, [1] program dialect
inline Engine& EngineOf(Dialect dialect) { return g_engines[dialect == Dialect::kFormula ? 0 : 1]; }

// Set variable / set variables (codes zero-terminated).
void SetVariable(Dialect dialect, uint32_t code, float value);
void SetVariables(Dialect dialect, const uint32_t* codes, const float* values);

// Runs `code` against a variable table with a stack of at least as many
// slots as the code needs; returns the bottom slot at the end word. No
// allocation, no check: the code must come from the compiler.
float Run(const uint32_t* code, const float* variables, float* stack);

// Evaluate with the dialect's own table and stack.
inline float Evaluate(Dialect dialect, const uint32_t* code) {
  Engine& e = EngineOf(dialect);
  return Run(code, e.variables, e.stack);
}

// The deepest the stack gets while running `code` (compiler output).
int StackDepth(const uint32_t* code);

}  // namespace nimbo::formula
