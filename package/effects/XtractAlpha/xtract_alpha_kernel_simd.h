// XtractAlpha's body over a vector type V of 32-bit lanes
// (shared/simd_lanes.h), included by each instruction set's translation unit
// inside its code generation region. Internal linkage.
#pragma once

#include <cstddef>
#include <cstdint>

#include "xtract_alpha_kernel.h"

namespace nimbo {
namespace {

template <class V>
void XtractAlphaBody(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  using T = typename V::T;
  const T flip = V::Set1(invert ? 0xFF : 0);
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T alpha = V::template Srli<24>(V::Load(src + i));
    const T grey = V::Xor(alpha, flip);
    const T rgb = V::Or(grey, V::Or(V::template Slli<8>(grey), V::template Slli<16>(grey)));
    V::Store(dst + i, V::Or(rgb, V::template Slli<24>(alpha)));
  }
  XtractAlphaScalar(src + i, dst + i, count - i, invert);
}

}  // namespace
}  // namespace nimbo
