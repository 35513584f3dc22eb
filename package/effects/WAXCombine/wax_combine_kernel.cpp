// WAXCombine's voxel rule (see wax_combine_kernel.h).
#include "wax_combine_kernel.h"

#include <algorithm>
#include <cmath>

namespace nimbo::wax {
namespace {

uint32_t WithDensity(uint32_t colour_from, uint32_t density) {
  return density ? (density << 24) | (colour_from & 0xFFFFFFu) : 0u;
}

// Blend with the weight of b in 1/256 (0..256).
uint32_t Blend(uint32_t a, uint32_t b, uint32_t wb) {
  const uint32_t da = a >> 24, db = b >> 24;
  const uint32_t ka = da * (256 - wb), kb = db * wb;  // each side's share, in 1/256
  const uint32_t density = (ka + kb + 128) >> 8;
  if (!density) return 0;
  uint32_t out = density << 24;
  for (int shift = 0; shift <= 16; shift += 8) {
    const uint32_t ca = (a >> shift) & 0xFF, cb = (b >> shift) & 0xFF;
    out |= ((ca * ka + cb * kb + (ka + kb) / 2) / (ka + kb)) << shift;
  }
  return out;
}

}  // namespace

void CombineVoxels(const uint32_t* a, const uint32_t* b, uint32_t* out, size_t count, CombineMode mode, float mix) {
  switch (mode) {
    case CombineMode::kUnion:
      for (size_t i = 0; i < count; ++i) out[i] = WithDensity((b[i] >> 24) > (a[i] >> 24) ? b[i] : a[i], std::max(a[i] >> 24, b[i] >> 24));
      break;
    case CombineMode::kIntersection:
      for (size_t i = 0; i < count; ++i) out[i] = WithDensity((b[i] >> 24) < (a[i] >> 24) ? b[i] : a[i], std::min(a[i] >> 24, b[i] >> 24));
      break;
    case CombineMode::kDifference:
      for (size_t i = 0; i < count; ++i) {
        const uint32_t da = a[i] >> 24, db = b[i] >> 24;
        out[i] = WithDensity(a[i], da > db ? da - db : 0);
      }
      break;
    case CombineMode::kBlend: {
      const float m = std::isnan(mix) ? 0.5f : std::clamp(mix, 0.0f, 1.0f);
      const uint32_t wb = uint32_t(std::lround(m * 256.0f));
      for (size_t i = 0; i < count; ++i) out[i] = Blend(a[i], b[i], wb);
      break;
    }
  }
}

}  // namespace nimbo::wax
