// Retina Killer's body over a vector type V of 32-bit lanes
// (shared/simd_lanes.h): four bytes per lane, all alike (see
// retina_killer_kernel.h). Included by each instruction set's translation
// unit inside its code generation region. Internal linkage.
#pragma once

#include <cstddef>
#include <cstdint>

#include "retina_killer_kernel.h"

namespace nimbo {
namespace {

template <class V>
void RetinaBody(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  using T = typename V::T;
  // The colour bytes get the limit, alpha 255 (so its fatigue never grows).
  const T limit = V::Set1(int32_t(0xFF000000u | uint32_t(params.limit) * 0x010101u));
  const T fade = V::Set1(int32_t(uint32_t(params.fade) * 0x01010101u));
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T in = V::Load(src + i);
    T f = V::Load(fatigue + i * 4);
    V::Store(dst + i, V::AddsU8(in, f));
    f = V::SubsU8(V::AddsU8(f, V::SubsU8(in, limit)), fade);
    V::Store(fatigue + i * 4, f);
  }
  RetinaScalar(src + i, dst + i, fatigue + i * 4, count - i, params);
}

}  // namespace
}  // namespace nimbo
