// The compiler shared by both dialects: text (already prepared, tokens in
// place) to postfix code.
//
// Grouping: each level takes the rightmost operator at parenthesis depth 0,
// so every two-operand operator groups from the left, '^' included
// (2^3^2 = 64), and a leading minus binds tighter than '^' (-2^2 = 4). A
// '-' after another operator is a two-operand operator, so 2*-3 is an error
// (2*(-3) is not). Constant operands fold at compile time with the same
// evaluator, rand() included: one draw per call per compile.
#pragma once

#include <span>

#include "formula/code.h"

namespace nimbo::formula {

struct CompileResult {
  bool ok = false;
  // The index in the compiled text of the character at fault, or -1 where
  // there is none (the code would need more than kStackSlots).
  int position = -1;
  Code code;  // exactly the used words plus the end word; empty on failure
};

// Nesting the compiler follows before it calls a text an error (at the
// start of the part that nests too deep). A 999-character field nests at
// most 999 deep; the limit keeps any longer text off the thread's stack.
inline constexpr int kMaxNesting = 2000;

// Compiles `text` (which ends at its first 0 code, if any). Every standalone
// lower-case letter or token must be in `allowed`. An empty text compiles as
// the text "0".
CompileResult Compile(Dialect dialect, const Text& text, std::span<const uint32_t> allowed);

// Words the compiler reserves before compiling: never fewer than it emits.
size_t EstimateCodeWords(const Text& text);

// The code of the text "0", which a failed formula keeps.
Code ZeroCode();

}  // namespace nimbo::formula
