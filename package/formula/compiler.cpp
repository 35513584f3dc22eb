// The compiler: pre-check, size estimate, recursive compile with constant
// folding, then the code copied to its exact length.
#include "formula/compiler.h"

#include <bit>
#include <clocale>
#include <cstdlib>
#include <locale.h>

#include "formula/text.h"

namespace nimbo::formula {
namespace {

// strtod in the "C" locale, so '.' is the decimal point whatever locale the
// process runs in.
double StrtodC(const char* text, char** end) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", locale_t(0));
  return strtod_l(text, end, c_locale);
}

// Reads the range as a decimal number: digits with an optional '.', at least
// one digit, an optional exponent 'E' or 'e' with optional sign and digits.
// This is the decimal form of the C library's conversion, which must consume
// the range exactly. (Its hexadecimal and "INF"/"NAN" forms are not numbers
// in a formula.)
bool ReadNumber(const uint32_t* t, size_t b, size_t e, float* value) {
  size_t p = b;
  size_t digits = 0;
  while (p < e && IsDigit(t[p])) ++p, ++digits;
  if (p < e && t[p] == '.') {
    ++p;
    while (p < e && IsDigit(t[p])) ++p, ++digits;
  }
  if (digits == 0) return false;
  if (p < e && (t[p] == 'E' || t[p] == 'e')) {
    size_t q = p + 1;
    if (q < e && (t[q] == '+' || t[q] == '-')) ++q;
    size_t exp_digits = 0;
    while (q < e && IsDigit(t[q])) ++q, ++exp_digits;
    if (exp_digits == 0) return false;  // the conversion would stop before the 'E'
    p = q;
  }
  if (p != e) return false;
  std::string ascii(e - b, '\0');
  for (size_t k = b; k < e; ++k) ascii[k - b] = char(t[k]);
  *value = float(StrtodC(ascii.c_str(), nullptr));
  return true;
}

class Compiler {
 public:
  Compiler(Dialect dialect, const uint32_t* text, Code& out) : dialect_(dialect), t_(text), out_(out) {}

  // Compiles [b, e); on failure the error position is in position().
  bool Range(size_t b, size_t e) {
    if (depth_ >= kMaxNesting) return Fail(b);
    ++depth_;
    const bool ok = Step(b, e);
    --depth_;
    return ok;
  }
  int position() const { return position_; }

 private:
  bool Fail(size_t at) {
    position_ = int(at);
    return false;
  }

  bool Step(size_t b, size_t e) {
    if (b >= e) return Fail(b);
    int depth = 0;
    for (size_t p = b; p < e; ++p) {
      if (t_[p] == '(') ++depth;
      if (t_[p] == ')' && --depth < 0) return Fail(e - 1);
    }
    if (depth != 0) return Fail(e - 1);

    if (size_t at = FindOperator(b, e, '+', '-'); at != kNone) return Binary(b, at, e);
    if (size_t at = FindOperator(b, e, '*', '/'); at != kNone) return Binary(b, at, e);
    if (size_t at = FindOperator(b, e, '^', '^'); at != kNone) return Binary(b, at, e);

    if (t_[b] == '-') {
      const size_t start = out_.size();
      if (!Range(b + 1, e)) return false;
      const size_t op = out_.size();
      out_.push_back(kNeg);
      Fold(start, &start, 1, op);
      return true;
    }
    while (b < e && IsBlank(t_[b])) ++b;
    while (e > b && IsBlank(t_[e - 1])) --e;
    if (e - b >= 2 && t_[b] == '(' && t_[e - 1] == ')') return Range(b + 1, e - 1);
    if (e - b == 1 && IsLower(t_[b])) {
      // Tokens past the variable table cannot come from substitution; they
      // would read outside it.
      if (t_[b] >= uint32_t(kVariableCount)) return Fail(b);
      out_.push_back(kVar);
      out_.push_back(t_[b]);
      return true;
    }
    float number = 0;
    if (ReadNumber(t_, b, e, &number)) {
      out_.push_back(kConst);
      out_.push_back(std::bit_cast<uint32_t>(number));
      return true;
    }
    return Call(b, e);
  }

  static constexpr size_t kNone = size_t(-1);

  // The rightmost two-operand operator `a` or `b` at depth 0. For + and -:
  // a '-' first in the range is a sign, and either after an 'E' belongs to
  // an exponent; a '+' first in the range is an operator (with an empty
  // left side, so an error).
  size_t FindOperator(size_t b, size_t e, uint32_t a, uint32_t o) const {
    const bool additive = a == '+';
    int depth = 0;
    for (size_t p = e; p-- > b;) {
      const uint32_t c = t_[p];
      if (c == ')') ++depth;
      else if (c == '(') --depth;
      else if (depth == 0 && (c == a || c == o)) {
        if (additive) {
          if (c == '-' && p == b) continue;
          if (p > 0 && t_[p - 1] == 'E') continue;
        }
        return p;
      }
    }
    return kNone;
  }

  bool Binary(size_t b, size_t at, size_t e) {
    size_t operands[2];
    operands[0] = out_.size();
    if (!Range(b, at)) return false;
    operands[1] = out_.size();
    if (!Range(at + 1, e)) return false;
    const size_t op = out_.size();
    out_.push_back(t_[at]);
    Fold(operands[0], operands, 2, op);
    return true;
  }

  bool Call(size_t b, size_t e) {
    if (!(IsLetter(t_[b]) || t_[b] == '_')) return Fail(b);
    size_t name_end = b;
    while (name_end < e && IsWordChar(t_[name_end])) ++name_end;
    const uint32_t index = LookUp(b, name_end);
    if (index == kFunctionCount) return Fail(b);
    if (name_end >= e || t_[name_end] != '(' || t_[e - 1] != ')') return Fail(name_end);
    const size_t open = name_end;
    const size_t close = e - 1;
    const int args = Functions()[index].args;
    const size_t start = out_.size();
    if (args == 0) {
      for (size_t p = open + 1; p < close; ++p)
        if (!IsBlank(t_[p])) return Fail(open + 1);
    } else {
      // The pieces between the parentheses, cut at the commas of depth 0.
      size_t piece_start[3];
      size_t piece_end[3];
      int pieces = 0;
      size_t from = open + 1;
      int depth = 0;
      for (size_t p = open + 1; p <= close; ++p) {
        const uint32_t c = t_[p];
        if (p < close && c == '(') ++depth;
        else if (p < close && c == ')') --depth;
        else if (p == close || (depth == 0 && c == ',')) {
          if (pieces == args) return Fail(from);  // the first surplus piece
          piece_start[pieces] = from;
          piece_end[pieces] = p;
          ++pieces;
          from = p + 1;
        }
      }
      if (pieces < args) return Fail(close - 1);
      size_t operands[3];
      for (int k = 0; k < args; ++k) {
        operands[k] = out_.size();
        if (!Range(piece_start[k], piece_end[k])) return false;
      }
      Emit(index, start, operands, args);
      return true;
    }
    Emit(index, start, nullptr, 0);
    return true;
  }

  void Emit(uint32_t index, size_t start, const size_t* operands, int args) {
    const size_t op = out_.size();
    out_.push_back(kCall);
    out_.push_back(index);
    Fold(start, operands, args, op);
  }

  uint32_t LookUp(size_t b, size_t e) const {
    for (uint32_t index = 0; index < kFunctionCount; ++index) {
      const char* name = Functions()[index].name;
      size_t p = b;
      for (; p < e && *name; ++p, ++name) {
        const uint32_t want = dialect_ == Dialect::kProgram ? uint32_t(*name - 'a' + 'A') : uint32_t(*name);
        if (t_[p] != want) break;
      }
      if (p == e && *name == 0) return index;
    }
    return kFunctionCount;
  }

  // After an operation emitted at `op` over n operands (operand k starts at
  // operands[k], the last ends at `op`): when every operand is one constant
  // and nothing else, runs the fragment from `start` with the same evaluator
  // and replaces it by one constant. An operation without operands (rand)
  // always folds, so each rand() is drawn once per compile.
  void Fold(size_t start, const size_t* operands, int n, size_t op) {
    for (int k = 0; k < n; ++k) {
      const size_t end = k + 1 < n ? operands[k + 1] : op;
      if (end - operands[k] != 2 || out_[operands[k]] != kConst) return;
    }
    uint32_t fragment[3 * 2 + 3];
    size_t words = 0;
    for (size_t p = start; p < out_.size(); ++p) fragment[words++] = out_[p];
    fragment[words] = kEnd;
    float stack[4];
    const float value = Run(fragment, nullptr, stack);
    out_.resize(start);
    out_.push_back(kConst);
    out_.push_back(std::bit_cast<uint32_t>(value));
  }

  Dialect dialect_;
  const uint32_t* t_;
  Code& out_;
  int depth_ = 0;
  int position_ = -1;
};

}  // namespace

Code ZeroCode() { return Code{kConst, 0u, kEnd}; }

size_t EstimateCodeWords(const Text& text) {
  size_t words = 1;
  const size_t n = text.size();
  for (size_t p = 0; p < n;) {
    const uint32_t c = text[p];
    if (IsDigit(c) || c == '.' || c == 'E') {
      // A number: digits, '.', 'E' and a sign right after an 'E'.
      while (p < n && (IsDigit(text[p]) || text[p] == '.' || text[p] == 'E' ||
                       ((text[p] == '+' || text[p] == '-') && text[p - 1] == 'E')))
        ++p;
      words += 2;
      continue;
    }
    if (c == '+' || c == '-' || c == '*' || c == '/' || c == '^') words += 1;
    else if (IsLetter(c)) words += 2;  // a variable, or a letter of a call's name
    ++p;
  }
  return words;
}

CompileResult Compile(Dialect dialect, const Text& source, std::span<const uint32_t> allowed) {
  CompileResult result;
  Text text = source.substr(0, source.find(U'\0'));
  if (text.empty()) text = U"0";
  const size_t n = text.size();
  const uint32_t* t = reinterpret_cast<const uint32_t*>(text.data());

  // Pre-check: a standalone one-character variable must be allowed.
  for (size_t p = 0; p < n; ++p) {
    if (!IsLower(t[p])) continue;
    if ((p > 0 && IsLetter(t[p - 1])) || (p + 1 < n && IsLetter(t[p + 1]))) continue;
    bool found = false;
    for (const uint32_t code : allowed) found = found || code == t[p];
    if (!found) {
      result.position = int(p);
      return result;
    }
  }

  Code out;
  out.reserve(EstimateCodeWords(text));
  Compiler compiler(dialect, t, out);
  if (!compiler.Range(0, n)) {
    result.position = compiler.position();
    return result;
  }
  out.push_back(kEnd);
  if (StackDepth(out.data()) > kStackSlots) return result;  // position -1
  result.ok = true;
  result.code.assign(out.begin(), out.end());  // exactly the used length
  return result;
}

}  // namespace nimbo::formula
