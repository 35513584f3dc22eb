#include "formula/program.h"

#include "formula/compiler.h"
#include "formula/text.h"

namespace nimbo::formula {
namespace {

uint32_t Upper(uint32_t c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; }

struct Symbol {
  Text name;
  uint32_t code;
};

}  // namespace

Program::Status Program::Compile(std::string_view source, const std::string& result_name,
                                 const std::vector<std::string>& outputs,
                                 const std::vector<ProgramUserVariable>& user_variables) {
  lines_.clear();
  result_ = ProgramLine{};
  has_result_ = false;
  output_lines_.assign(outputs.size(), 0);
  user_values_.clear();

  // Lines, cut at CR and LF, each upper-cased, blanks deleted, split at the
  // first '='.
  const Text text = Widen(source);
  std::vector<ProgramLine> lines;
  int lf_count = 0;
  size_t from = 0;
  for (size_t p = 0; p <= text.size(); ++p) {
    if (p < text.size() && text[p] != '\r' && text[p] != '\n') continue;
    Text line;
    for (size_t k = from; k < p; ++k)
      if (text[k] > 32) line.push_back(char32_t(Upper(text[k])));
    const size_t eq = line.find(U'=');
    if (eq != Text::npos && eq + 1 < line.size()) {
      if (lines.size() == kMaxProgramLines) return {false, lf_count};
      ProgramLine kept;
      kept.name = line.substr(0, eq);
      kept.expression = line.substr(eq + 1);
      kept.line_number = lf_count;
      lines.push_back(std::move(kept));
    }
    if (p < text.size() && text[p] == '\n') ++lf_count;
    from = p + 1;
  }

  // Symbols: T, X, Y, Z, the user variables, then each line's name.
  std::vector<Symbol> symbols;
  std::vector<uint32_t> allowed = {kProgramT, kProgramX, kProgramY, kProgramZ};
  uint32_t next_code = kFirstProgramUserVariable;
  for (const ProgramUserVariable& v : user_variables) {
    Text name;
    for (const char c : v.name) name.push_back(char32_t(Upper(static_cast<unsigned char>(c))));
    symbols.push_back({name, next_code});
    allowed.push_back(next_code);
    user_values_.emplace_back(next_code, v.value);
    ++next_code;
  }
  const Symbol fixed[] = {{U"T", kProgramT}, {U"X", kProgramX}, {U"Y", kProgramY}, {U"Z", kProgramZ}};
  for (ProgramLine& line : lines) {
    for (size_t k = symbols.size(); k-- > 0;) SubstituteName(line.expression, symbols[k].name, symbols[k].code);
    for (const Symbol& s : fixed) SubstituteName(line.expression, s.name, s.code);
    // The table ends at kVariableCount: a symbol past it cannot be stored.
    if (next_code >= uint32_t(kVariableCount)) return {false, line.line_number};
    line.code = next_code++;
    symbols.push_back({line.name, line.code});
  }

  if (!result_name.empty()) {
    if (lines.empty() || !(lines.back().name == Widen(result_name))) return {false, std::nullopt};
    result_ = std::move(lines.back());
    lines.pop_back();
    has_result_ = true;
  }

  for (ProgramLine& line : lines) {
    CompileResult compiled = formula::Compile(Dialect::kProgram, line.expression, allowed);
    if (!compiled.ok) return {false, line.line_number};
    line.compiled = std::move(compiled.code);
    allowed.push_back(line.code);
  }
  if (has_result_) {
    CompileResult compiled = formula::Compile(Dialect::kProgram, result_.expression, allowed);
    if (!compiled.ok) return {false, result_.line_number};
    result_.compiled = std::move(compiled.code);
  }

  // An output that no line assigns reads line 0, on purpose without error.
  for (size_t k = 0; k < outputs.size(); ++k)
    for (size_t n = 0; n < lines.size(); ++n)
      if (SameIgnoringCase(lines[n].name, outputs[k])) output_lines_[k] = int(n);
  lines_ = std::move(lines);
  return {true, std::nullopt};
}

float Program::Evaluate(float t, float x, float y, float z) {
  Engine& engine = EngineOf(Dialect::kProgram);
  engine.variables[kProgramT] = t;
  engine.variables[kProgramX] = x;
  engine.variables[kProgramY] = y;
  engine.variables[kProgramZ] = z;
  for (const auto& [code, value] : user_values_) engine.variables[code] = value;
  for (ProgramLine& line : lines_) {
    line.value = Run(line.compiled.data(), engine.variables, engine.stack);
    engine.variables[line.code] = line.value;
  }
  return has_result_ ? Run(result_.compiled.data(), engine.variables, engine.stack) : 0.0f;
}

float Program::Output(size_t k) const {
  const int line = output_lines_[k];
  return line < int(lines_.size()) ? lines_[line].value : 0.0f;
}

}  // namespace nimbo::formula
