// libFuzzer target for E3D files: the reader over arbitrary bytes, then a
// recompile and one small evaluation of whatever it loaded.
//
// Beyond "no crash, no hang, no read past the input" it checks what must
// hold for every file: a loaded set keeps its limits (formulas of at most
// 999 characters, grid sides in range, at most 255 user variables), writing
// it and reading that back gives the same set, and the mesh built from it
// only names vertices it has.
#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "e3d_file.h"
#include "formula/user_variables.h"
#include "formula_set.h"
#include "fuzz_check.h"
#include "grid_eval.h"
#include "grid_mesh.h"

using namespace nimbo::e3d;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FormulaSet set;
  if (!ParseE3D(std::string_view(reinterpret_cast<const char*>(data), size), set)) return 0;
  for (const std::string& text : set.text) FUZZ_CHECK(text.size() <= kMaxFormulaLength);
  FUZZ_CHECK(set.imax >= kMinGridSide && set.imax <= kMaxGridSide);
  FUZZ_CHECK(set.jmax >= kMinGridSide && set.jmax <= kMaxGridSide);
  FUZZ_CHECK(set.vars.size() <= nimbo::formula::kMaxFormulaUserVariables);

  FormulaSet again;
  FUZZ_CHECK(ParseE3D(FormatE3D(set), again));
  FUZZ_CHECK(again.text == set.text && again.imax == set.imax && again.jmax == set.jmax);
  FUZZ_CHECK(again.ipattern == set.ipattern && again.info == set.info && again.vars.size() == set.vars.size());

  // One small evaluation: the grid cut to a few points keeps each run short.
  set.imax = std::min(set.imax, 9);
  set.jmax = std::min(set.jmax, 7);
  const CompiledSet compiled = Recompile(set);
  FUZZ_CHECK(compiled.first_error >= -1 && compiled.first_error < kFieldCount);
  std::vector<float> users(set.ActiveVariableNames().size(), 0.25f);
  SetFrameVariables(set, {1.5f, 64, 48, users});
  const CameraValues camera = EvaluateCamera(compiled);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues grid;
  const uint32_t map[4] = {0xFF000000u, 0x80u, 0xFFu, 0x12345678u};
  evaluator.Evaluate({map, 2, 2}, grid);
  GridNormals normals;
  ComputeNormals(grid, set.loopi != 0, set.loopj != 0, normals);
  std::vector<nb3D::Vertex> vertices;
  AssembleVertices(set, grid, normals, camera, vertices);
  std::vector<uint32_t> triangles;
  BuildTriangles(set, true, triangles);
  FUZZ_CHECK(triangles.size() % 3 == 0);
  for (uint32_t index : triangles) FUZZ_CHECK(index < vertices.size());
  return 0;
}
