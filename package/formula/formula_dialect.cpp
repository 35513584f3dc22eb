#include "formula/formula_dialect.h"

#include <algorithm>

#include "formula/compiler.h"
#include "formula/text.h"

namespace nimbo::formula {
namespace {

constexpr NamedCode kFixedNames[] = {
    {"imax", kImax}, {"jmax", kJmax}, {"pi", kPi},     {"screenw", kScreenW}, {"screenh", kScreenH},
    {"hmap", kHmap}, {"a", kA},       {"b", kA + 1},   {"c", kA + 2},         {"d", kA + 3},
    {"e", kA + 4},   {"f", kA + 5},   {"g", kA + 6},   {"h", kA + 7},         {"t", kT},
    {"i", kI},       {"j", kJ},
};

bool IsNameStart(uint32_t c) { return (c >= 'a' && c <= 'z') || c == '_'; }
bool IsNameChar(uint32_t c) { return IsNameStart(c) || IsDigit(c); }

}  // namespace

std::span<const NamedCode> FixedNames() { return kFixedNames; }

std::vector<std::string> SplitNames(std::string_view list) {
  std::vector<std::string> names;
  size_t from = 0;
  while (from <= list.size()) {
    size_t comma = list.find(',', from);
    if (comma == std::string_view::npos) comma = list.size();
    if (comma > from) names.emplace_back(list.substr(from, comma - from));
    from = comma + 1;
  }
  return names;
}

std::string FirstUnknownName(const Text& text, const std::vector<std::string>& allowed) {
  const size_t n = text.size();
  size_t p = 0;
  while (p < n) {
    if (!IsNameStart(text[p])) {
      ++p;
      continue;
    }
    std::string name;
    while (p < n && IsNameChar(text[p])) name.push_back(char(text[p++]));
    if (p < n && text[p] == '(') continue;  // a function call
    if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) return name;
  }
  return "";
}

bool CheckNames(const Text& text, std::string_view allowed_names) {
  return FirstUnknownName(text, SplitNames(allowed_names)).empty();
}

FormulaResult CompileFormula(std::string_view typed, const std::vector<std::string>& own_names,
                             const std::vector<std::string>& user_variables) {
  FormulaResult result;
  Text text;
  for (const char32_t c : Widen(typed)) {
    if (c <= 32) continue;
    text.push_back(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }

  std::vector<std::string> allowed = own_names;
  allowed.insert(allowed.end(), std::begin(kCommonNames), std::end(kCommonNames));
  allowed.insert(allowed.end(), user_variables.begin(), user_variables.end());
  result.prepared = text;
  result.code = ZeroCode();
  result.unknown_name = FirstUnknownName(text, allowed);
  if (!result.unknown_name.empty()) return result;

  for (const NamedCode& fixed : kFixedNames) SubstituteName(text, fixed.name, fixed.code);
  for (size_t k = 0; k < user_variables.size(); ++k)
    SubstituteName(text, user_variables[k], kFirstUserVariable + uint32_t(k));
  result.prepared = text;

  std::vector<uint32_t> codes;
  for (const std::string& name : allowed) {
    uint32_t code = 0;
    for (const NamedCode& fixed : kFixedNames)
      if (name == fixed.name) code = fixed.code;
    for (size_t k = 0; k < user_variables.size() && code == 0; ++k)
      if (name == user_variables[k]) code = kFirstUserVariable + uint32_t(k);
    if (code == 0 && name.size() == 1) code = uint8_t(name[0]);
    if (code != 0) codes.push_back(code);
  }
  CompileResult compiled = Compile(Dialect::kFormula, text, codes);
  result.ok = compiled.ok;
  result.position = compiled.position;
  if (compiled.ok) result.code = std::move(compiled.code);
  return result;
}

void ResetFormulaVariables() {
  Engine& engine = EngineOf(Dialect::kFormula);
  std::fill(engine.variables + kFirstToken, engine.variables + kVariableCount, 0.0f);
  engine.variables[kPi] = kPiValue;
}

}  // namespace nimbo::formula
