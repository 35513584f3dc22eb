// What the SIMD kernel bodies share with the scalar reference: the scalar
// span of a sphere light row (for the pixels left over after the last full
// vector) and the per-channel colour scale. Compiled once, in the scalar
// file, so the leftover pixels take exactly the reference's instructions.
#pragma once

#include <cstdint>

#include "render3d/material_kernels.h"

namespace nimbo {

// Pixels x0 .. x1-1 of row y of a w x h sphere light map, added to row[x].
void SphereLightSpanScalar(uint32_t* row, int32_t x0, int32_t x1, int32_t w, int32_t h, int32_t y,
                           const SphereLight& light);

// The colour's channels as fractions (channel / 255), R, G, B.
struct LightColor {
  float r, g, b;
};
LightColor LightColorOf(int32_t color);

// The squarings actually done: n below 0 does none, above kMaxSquarings as
// many as kMaxSquarings (the same result, see there).
inline int32_t ClampedSquarings(int32_t n) { return n < 0 ? 0 : (n > kMaxSquarings ? kMaxSquarings : n); }

}  // namespace nimbo
