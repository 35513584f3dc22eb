// libFuzzer target for the formula language: both compilers and the
// evaluators over arbitrary bytes.
//
// The first byte picks the dialect and an allowed set (a subset of the
// vertex names, the camera formulas' none, or user variables); the rest is
// the text. Beyond "no crash, no hang, no read past the text or the stack"
// it checks what must hold for every input: a failed formula keeps the code
// of "0", positions lie inside the prepared text, the code never needs more
// than the stack holds nor more words than the estimate, and the block
// evaluators (formula and whole program) give the one-point bits.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "formula/block_evaluator.h"
#include "formula/compiler.h"
#include "formula/formula_dialect.h"
#include "formula/program.h"
#include "fuzz_check.h"

namespace {

using namespace nimbo::formula;

void CheckCode(const Code& code, const Text& text) {
  FUZZ_CHECK(!code.empty() && code.back() == kEnd);
  FUZZ_CHECK(StackDepth(code.data()) <= kStackSlots);
  FUZZ_CHECK(code.size() <= EstimateCodeWords(text) || text.empty());
}

// The block evaluator over a few points against the one-point evaluator.
void CheckBlock(Dialect dialect, const Code& code, uint32_t varying) {
  Engine& engine = EngineOf(dialect);
  const float column[3] = {-1.5f, 0.0f, 1e30f};
  float out[3];
  const Column columns[] = {{varying, column}};
  BlockEvaluator block(code);
  block.Run(engine.variables, columns, 3, out);
  for (int k = 0; k < 3; ++k) {
    engine.variables[varying] = column[k];
    const float one = Evaluate(dialect, code.data());
    // Any NaN matches any NaN (see block_evaluator.h).
    FUZZ_CHECK((one != one && out[k] != out[k]) || std::bit_cast<uint32_t>(one) == std::bit_cast<uint32_t>(out[k]));
  }
}

void FuzzFormula(uint8_t selector, std::string_view text) {
  static const char* kNames[] = {"i", "j", "hmap", "a", "b", "c", "d", "e", "f", "g", "h"};
  std::vector<std::string> own;
  for (int k = 0; k < 8; ++k)
    if (selector & (1u << k)) own.push_back(kNames[k]);
  if (selector & 0x80) own.insert(own.end(), {"g", "h", "k"});
  const std::vector<std::string> users = (selector & 0x40) ? std::vector<std::string>{"speed", "_x1"}
                                                            : std::vector<std::string>{};
  ResetFormulaVariables();
  const FormulaResult r = CompileFormula(text, own, users);
  if (!r.ok) {
    FUZZ_CHECK(r.code == ZeroCode());
    FUZZ_CHECK(r.position >= -1 && r.position <= int(r.prepared.size()));
    FUZZ_CHECK(r.unknown_name.empty() || r.position == -1);
    return;
  }
  CheckCode(r.code, r.prepared);
  Evaluate(Dialect::kFormula, r.code.data());
  CheckBlock(Dialect::kFormula, r.code, kI);
}

void FuzzProgram(uint8_t selector, std::string_view text) {
  Program program;
  const std::vector<ProgramUserVariable> users = {{"speed", 2.0f}, {"2x", -1.0f}};
  const auto status = program.Compile(text, (selector & 1) ? "FUN" : "", {"u", "NX"},
                                      (selector & 2) ? users : std::vector<ProgramUserVariable>{});
  if (!status.ok) return;
  // The whole program over two samples as blocks, against one sample at a
  // time.
  const float x[2] = {1.0f, -0.25f}, y[2] = {-2.0f, 0.0f}, z[2] = {3.0f, 1e-3f};
  float result[2];
  ProgramBlockEvaluator block(program, 2);
  block.Run(0.5f, x, y, z, 2, result);
  for (int k = 0; k < 2; ++k) {
    const float one = program.Evaluate(0.5f, x[k], y[k], z[k]);
    FUZZ_CHECK((one != one && result[k] != result[k]) || std::bit_cast<uint32_t>(one) == std::bit_cast<uint32_t>(result[k]));
    const float u = program.Output(0);
    FUZZ_CHECK((u != u && block.Output(0, k) != block.Output(0, k)) || std::bit_cast<uint32_t>(u) == std::bit_cast<uint32_t>(block.Output(0, k)));
    program.Output(1);
  }
  for (const ProgramLine& line : program.Lines()) {
    CheckCode(line.compiled, line.expression);
    CheckBlock(Dialect::kProgram, line.compiled, kProgramX);
  }
  if (program.HasResult()) CheckBlock(Dialect::kProgram, program.ResultCode(), kProgramY);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] & 1) FuzzProgram(data[0] >> 1, text);
  else FuzzFormula(data[0] >> 1, text);
  return 0;
}
