#include "formula_set.h"

#include <algorithm>

#include "formula/formula_dialect.h"
#include "formula/user_variables.h"

namespace nimbo::e3d {
namespace {

constexpr FieldInfo kFields[kFieldCount] = {
    {"x", "(a-0.5)*100", 8},
    {"y", "0", 8},
    {"z", "(b-0.5)*100", 8},
    {"u", "a", 8},
    {"v", "b", 8},
    {"a", "i/(imax-1)", 0},
    {"b", "j/(jmax-1)", 1},
    {"c", "", 2},
    {"d", "", 3},
    {"cx", "cos(t)*100", -1},
    {"cy", "100", -1},
    {"cz", "sin(t)*100", -1},
    {"tx", "0", -1},
    {"ty", "0", -1},
    {"tz", "0", -1},
    {"roll", "0", -1},
    {"zoom", "1.0", -1},
    {"nx", "0", 8},
    {"ny", "0", 8},
    {"nz", "0", 8},
    {"e", "", 4},
    {"f", "", 5},
    {"g", "", 6},
    {"h", "", 7},
    {"u2", "", 8},
    {"v2", "", 8},
    {"nx2", "", 8},
    {"ny2", "", 8},
    {"nz2", "", 8},
};

constexpr const char* kAuxNames[8] = {"a", "b", "c", "d", "e", "f", "g", "h"};

// The field's own names: i, j, hmap (while the height map is on) and the
// auxiliaries it may use.
std::vector<std::string> OwnNames(int32_t field, bool hmap) {
  std::vector<std::string> names;
  const int32_t aux = kFields[field].aux_allowed;
  if (aux < 0) return names;
  names = {"i", "j"};
  if (hmap) names.push_back("hmap");
  for (int32_t k = 0; k < aux; ++k) names.push_back(kAuxNames[k]);
  return names;
}

bool IsBlankText(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) <= 32; });
}

}  // namespace

const FieldInfo& Info(int32_t field) { return kFields[field]; }

int32_t FieldByName(std::string_view name) {
  for (int32_t k = 0; k < kFieldCount; ++k)
    if (name == kFields[k].name) return k;
  return -1;
}

FormulaSet::FormulaSet() {
  for (int32_t k = 0; k < kFieldCount; ++k) text[size_t(k)] = kFields[k].def;
}

void FormulaSet::Sanitize() {
  for (std::string& t : text)
    if (t.size() > kMaxFormulaLength) t.resize(kMaxFormulaLength);
  imax = std::clamp(imax, kMinGridSide, kMaxGridSide);
  jmax = std::clamp(jmax, kMinGridSide, kMaxGridSide);
  for (int32_t* flag : {&hmap, &loopi, &loopj, &front, &back}) *flag = *flag != 0;
  if (uvmode1 < 0 || uvmode1 >= kUvModeCount) uvmode1 = kUvFormulas;
  if (uvmode2 < 0 || uvmode2 >= kUvModeCount) uvmode2 = kUvEnvVertices;
  // An empty pattern would have no symbol to compare: it reads as "1".
  if (ipattern.empty()) ipattern = "1";
  if (jpattern.empty()) jpattern = "1";
  if (ipattern.size() > kMaxFormulaLength) ipattern.resize(kMaxFormulaLength);
  if (jpattern.size() > kMaxFormulaLength) jpattern.resize(kMaxFormulaLength);
  if (vars.size() > formula::kMaxFormulaUserVariables) vars.resize(formula::kMaxFormulaUserVariables);
  for (UserVariable& v : vars) v.on = v.on != 0;
}

std::vector<std::string> FormulaSet::ActiveVariableNames() const {
  std::vector<std::string> names;
  for (const UserVariable& v : vars)
    if (v.on) names.push_back(v.name);
  return names;
}

AddVariable AddUserVariable(FormulaSet& set, std::string_view typed) {
  std::vector<std::string> names;
  for (const UserVariable& v : set.vars) names.push_back(v.name);
  std::string kept;
  switch (formula::AddUserVariable(formula::Dialect::kFormula, names, typed, &kept)) {
    case formula::AddResult::kAdded:
      set.vars.push_back(UserVariable{kept});
      return AddVariable::kAdded;
    case formula::AddResult::kEmpty:
      return AddVariable::kEmpty;
    case formula::AddResult::kRefused:
      return AddVariable::kRefused;
    case formula::AddResult::kDuplicate:
      return AddVariable::kDuplicate;
    case formula::AddResult::kFull:
      break;
  }
  return AddVariable::kFull;
}

CompiledSet Recompile(const FormulaSet& set) {
  formula::ResetFormulaVariables();
  const std::vector<std::string> users = set.ActiveVariableNames();
  CompiledSet out;
  auto compile = [&](int32_t field) {
    const std::string& text = set.text[size_t(field)];
    out.empty[size_t(field)] = IsBlankText(text);
    const std::string_view typed(text.data(), std::min(text.size(), kMaxFormulaLength));
    formula::FormulaResult r = formula::CompileFormula(typed, OwnNames(field, set.hmap != 0), users);
    out.code[size_t(field)] = std::move(r.code);
    if (!r.ok && out.first_error < 0) {
      out.first_error = field;
      out.error_name = r.unknown_name;
      out.error_position = r.position;
    }
  };
  for (Field f : kAuxFields) compile(f);
  for (Field f : kVertexFields) compile(f);
  for (Field f : kCameraFields) compile(f);
  return out;
}

std::string MayUse(int32_t field, bool hmap) {
  const int32_t aux = Info(field).aux_allowed;
  if (aux < 0) return "t, imax, jmax, pi, screenw, screenh, user variables";
  std::string names = hmap ? "i, j, hmap" : "i, j";
  if (aux > 0) names += aux == 1 ? ", a" : std::string(", a-") + char('a' + aux - 1);
  return names + " and the common names";
}

std::string CompileErrorText(const CompiledSet& compiled, bool hmap) {
  if (compiled.first_error < 0) return "";
  const int32_t field = compiled.first_error;
  std::string text = "Formula " + std::string(Info(field).name) + " (" + std::to_string(field) + ") ";
  if (!compiled.error_name.empty())
    return text + "uses \"" + compiled.error_name + "\", which it may not use: " + MayUse(field, hmap) + ".";
  if (compiled.error_position >= 0)
    return text + "has an error at position " + std::to_string(compiled.error_position) +
           " (blanks removed, each name one character).";
  return text + "nests too deep to evaluate.";
}

}  // namespace nimbo::e3d
