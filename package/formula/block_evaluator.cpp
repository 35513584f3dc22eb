#include "formula/block_evaluator.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "function_math.h"

namespace nimbo::formula {
namespace {

using Lanes = float* __restrict;
using ConstLanes = const float* __restrict;

void Binary(uint32_t op, Lanes a, ConstLanes b, size_t n) {
  switch (op) {
    case kAdd: for (size_t k = 0; k < n; ++k) a[k] = a[k] + b[k]; break;
    case kSub: for (size_t k = 0; k < n; ++k) a[k] = a[k] - b[k]; break;
    case kMul: for (size_t k = 0; k < n; ++k) a[k] = a[k] * b[k]; break;
    case kDiv: for (size_t k = 0; k < n; ++k) a[k] = a[k] / b[k]; break;
    default:
      for (size_t k = 0; k < n; ++k) a[k] = Power(a[k], b[k]);
      break;
  }
}

void BinaryScalar(uint32_t op, Lanes a, float b, size_t n) {
  if (op == kPow && b == 2.0f) {
    for (size_t k = 0; k < n; ++k) a[k] = float(double(a[k]) * double(a[k]));  // as Power() does
    return;
  }
  switch (op) {
    case kAdd: for (size_t k = 0; k < n; ++k) a[k] = a[k] + b; break;
    case kSub: for (size_t k = 0; k < n; ++k) a[k] = a[k] - b; break;
    case kMul: for (size_t k = 0; k < n; ++k) a[k] = a[k] * b; break;
    case kDiv: for (size_t k = 0; k < n; ++k) a[k] = a[k] / b; break;
    default:
      for (size_t k = 0; k < n; ++k) a[k] = Power(a[k], b);
      break;
  }
}

// A call over the lanes. The functions whose single-precision form gives
// the same float as the double-precision call narrowed (square root and
// fmod are exact or correctly rounded either way; the others only compare,
// pick or round to an integer) run in float, where the compiler can
// vectorise them; the rest call the double-precision function per lane.
void Call(uint32_t index, Lanes a, ConstLanes b, ConstLanes c, size_t n) {
  switch (index) {
    case 7: for (size_t k = 0; k < n; ++k) a[k] = std::sqrt(a[k]); return;
    case 10: for (size_t k = 0; k < n; ++k) a[k] = std::fabs(a[k]); return;
    case 11: for (size_t k = 0; k < n; ++k) a[k] = std::fmod(a[k], b[k]); return;
    case 12: for (size_t k = 0; k < n; ++k) a[k] = std::floor(a[k]); return;
    case 13: for (size_t k = 0; k < n; ++k) a[k] = std::ceil(a[k]); return;
    case 14: for (size_t k = 0; k < n; ++k) a[k] = a[k] > 0 ? 1.0f : (a[k] < 0 ? -1.0f : 0.0f); return;
    case 15: for (size_t k = 0; k < n; ++k) a[k] = a[k] > b[k] ? a[k] : b[k]; return;
    case 16: for (size_t k = 0; k < n; ++k) a[k] = a[k] < b[k] ? a[k] : b[k]; return;
    case 18: for (size_t k = 0; k < n; ++k) a[k] = (b[k] <= a[k] && a[k] <= c[k]) ? 1.0f : 0.0f; return;
    default: break;
  }
  switch (kFunctionArgs[index]) {
    case 0: for (size_t k = 0; k < n; ++k) a[k] = float(CallFunction(index, 0, 0, 0)); break;
    case 1: for (size_t k = 0; k < n; ++k) a[k] = float(CallFunction(index, a[k], 0, 0)); break;
    default: for (size_t k = 0; k < n; ++k) a[k] = float(CallFunction(index, a[k], b[k], 0)); break;
  }
}

bool IsBinary(uint32_t w) { return w == kAdd || w == kSub || w == kMul || w == kDiv || w == kPow; }

}  // namespace

BlockEvaluator::BlockEvaluator(const Code& code) {
  // A right operand that is a constant or a variable is folded into its
  // operator ("x*100" is one pass over the lanes, not two): the same
  // operation on the same values.
  const uint32_t* w = code.data();
  for (;;) {
    const uint32_t word = *w++;
    if (word == kEnd) break;
    if (word == kConst || word == kVar) {
      const uint32_t operand = *w++;
      if (IsBinary(*w) && !ops_.empty()) {
        if (word == kConst) ops_.push_back({Kind::kBinaryConst, *w, 0, std::bit_cast<float>(operand), nullptr});
        else ops_.push_back({Kind::kBinaryVar, *w, operand, 0, nullptr});
        ++w;
      } else if (word == kConst) {
        ops_.push_back({Kind::kConst, 0, 0, std::bit_cast<float>(operand), nullptr});
      } else {
        ops_.push_back({Kind::kVar, 0, operand, 0, nullptr});
      }
    } else if (word == kCall) {
      const uint32_t index = *w++;
      if (index >= kFunctionCount) {
        zero_ = true;
        break;
      }
      ops_.push_back({Kind::kCall, index, 0, 0, nullptr});
    } else if (IsBinary(word)) {
      ops_.push_back({Kind::kBinary, word, 0, 0, nullptr});
    } else if (word == kNeg) {
      ops_.push_back({Kind::kNeg, word, 0, 0, nullptr});
    } else {
      zero_ = true;
      break;
    }
  }
  stack_.assign(size_t(std::max(1, StackDepth(code.data()))) * kBlock, 0.0f);
}

void BlockEvaluator::Run(const float* table, std::span<const Column> columns, size_t count, float* out) {
  if (zero_) {
    std::fill(out, out + count, 0.0f);
    return;
  }
  for (Op& op : ops_) {
    if (op.kind != Kind::kVar && op.kind != Kind::kBinaryVar) continue;
    op.column = nullptr;
    for (const Column& c : columns)
      if (c.code == op.variable) op.column = c.values;
    if (!op.column) op.constant = table[op.variable];
  }
  for (base_ = 0; base_ < count; base_ += kBlock) RunBlock(std::min(kBlock, count - base_), out + base_);
}

void BlockEvaluator::RunBlock(size_t n, float* out) {
  float* top = stack_.data();  // the next free slot, kBlock lanes each
  for (const Op& op : ops_) {
    switch (op.kind) {
      case Kind::kConst:
        std::fill(top, top + n, op.constant);
        top += kBlock;
        break;
      case Kind::kVar:
        if (op.column) std::copy(op.column + base_, op.column + base_ + n, top);
        else std::fill(top, top + n, op.constant);
        top += kBlock;
        break;
      case Kind::kBinary:
        top -= kBlock;
        Binary(op.word, top - kBlock, top, n);
        break;
      case Kind::kBinaryConst:
        BinaryScalar(op.word, top - kBlock, op.constant, n);
        break;
      case Kind::kBinaryVar:
        if (op.column) Binary(op.word, top - kBlock, op.column + base_, n);
        else BinaryScalar(op.word, top - kBlock, op.constant, n);
        break;
      case Kind::kNeg: {
        float* a = top - kBlock;
        for (size_t k = 0; k < n; ++k) a[k] = -a[k];
        break;
      }
      case Kind::kCall: {
        top -= kFunctionArgs[op.word] * kBlock;
        Call(op.word, top, top + kBlock, top + 2 * kBlock, n);
        top += kBlock;
        break;
      }
    }
  }
  std::copy(stack_.data(), stack_.data() + n, out);
}

ProgramBlockEvaluator::ProgramBlockEvaluator(const Program& program, size_t max_count)
    : user_values_(program.UserValues()) {
  columns_ = {{kProgramX, nullptr}, {kProgramY, nullptr}, {kProgramZ, nullptr}};
  for (const ProgramLine& line : program.Lines()) {
    lines_.emplace_back(line.compiled);
    values_.emplace_back(max_count);
    columns_.push_back({line.code, values_.back().data()});
  }
  if (program.HasResult()) result_.emplace(program.ResultCode());
  for (size_t k = 0; k < program.OutputCount(); ++k) output_lines_.push_back(program.OutputLine(k));
}

void ProgramBlockEvaluator::Run(float t, const float* x, const float* y, const float* z, size_t count,
                                float* result) {
  Engine& engine = EngineOf(Dialect::kProgram);
  engine.variables[kProgramT] = t;
  for (const auto& [code, value] : user_values_) engine.variables[code] = value;
  columns_[0].values = x;
  columns_[1].values = y;
  columns_[2].values = z;
  for (size_t n = 0; n < lines_.size(); ++n) lines_[n].Run(engine.variables, columns_, count, values_[n].data());
  if (result_) result_->Run(engine.variables, columns_, count, result);
  else std::fill(result, result + count, 0.0f);
}

float ProgramBlockEvaluator::Output(size_t k, size_t n) const {
  const size_t line = output_lines_[k];
  return line < values_.size() ? values_[line][n] : 0.0f;
}

}  // namespace nimbo::formula
