// ImplicitBeast's volume: FUN sampled on a grid over the box the bounds
// give, then its surface.
//
// Inside is FUN < 0 (so "FUN=X*X+Y*Y+Z*Z-1" is the unit ball, as with a
// signed distance); the extractor takes inside as "greater than the level",
// so the surface is extracted from -FUN at level 0. A sample that is not
// finite (a square root of a negative, a division by zero) counts as
// outside. With the border closed, a surface that runs out of the box is
// capped at the box's sides, so the result stays watertight.
#pragma once

#include <cstdint>
#include <vector>

#include "formula/block_evaluator.h"
#include "formula/program.h"
#include "render3d/isosurface.h"

namespace nimbo::implicit {

inline constexpr int32_t kMinGrid = 4;
inline constexpr int32_t kMaxGrid = 128;

struct Box {
  float minimum[3] = {-1.5f, -1.5f, -1.5f};
  float maximum[3] = {1.5f, 1.5f, 1.5f};
};

// Orders each axis and keeps it at least a little wide and finite.
Box SaneBox(const Box& box);

// Samples the FUN program of `program` on n^3 points of `box` (x fastest,
// then y, then z) at time t through the block evaluator, one z slice at a
// time. `field` receives FUN per sample.
class FieldSampler {
 public:
  FieldSampler(const formula::Program& program, int32_t n);
  void Sample(float t, const Box& box, std::vector<float>& field);
  int32_t Side() const { return n_; }

 private:
  int32_t n_;
  formula::ProgramBlockEvaluator evaluator_;
  std::vector<float> x_, y_, z_;
};

// The position of sample i along `axis` of an n-sample side.
float SampleCoordinate(const Box& box, int32_t axis, int32_t i, int32_t n);

// The surface FUN = 0 of a sampled field (inside: FUN < 0). `field` is
// negated in place on the way.
void ExtractSurface(std::vector<float>& field, int32_t n, const Box& box, bool close_border, IsoMesh* out);

}  // namespace nimbo::implicit
