// ImplicitBeast's three programs in the program dialect and their user
// variables: the surface program (its last line must assign FUN), the
// texture program (outputs U and V) and the normal program (outputs NX, NY,
// NZ). The texture and normal programs are optional: one without lines
// leaves texture coordinates to the environment map and normals to the
// field's gradient. An output that no line of its program assigns reads
// line 0, as the dialect does everywhere.
//
// User variables are the effect's dynamic variables: each has a name kept
// by the program dialect's naming rules, a minimum and a maximum, and a
// position 0..1 (the dynamic variable's value); programs read
// minimum + (maximum - minimum) * position.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formula/program.h"

namespace nimbo::implicit {

enum ProgramKind : int32_t { kFunProgram = 0, kTextureProgram = 1, kNormalProgram = 2 };
inline constexpr int32_t kProgramCount = 3;
// Longest program text kept; longer texts are cut.
inline constexpr size_t kMaxProgramText = 16384;
inline constexpr size_t kMaxUserVariables = 255;

// "FUN", "texture", "normal": how editors and messages name each program.
const char* ProgramTitle(int32_t kind);

struct UserVariable {
  std::string name;
  float minimum = 0.0f;
  float maximum = 1.0f;
  float position = 0.5f;  // the dynamic variable's initial value, 0..1

  float ValueAt(float pos) const;
};

struct ProgramSet {
  std::array<std::string, kProgramCount> text;
  std::vector<UserVariable> vars;

  ProgramSet();  // the default programs
  // Cuts texts to their limits, orders each variable's range, clamps positions.
  void Sanitize();
};

// The default surface program: a gyroid lattice carved into a ball whose
// radius and wall thickness breathe with T.
extern const char* const kDefaultFunProgram;

enum class AddVariable { kAdded, kEmpty, kRefused, kDuplicate, kFull };
AddVariable AddUserVariable(ProgramSet& set, std::string_view typed);

struct CompiledPrograms {
  std::array<formula::Program, kProgramCount> program;
  std::array<bool, kProgramCount> has_lines{};  // texture/normal: any assignment line
  int32_t failed = -1;                          // the first program that failed, -1 for none
  std::optional<int> line;                      // its editor line (counted from 0); none: FUN missing

  bool Ok() const { return failed < 0; }
  // "" when every program compiles, else what the editor shows.
  std::string ErrorText() const;
};

// Compiles the three programs with the user variables at `positions` (one
// per variable, 0..1; missing ones take the variable's own position). Uses
// the program dialect's process-wide table: call under the effect's lock.
CompiledPrograms CompilePrograms(const ProgramSet& set, const std::vector<float>& positions);

}  // namespace nimbo::implicit
