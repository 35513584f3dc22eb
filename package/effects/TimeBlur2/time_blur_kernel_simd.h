// TimeBlur2's plain step over a vector type V (shared/simd_lanes.h): the
// sums are 16-bit words in the bytes' memory order, 4 * kLanes bytes a step.
// Per byte: sum = sum + in - oldest (saturating), out = min(255, sum >> shift),
// and the input replaces the oldest frame in the ring. Included by each
// instruction set's translation unit inside its code generation region.
#pragma once

#include <cstddef>
#include <cstdint>

#include "time_blur_kernel.h"

namespace nimbo {
namespace {

template <class V>
void TimeBlurStepBody(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params) {
  using T = typename V::T;
  constexpr size_t kWords = 2 * V::kLanes;  // 16-bit words a register holds
  const T max_byte = V::Set1(0x00FF00FF);
  // Copied out: the stores to the frames may alias anything, so a value left
  // in the parameters would be loaded again on every step.
  const int shift = params.shift;
  size_t i = 0;  // pixels
  for (; i + V::kLanes <= count; i += V::kLanes) {
    uint16_t* words = sum + 4 * i;
    const T in = V::Load(src + i);
    const T old = V::Load(ring + i);
    const T lo = V::SubsU16(V::AddsU16(V::Load(words), V::WidenLowBytes(in)), V::WidenLowBytes(old));
    const T hi = V::SubsU16(V::AddsU16(V::Load(words + kWords), V::WidenHighBytes(in)), V::WidenHighBytes(old));
    V::Store(words, lo);
    V::Store(words + kWords, hi);
    const T out = V::PackU16(V::MinU16(V::SrlU16(lo, shift), max_byte), V::MinU16(V::SrlU16(hi, shift), max_byte));
    V::Store(ring + i, in);
    V::Store(dst + i, out);
  }
  TimeBlurStepScalar(src + i, dst + i, ring + i, sum + 4 * i, count - i, params);
}

}  // namespace
}  // namespace nimbo
