#include "implicit_programs.h"

#include <algorithm>
#include <cmath>

#include "formula/user_variables.h"

namespace nimbo::implicit {
namespace {

constexpr const char* kTitles[kProgramCount] = {"FUN", "texture", "normal"};

// What each program must end with and what it hands out.
const std::string kResultName = "FUN";
const std::vector<std::string> kOutputs[kProgramCount] = {{}, {"U", "V"}, {"NX", "NY", "NZ"}};

}  // namespace

const char* const kDefaultFunProgram =
    "R=SQRT(X*X+Y*Y+Z*Z)\n"
    "P=1.25+0.12*SIN(T*1.7)\n"
    "W=0.3+0.12*SIN(T*1.1)\n"
    "K=4.2\n"
    "G=SIN(K*X+T)*COS(K*Y)+SIN(K*Y+T)*COS(K*Z)+SIN(K*Z+T)*COS(K*X)\n"
    "S=R-P\n"
    "FUN=MAX(S,ABS(G)-W)\n";

const char* ProgramTitle(int32_t kind) { return kind >= 0 && kind < kProgramCount ? kTitles[kind] : "?"; }

float UserVariable::ValueAt(float pos) const {
  const float p = std::isfinite(pos) ? std::clamp(pos, 0.0f, 1.0f) : position;
  return minimum + (maximum - minimum) * p;
}

ProgramSet::ProgramSet() { text[kFunProgram] = kDefaultFunProgram; }

void ProgramSet::Sanitize() {
  for (std::string& t : text)
    if (t.size() > kMaxProgramText) t.resize(kMaxProgramText);
  if (vars.size() > kMaxUserVariables) vars.resize(kMaxUserVariables);
  for (UserVariable& v : vars) {
    if (!std::isfinite(v.minimum)) v.minimum = 0;
    if (!std::isfinite(v.maximum)) v.maximum = 1;
    if (v.minimum > v.maximum) std::swap(v.minimum, v.maximum);
    v.position = std::isfinite(v.position) ? std::clamp(v.position, 0.0f, 1.0f) : 0.5f;
  }
}

AddVariable AddUserVariable(ProgramSet& set, std::string_view typed) {
  if (set.vars.size() >= kMaxUserVariables) return AddVariable::kFull;
  std::vector<std::string> names;
  for (const UserVariable& v : set.vars) names.push_back(v.name);
  std::string kept;
  switch (formula::AddUserVariable(formula::Dialect::kProgram, names, typed, &kept)) {
    case formula::AddResult::kAdded:
      set.vars.push_back({kept, 0.0f, 1.0f, 0.5f});
      return AddVariable::kAdded;
    case formula::AddResult::kEmpty:
      return AddVariable::kEmpty;
    case formula::AddResult::kDuplicate:
      return AddVariable::kDuplicate;
    case formula::AddResult::kFull:
      return AddVariable::kFull;
    case formula::AddResult::kRefused:
      break;
  }
  return AddVariable::kRefused;
}

std::string CompiledPrograms::ErrorText() const {
  if (failed < 0) return "";
  const std::string title = ProgramTitle(failed);
  if (!line) return "The " + title + " program's last line must assign FUN.";
  return "The " + title + " program does not compile: error in line " + std::to_string(*line) + " (counted from 0).";
}

CompiledPrograms CompilePrograms(const ProgramSet& set, const std::vector<float>& positions) {
  std::vector<formula::ProgramUserVariable> users;
  for (size_t k = 0; k < set.vars.size(); ++k) {
    const UserVariable& v = set.vars[k];
    users.push_back({v.name, v.ValueAt(k < positions.size() ? positions[k] : v.position)});
  }
  CompiledPrograms out;
  for (int32_t kind = 0; kind < kProgramCount; ++kind) {
    const formula::Program::Status status = out.program[size_t(kind)].Compile(
        set.text[size_t(kind)], kind == kFunProgram ? kResultName : std::string(), kOutputs[kind], users);
    out.has_lines[size_t(kind)] = !out.program[size_t(kind)].Lines().empty();
    if (!status.ok && out.failed < 0) {
      out.failed = kind;
      out.line = status.line;
    }
  }
  return out;
}

}  // namespace nimbo::implicit
