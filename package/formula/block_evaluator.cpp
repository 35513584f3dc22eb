#include "formula/block_evaluator.h"

#include <algorithm>
#include <bit>
#include <cmath>

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
      for (size_t k = 0; k < n; ++k) a[k] = float(std::pow(double(a[k]), double(b[k])));
      break;
  }
}

void BinaryScalar(uint32_t op, Lanes a, float b, size_t n) {
  switch (op) {
    case kAdd: for (size_t k = 0; k < n; ++k) a[k] = a[k] + b; break;
    case kSub: for (size_t k = 0; k < n; ++k) a[k] = a[k] - b; break;
    case kMul: for (size_t k = 0; k < n; ++k) a[k] = a[k] * b; break;
    case kDiv: for (size_t k = 0; k < n; ++k) a[k] = a[k] / b; break;
    default:
      for (size_t k = 0; k < n; ++k) a[k] = float(std::pow(double(a[k]), double(b)));
      break;
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
        const FunctionRow& f = Functions()[op.word];
        top -= f.args * kBlock;
        float* a = top;
        const float* b = top + kBlock;
        const float* c = top + 2 * kBlock;
        switch (f.args) {
          case 0: for (size_t k = 0; k < n; ++k) a[k] = float(f.call(0, 0, 0)); break;
          case 1: for (size_t k = 0; k < n; ++k) a[k] = float(f.call(a[k], 0, 0)); break;
          case 2: for (size_t k = 0; k < n; ++k) a[k] = float(f.call(a[k], b[k], 0)); break;
          default: for (size_t k = 0; k < n; ++k) a[k] = float(f.call(a[k], b[k], c[k])); break;
        }
        top += kBlock;
        break;
      }
    }
  }
  std::copy(stack_.data(), stack_.data() + n, out);
}

}  // namespace nimbo::formula
