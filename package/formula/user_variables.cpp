#include "formula/user_variables.h"
#include "formula/text.h"

#include <algorithm>

namespace nimbo::formula {
namespace {

constexpr const char* kReserved[] = {"t",     "imax", "jmax", "pi",   "screenw", "screenh", "sin",
                                     "cos",   "tan",  "asin", "acos", "atan",    "angle",   "sqrt",
                                     "exp",   "ln",   "abs",  "floor", "ceil",   "sign",    "max",
                                     "min",   "mod",  "rand", "range", "hmap"};


}  // namespace

std::string NormalizeUserVariableName(Dialect dialect, std::string_view typed) {
  std::string name;
  for (const char c : typed) {
    if (c == ' ' || c == '\t') continue;
    name.push_back(c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c);
  }
  for (size_t k = 0; k < name.size(); ++k) {
    const char c = name[k];
    const bool plain = (c >= 'a' && c <= 'z') || (k > 0 && c >= '0' && c <= '9');
    if (!plain && (k > 0 || dialect == Dialect::kFormula)) name[k] = '_';
  }
  return name;
}

bool IsReservedName(Dialect dialect, std::string_view name) {
  for (const char* reserved : kReserved) {
    if (dialect == Dialect::kProgram && std::string_view(reserved) == "hmap") continue;
    if (SameIgnoringCase(name, reserved)) return true;
  }
  return false;
}

AddResult AddUserVariable(Dialect dialect, std::vector<std::string>& names, std::string_view typed,
                          std::string* added) {
  if (typed.empty()) return AddResult::kEmpty;
  if (dialect == Dialect::kFormula && names.size() >= kMaxFormulaUserVariables) return AddResult::kFull;
  const std::string name = NormalizeUserVariableName(dialect, typed);
  if (added) *added = name;
  if (name.size() < 2 || IsReservedName(dialect, name)) return AddResult::kRefused;
  if (std::find(names.begin(), names.end(), name) != names.end()) return AddResult::kDuplicate;
  names.push_back(name);
  return AddResult::kAdded;
}

}  // namespace nimbo::formula
