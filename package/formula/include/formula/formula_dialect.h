// The formula dialect: one lower-case expression per field, the names each
// field may use fixed by the effect (Evaluator3D's vertex, auxiliary and
// camera formulas).
//
// Preparing a typed text, in order: widen to codes, fold A-Z to a-z, delete
// every code of 32 or less (so "1 2" reads 12), check the names, substitute
// the names by their codes, compile. The error position of a failed compile
// indexes that prepared text (folded, blanks deleted, each name one code);
// a failed name check has no position (-1) and names the name instead.
// There is no exponent notation: "1e5" is read as the name "e5", on purpose.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "formula/code.h"

namespace nimbo::formula {

// Variable codes of the formula dialect. 274 and 275 are unused.
inline constexpr uint32_t kImax = 257, kJmax = 258, kPi = 259, kScreenW = 260, kScreenH = 261, kT = 262,
                          kA = 263, kI = 271, kJ = 272, kHmap = 273, kFirstUserVariable = 276;
// The value "pi" holds: the single-precision value nearest to pi.
inline constexpr float kPiValue = 3.14159274f;
// The names every formula may use besides its own.
inline constexpr const char* kCommonNames[] = {"t", "imax", "jmax", "pi", "screenw", "screenh"};

// The fixed names with their codes, in the order substitution replaces them.
struct NamedCode {
  const char* name;
  uint32_t code;
};
std::span<const NamedCode> FixedNames();

// A comma-separated list of names, empty entries dropped.
std::vector<std::string> SplitNames(std::string_view list);

// Check names: the first name outside a function call's position that is
// not in `allowed`, or "" when every name is allowed. `text` is already
// folded and without blanks.
std::string FirstUnknownName(const Text& text, const std::vector<std::string>& allowed);
// The same for a comma-separated list of allowed names.
bool CheckNames(const Text& text, std::string_view allowed_names);

struct FormulaResult {
  bool ok = false;
  int position = -1;         // in the prepared text; -1 when there is none
  std::string unknown_name;  // set when the name check failed
  Text prepared;             // the text the compiler saw
  Code code;                 // on failure the code of "0"
};

// Prepares and compiles one formula. `own_names` are the field's own names
// ("i", "j", "a", ...); the common names and the switched-on user variables
// (codes 276 on, in list order) are always allowed. A one-letter allowed
// name without a code of its own addresses the table entry of its letter.
FormulaResult CompileFormula(std::string_view typed, const std::vector<std::string>& own_names,
                             const std::vector<std::string>& user_variables);

// Sets entries 256..1023 to 0 and "pi" to its value (done before every
// recompile).
void ResetFormulaVariables();

}  // namespace nimbo::formula
