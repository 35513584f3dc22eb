// nimbo formula: compiles one formula (or program) the way the effects do,
// evaluates it once, and prints the value, the compiled words, or where it
// fails. It links the formula library directly: this is its checker.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/text_out.h"
#include "formula/compiler.h"
#include "formula/formula_dialect.h"
#include "formula/program.h"
#include "formula/user_variables.h"

namespace nimbo::host {
namespace {

using namespace nimbo::formula;

// Longer texts are refused before compiling: an editor field holds 999
// characters, and this bound keeps the compile time of any text small.
constexpr size_t kMaxTextBytes = 65536;
// The program dialect's symbols share the table with up to 128 lines.
constexpr size_t kMaxProgramUserVariables = kVariableCount - kFirstProgramUserVariable - kMaxProgramLines;

std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
  return text;
}

std::string Upper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
  return text;
}

struct VarOption {
  std::string name;  // as typed
  float value = 0;
};

VarOption ParseVar(const std::string& option) {
  const size_t eq = option.find('=');
  if (eq == std::string::npos) throw HostError("--var " + Quoted(option) + ": expected NAME=VALUE");
  VarOption v;
  v.name = option.substr(0, eq);
  std::string number = option.substr(eq + 1);
  if (!number.empty() && number[0] == '+') number.erase(0, 1);
  double value = 0;
  const auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (number.empty() || end != number.data() + number.size() ||
      (ec != std::errc() && ec != std::errc::result_out_of_range))
    throw HostError("--var " + Quoted(option) + ": the value is not a number");
  if (ec == std::errc::result_out_of_range) {
    // Out of double's range: from_chars leaves `value` alone.
    const bool tiny = number.find_first_of("eE") != std::string::npos &&
                      number.find('-', number.find_first_of("eE")) != std::string::npos;
    value = tiny ? 0.0 : 1e308 * 10;
    if (number[0] == '-') value = -value;
  }
  if (v.name.empty()) throw HostError("--var " + Quoted(option) + ": needs a name");
  v.value = float(value);
  return v;
}

// A user variable from --var, by the dialect's naming rules.
std::string AddUser(Dialect dialect, std::vector<std::string>& names, const std::string& typed) {
  std::string kept;
  switch (AddUserVariable(dialect, names, typed, &kept)) {
    case AddResult::kAdded:
    case AddResult::kDuplicate:
      return kept;
    case AddResult::kEmpty:
      throw HostError("--var needs a name");
    case AddResult::kRefused:
      throw HostError("--var " + Quoted(typed) + ": " + Quoted(kept) +
                      " cannot be a user variable (reserved, or shorter than two characters)");
    case AddResult::kFull:
      break;
  }
  throw HostError("--var " + Quoted(typed) + ": at most " + std::to_string(kMaxFormulaUserVariables) +
                  " user variables");
}

std::string ValueText(float value, bool json) {
  const std::string text = NumberText(value);
  return json && !std::isfinite(value) ? "\"" + text + "\"" : text;
}

std::string CodeText(const Code& code) {
  std::string text = "[";
  for (size_t k = 0; k < code.size(); ++k) text += (k ? ", " : "") + std::to_string(code[k]);
  return text + "]";
}

int RunFormulaDialect(const CommandLine& cl) {
  const FormulaOptions& o = cl.formula;
  std::vector<std::string> own = SplitNames(o.allow_given ? o.allow : "i,j,hmap,a,b,c,d,e,f,g,h");
  for (std::string& name : own) name = Lower(name);

  // --var: an allowed or common name sets that variable; any other name
  // declares a switched-on user variable, in the order given.
  std::vector<std::string> users;
  std::vector<std::pair<std::string, float>> values;  // kept name, value
  for (const std::string& option : o.vars) {
    const VarOption v = ParseVar(option);
    std::string name = Lower(v.name);
    bool known = std::find(own.begin(), own.end(), name) != own.end();
    for (const char* common : kCommonNames) known = known || name == common;
    if (!known) name = AddUser(Dialect::kFormula, users, v.name);
    values.emplace_back(name, v.value);
  }

  const FormulaResult r = CompileFormula(o.text, own, users);
  if (!r.ok) {
    if (cl.json) {
      std::string out = "{\"ok\": false, \"position\": " + std::to_string(r.position);
      if (!r.unknown_name.empty()) out += ", \"name\": " + JsonString(r.unknown_name);
      std::printf("%s}\n", out.c_str());
    } else if (!r.unknown_name.empty()) {
      std::fprintf(stderr, "nimbo: error: the formula uses %s, which it may not use here\n",
                   Quoted(r.unknown_name).c_str());
    } else if (r.position < 0) {
      std::fprintf(stderr, "nimbo: error: the formula nests too deep to evaluate\n");
    } else {
      std::fprintf(stderr,
                   "nimbo: error: the formula does not compile: error at position %d (blanks removed, each name "
                   "one character)\n",
                   r.position);
    }
    return 1;
  }

  ResetFormulaVariables();
  for (const auto& [name, value] : values) {
    uint32_t code = 0;
    for (const NamedCode& fixed : FixedNames())
      if (name == fixed.name) code = fixed.code;
    for (size_t k = 0; k < users.size(); ++k)
      if (name == users[k]) code = kFirstUserVariable + uint32_t(k);
    if (code == 0 && name.size() == 1 && name[0] >= 'a' && name[0] <= 'z') code = uint8_t(name[0]);
    if (code == 0) throw HostError("--var " + Quoted(name) + ": the name has no variable to set");
    SetVariable(Dialect::kFormula, code, value);
  }
  const float value = Evaluate(Dialect::kFormula, r.code.data());
  if (cl.json) {
    std::printf("{\"ok\": true, \"value\": %s, \"code\": %s}\n", ValueText(value, true).c_str(),
                CodeText(r.code).c_str());
  } else {
    std::printf("%s\n", ValueText(value, false).c_str());
  }
  return 0;
}

int RunProgramDialect(const CommandLine& cl) {
  const FormulaOptions& o = cl.formula;
  float txyz[4] = {0, 0, 0, 0};
  std::vector<std::string> names;
  std::vector<ProgramUserVariable> users;
  for (const std::string& option : o.vars) {
    const VarOption v = ParseVar(option);
    const std::string upper = Upper(v.name);
    if (upper.size() == 1 && std::string("TXYZ").find(upper[0]) != std::string::npos) {
      txyz[std::string("TXYZ").find(upper[0])] = v.value;
      continue;
    }
    const std::string kept = AddUser(Dialect::kProgram, names, v.name);
    bool found = false;
    for (ProgramUserVariable& u : users)
      if (u.name == kept) u.value = v.value, found = true;
    if (!found) users.push_back({kept, v.value});
    if (users.size() > kMaxProgramUserVariables)
      throw HostError("--var: at most " + std::to_string(kMaxProgramUserVariables) + " user variables in a program");
  }

  Program program;
  const Program::Status status = program.Compile(o.text, Upper(o.result), o.outputs, users);
  if (!status.ok) {
    if (cl.json) {
      std::printf("{\"ok\": false, \"line\": %s}\n", status.line ? std::to_string(*status.line).c_str() : "null");
    } else if (status.line) {
      std::fprintf(stderr, "nimbo: error: the program does not compile: error in line %d (counted from 0)\n",
                   *status.line);
    } else {
      std::fprintf(stderr, "nimbo: error: the program's last line must assign %s\n", Upper(o.result).c_str());
    }
    return 1;
  }
  const float value = program.Evaluate(txyz[0], txyz[1], txyz[2], txyz[3]);
  if (cl.json) {
    std::string outputs;
    for (size_t k = 0; k < o.outputs.size(); ++k)
      outputs += (k ? ", " : "") + JsonString(o.outputs[k]) + ": " + ValueText(program.Output(k), true);
    std::printf("{\"ok\": true, \"value\": %s, \"code\": %s, \"outputs\": {%s}}\n", ValueText(value, true).c_str(),
                program.HasResult() ? CodeText(program.ResultCode()).c_str() : "[]", outputs.c_str());
  } else {
    std::printf("%s\n", ValueText(value, false).c_str());
    for (size_t k = 0; k < o.outputs.size(); ++k)
      std::printf("%s=%s\n", o.outputs[k].c_str(), ValueText(program.Output(k), false).c_str());
  }
  return 0;
}

}  // namespace

int RunFormula(const CommandLine& cl) {
  if (cl.formula.help) {
    std::fputs(FormulaUsageText(), stdout);
    return 0;
  }
  if (cl.formula.text.size() > kMaxTextBytes)
    throw HostError("the text is longer than " + std::to_string(kMaxTextBytes) + " bytes");
  return cl.formula.program ? RunProgramDialect(cl) : RunFormulaDialect(cl);
}

}  // namespace nimbo::host
