// The program dialect: a text of lines "NAME=expression", upper-cased;
// later lines use the names of earlier ones; an optional required last
// line (ImplicitBeast's "FUN") gives the result, and named outputs read
// the values of the lines that assign them.
//
// Line numbers are the editor's: the count of LF characters before the line.
// Symbols: "T" 256, "X" 257, "Y" 258, "Z" 259, then the user variables
// (260 on, in list order), then each line's name as it is reached.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "formula/code.h"

namespace nimbo::formula {

inline constexpr size_t kMaxProgramLines = 128;
inline constexpr uint32_t kProgramT = 256, kProgramX = 257, kProgramY = 258, kProgramZ = 259,
                          kFirstProgramUserVariable = 260;

struct ProgramUserVariable {
  std::string name;  // as kept (NormalizeUserVariableName); upper-cased here
  float value = 0;   // minimum + (maximum - minimum) * position, worked out by the effect
};

struct ProgramLine {
  Text name;          // upper-cased, blanks deleted
  Text expression;    // codes, symbols substituted
  int line_number = 0;
  uint32_t code = 0;  // the symbol code of the line's name
  Code compiled;
  float value = 0;    // stored by the last Evaluate
};

class Program {
 public:
  struct Status {
    bool ok = false;
    // The editor line of the first line that failed; nullopt when the
    // required result name is missing (or the program compiled).
    std::optional<int> line;
  };

  // Compiles the text. `result_name` (if not empty) must be the exact name
  // of the last line. Each output name (case ignored) reads the last
  // assignment line of that name, or line 0 when no line assigns it.
  Status Compile(std::string_view text, const std::string& result_name, const std::vector<std::string>& outputs,
                 const std::vector<ProgramUserVariable>& user_variables);

  // Sets T, X, Y, Z and the user variables, runs the assignment lines in
  // order (each stores its value in its line and in the table), and returns
  // the result expression's value (0 without one). Uses the program
  // dialect's process-wide table: call under the effect's lock.
  float Evaluate(float t, float x, float y, float z);

  // The value of output k after Evaluate, and the assignment line it reads.
  float Output(size_t k) const;
  size_t OutputLine(size_t k) const { return size_t(output_lines_[k]); }
  size_t OutputCount() const { return output_lines_.size(); }
  const std::vector<std::pair<uint32_t, float>>& UserValues() const { return user_values_; }
  bool HasResult() const { return has_result_; }
  const Code& ResultCode() const { return result_.compiled; }
  const std::vector<ProgramLine>& Lines() const { return lines_; }

 private:
  std::vector<ProgramLine> lines_;  // the assignment lines
  ProgramLine result_;
  bool has_result_ = false;
  std::vector<int> output_lines_;  // index into lines_ per output
  std::vector<std::pair<uint32_t, float>> user_values_;
};

}  // namespace nimbo::formula
