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

// `Out` writes the output: a picture is a whole frame the kernel never reads
// back, so its stores stream past the cache (Out::Put, which needs an address
// aligned to Out::kAlign bytes) instead of first reading every line they
// fill. The few pixels before the first aligned one and after the last whole
// register take the scalar path; Out::Finish orders the streamed stores
// before whatever follows.
template <class V, class Out>
void RetinaBody(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  using T = typename V::T;
  // The colour bytes get the limit, alpha 255 (so its fatigue never grows).
  const T limit = V::Set1(int32_t(0xFF000000u | uint32_t(params.limit) * 0x010101u));
  const T fade = V::Set1(int32_t(uint32_t(params.fade) * 0x01010101u));
  const size_t misaligned = (reinterpret_cast<uintptr_t>(dst) % Out::kAlign) / sizeof(uint32_t);
  size_t head = misaligned ? (Out::kAlign / sizeof(uint32_t) - misaligned) : 0;
  if (reinterpret_cast<uintptr_t>(dst) % sizeof(uint32_t) != 0 || head > count) head = count;  // no aligned start
  RetinaScalar(src, dst, fatigue, head, params);
  size_t i = head;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T in = V::Load(src + i);
    T f = V::Load(fatigue + i * 4);
    Out::Put(dst + i, V::AddsU8(in, f));
    f = V::SubsU8(V::AddsU8(f, V::SubsU8(in, limit)), fade);
    V::Store(fatigue + i * 4, f);
  }
  Out::Finish();
  RetinaScalar(src + i, dst + i, fatigue + i * 4, count - i, params);
}

}  // namespace
}  // namespace nimbo
