// The formula set of Evaluator3D: 29 formula fields, the grid options that
// shape the surface, and the user variables; compiling the whole set.
//
// Each field has a fixed index (its number in error reports and in the
// editor), a default text, and the chain of names it may use: the auxiliary
// formulas a..h each see i, j (hmap while the height map is on) and the
// auxiliaries before them; the vertex, texture and normal formulas see all of
// them; the camera formulas only the common names ("t", "imax", "jmax", "pi",
// "screenw", "screenh" and the switched-on user variables).
//
// An empty text compiles to the constant 0 without error (the formula
// library's rule), so the empty auxiliaries c..h and the second texture set
// default to 0. The evaluator skips an empty auxiliary instead of running
// that constant: its variable keeps the 0 the recompile reset it to, which
// is the same value.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formula/code.h"

namespace nimbo::e3d {

// clang-format off
enum Field : int32_t {
  kX = 0, kY = 1, kZ = 2, kU = 3, kV = 4,
  kA = 5, kB = 6, kC = 7, kD = 8,
  kCx = 9, kCy = 10, kCz = 11, kTx = 12, kTy = 13, kTz = 14, kRoll = 15, kZoom = 16,
  kNx = 17, kNy = 18, kNz = 19,
  kE = 20, kF = 21, kG = 22, kH = 23,
  kU2 = 24, kV2 = 25, kNx2 = 26, kNy2 = 27, kNz2 = 28,
};
// clang-format on
inline constexpr int32_t kFieldCount = 29;
// Longest text a field keeps; longer texts are cut.
inline constexpr size_t kMaxFormulaLength = 999;

// The auxiliary fields in evaluation order (a..h) and the per-vertex fields
// in compile order after them.
inline constexpr Field kAuxFields[8] = {kA, kB, kC, kD, kE, kF, kG, kH};
inline constexpr Field kVertexFields[13] = {kX, kY, kZ, kU, kV, kNx, kNy, kNz, kU2, kV2, kNx2, kNy2, kNz2};
inline constexpr Field kCameraFields[8] = {kCx, kCy, kCz, kTx, kTy, kTz, kRoll, kZoom};

struct FieldInfo {
  const char* name;  // "x", "a", "cx", "nx2" ...: the E3D key and the "expr_" suffix
  const char* def;   // default text
  // Auxiliaries this field may use: 0..7 for a..h (the ones before it), 8
  // for the per-vertex fields; -1 for the camera fields (common names only).
  int32_t aux_allowed;
};
const FieldInfo& Info(int32_t field);
// The field named `name` (exact, lower case), or -1.
int32_t FieldByName(std::string_view name);

// The texture-coordinate modes of each coordinate set.
enum UvMode : int32_t {
  kUvFormulas = 0,     // u, v (or u2, v2) per vertex
  kUvEnvFaces = 1,     // environment mapping from the generated face normals (faceted)
  kUvEnvVertices = 2,  // environment mapping from the generated vertex normals (smooth)
  kUvEnvFormulas = 3,  // environment mapping from the normal formulas, kept square to
                       // the surface's j tangent (sampled at j + 0.1)
};
inline constexpr int32_t kUvModeCount = 4;

// Grid sizes a set may ask for (vertices along i and along j).
inline constexpr int32_t kMinGridSide = 1;
inline constexpr int32_t kMaxGridSide = 1024;

struct UserVariable {
  std::string name;  // as kept by the formula dialect's naming rules
  float minimum = 0.0f;
  float maximum = 1.0f;
  float value = 0.5f;  // the dynamic variable's initial value
  int32_t on = 1;      // switched off: no code, not declared, not in E3D files
};

inline constexpr const char* kDefaultInfo = " - enter FX description here -";

struct FormulaSet {
  std::array<std::string, kFieldCount> text;
  int32_t imax = 10;
  int32_t jmax = 10;
  int32_t hmap = 0;
  int32_t loopi = 0;
  int32_t loopj = 0;
  int32_t front = 1;
  int32_t back = 0;
  int32_t uvmode1 = kUvFormulas;
  int32_t uvmode2 = kUvEnvVertices;
  std::string ipattern = "1";
  std::string jpattern = "1";
  std::string info = kDefaultInfo;
  std::vector<UserVariable> vars;

  FormulaSet();  // the defaults
  // Cuts texts to their limits and brings numbers into their ranges.
  void Sanitize();
  // Names of the switched-on user variables, in list order (codes 276 on).
  std::vector<std::string> ActiveVariableNames() const;
};

// A user variable added by its typed name under the formula dialect's rules
// (folded, refused when reserved or too short, at most 255).
enum class AddVariable { kAdded, kEmpty, kRefused, kDuplicate, kFull };
AddVariable AddUserVariable(FormulaSet& set, std::string_view typed);

// The compiled set.
struct CompiledSet {
  std::array<formula::Code, kFieldCount> code;
  std::array<bool, kFieldCount> empty{};  // the text holds nothing but blanks
  int32_t first_error = -1;               // index of the first field that failed, -1 for none
  std::string error_name;                 // the name it may not use, when that was the fault
  int32_t error_position = -1;            // else where the compiler stopped (-1: none)
};

// Recompiles every field: variable entries 256..1023 are reset to 0 ("pi"
// keeps its value) and the fields compile in the order a..h, x, y, z, u, v,
// nx, ny, nz, u2, v2, nx2, ny2, nz2, then the camera formulas. A field that
// fails keeps the code of "0". Touches the formula dialect's process-wide
// table: call under the effect's lock.
CompiledSet Recompile(const FormulaSet& set);

// The names formula `field` may use, as the editor's hints list them
// ("hmap" only while the height map is on).
std::string MayUse(int32_t field, bool hmap);

// What failed in `compiled`, in a line a user can act on ("Formula a (5)
// uses "b", which it may not use: ..."); empty when every formula compiles.
std::string CompileErrorText(const CompiledSet& compiled, bool hmap);

}  // namespace nimbo::e3d
