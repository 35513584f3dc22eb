// The fast path: the same compiled code over many variable sets (a grid of
// vertices, a volume of samples), interpreted once per word per block of
// points instead of once per word per point.
//
// Every value is bit-identical to the one-point evaluator (Run): each lane
// does the same single-precision operations in the same order (the library
// is built without FMA contraction or fast-math), and functions and '^' go
// through the same double-precision calls. The plain lane loops are left to
// the compiler's vectoriser; a test compares both over a generated corpus.
// One thing is not pinned: when both operands of + or * are NaN, the
// hardware returns one of them and the compiler may order the operands
// either way, so a NaN result may differ from the one-point one in sign and
// payload (it is a NaN either way).
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "formula/code.h"
#include "formula/program.h"

namespace nimbo::formula {

// A variable whose value changes from point to point: point k reads
// values[k]. Every other variable reads the table.
struct Column {
  uint32_t code;
  const float* values;
};

class BlockEvaluator {
 public:
  static constexpr size_t kBlock = 256;

  // Translates compiler output; all allocation happens here.
  explicit BlockEvaluator(const Code& code);

  // out[k] = the value of the code for point k, k < count. No allocation.
  void Run(const float* table, std::span<const Column> columns, size_t count, float* out);

 private:
  enum class Kind : uint8_t { kConst, kVar, kCall, kBinary, kBinaryConst, kBinaryVar, kNeg };
  struct Op {
    Kind kind;
    uint32_t word;        // the operator for binaries, the function index for calls
    uint32_t variable;    // kVar, kBinaryVar
    float constant;       // kConst, kBinaryConst; a table value once resolved
    const float* column;  // resolved per run: null when the table holds the value
  };
  void RunBlock(size_t count, float* out);

  std::vector<Op> ops_;
  std::vector<float> stack_;  // depth x kBlock
  bool zero_ = false;         // the code ends early with 0.0 (an unknown word)
  size_t base_ = 0;           // the first point of the current block
};

// A compiled program over many samples (ImplicitBeast's volume): each
// assignment line runs over the samples as a block, its values become a
// column the later lines read, then the result expression runs. Values are
// those of Program::Evaluate per sample.
class ProgramBlockEvaluator {
 public:
  // Allocates a column per line for up to `max_count` samples.
  ProgramBlockEvaluator(const Program& program, size_t max_count);

  // result[k] for samples k < count (count <= max_count), with T fixed and
  // X, Y, Z per sample; uses the program dialect's table for T and the user
  // variables. No allocation.
  void Run(float t, const float* x, const float* y, const float* z, size_t count, float* result);

  // Output k's value at sample n after Run.
  float Output(size_t k, size_t n) const;

 private:
  std::vector<BlockEvaluator> lines_;
  std::vector<std::vector<float>> values_;  // per line
  std::vector<Column> columns_;             // X, Y, Z, then one per line
  std::optional<BlockEvaluator> result_;
  std::vector<size_t> output_lines_;
  std::vector<std::pair<uint32_t, float>> user_values_;
};

}  // namespace nimbo::formula
