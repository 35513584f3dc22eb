// WAXCombine's voxel rule: two volumes into one, voxel by voxel.
//
// Density: union is the larger, intersection the smaller, difference a
// minus b (never below 0), blend a + (b - a) * mix. The colour follows the
// density that wins: the colour of the input whose density the result took
// (a on a tie), a's colour for the difference (what is left is a's), and for
// the blend the two colours mixed by each side's share of the density, so a
// solid red blended into empty space stays red as it fades.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo::wax {

enum class CombineMode : int32_t { kUnion = 0, kIntersection = 1, kDifference = 2, kBlend = 3 };

// `count` voxels of a and b into out (which may be a or b). `mix` (0..1,
// clamped; NaN counts as 0.5) matters only for the blend.
void CombineVoxels(const uint32_t* a, const uint32_t* b, uint32_t* out, size_t count, CombineMode mode, float mix);

}  // namespace nimbo::wax
