// One frame of formula evaluation: the frame's variables, the camera
// formulas once, then every grid point (i outer, j inner).
//
// At each point the order is: i and j; hmap (the blue byte of the height-map
// pixel imax*j+i over 255.0) when a height map came with the frame; the
// auxiliaries a..h, each stored in its variable before the next runs; the
// position x, y, z (or, with loopj on and j = jmax-1, a copy of vertex (i, 0);
// with loopi on and i = imax-1, a copy of vertex (0, j)); then the texture
// coordinates and normal formulas the two coordinate modes need. Vertices are
// stored row by row, index j*imax+i.
//
// GridEvaluator runs each formula over many points at once with the block
// evaluator: each auxiliary runs over a whole chunk of points and becomes a
// column that the later formulas read, which gives every point exactly the
// values the one-point order above gives (EvaluateGridOnePoint, the
// reference, runs that order literally; a test demands identical bits).
// Without a height map "hmap" keeps the table value the last frame that had
// one left there, as the one-point order would.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formula/block_evaluator.h"
#include "formula_set.h"

namespace nimbo::e3d {

// What a frame sets before evaluating.
struct FrameVariables {
  float t = 0;
  int32_t screen_w = 0;
  int32_t screen_h = 0;
  std::span<const float> user_values;  // one per switched-on user variable, in list order
};

// A height-map picture (0xAARRGGBB words, rows top to bottom); null pixels =
// no new height map this frame.
struct HeightMap {
  const uint32_t* pixels = nullptr;
  int32_t width = 0;
  int32_t height = 0;
};

struct CameraValues {
  float position[3] = {0, 0, 0};
  float target[3] = {0, 0, 0};
  float roll = 0;
  float zoom = 1;
};

// The per-vertex results, index j*imax+i. Sets a mode does not use stay empty.
struct GridValues {
  int32_t imax = 0;
  int32_t jmax = 0;
  std::vector<float> x, y, z;
  std::vector<float> u, v, u2, v2;               // coordinate sets in formula mode
  std::vector<float> nx, ny, nz, nx2, ny2, nz2;  // normal formulas of the sets in mode 3
  std::vector<float> sx, sy, sz;                 // the surface at (i, j + 0.1), for mode 3
};

// Which per-vertex formulas a frame evaluates.
struct GridNeeds {
  bool uv1 = false, uv2 = false;            // u, v / u2, v2
  bool normals1 = false, normals2 = false;  // nx.. / nx2..
  bool tangent = false;                     // the j + 0.1 sample
};
GridNeeds NeedsOf(const FormulaSet& set);

// Sets imax, jmax, t, pi, screenw, screenh and the user variables.
void SetFrameVariables(const FormulaSet& set, const FrameVariables& frame);
CameraValues EvaluateCamera(const CompiledSet& compiled);

// The literal one-point order; the reference the block path is tested against.
void EvaluateGridOnePoint(const FormulaSet& set, const CompiledSet& compiled, const HeightMap& hmap, GridValues& out);

class GridEvaluator {
 public:
  // Translates the compiled set for the block evaluator (allocates).
  void Prepare(const FormulaSet& set, const CompiledSet& compiled);
  // Evaluates every point into `out` (allocates only when the grid grew).
  void Evaluate(const HeightMap& hmap, GridValues& out);

 private:
  void RunChunk(size_t first, size_t count, const HeightMap& hmap, bool shifted, GridValues& out);

  FormulaSet set_;
  GridNeeds needs_;
  std::array<bool, kFieldCount> empty_{};
  std::vector<std::unique_ptr<formula::BlockEvaluator>> block_;  // per field
  // Per point of a chunk: i, j, hmap, a..h, and scratch for the outputs.
  std::vector<float> i_, j_, hmap_;
  std::array<std::vector<float>, 8> aux_;
  std::array<std::vector<float>, 13> values_;  // per vertex field of kVertexFields
  std::vector<formula::Column> columns_;
};

}  // namespace nimbo::e3d
