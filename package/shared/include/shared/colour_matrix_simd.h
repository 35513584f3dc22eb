// The colour matrix over a vector type V of 32-bit lanes (shared/simd_lanes.h):
// the rows as 16-bit weight pairs for V::Madd, and the whole-picture body.
// Included by each instruction set's translation unit inside its code
// generation region (and by ChromaKeyPRO's key body, which recolours the
// foreground with the same rows). Internal linkage throughout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "shared/colour_matrix.h"

namespace nimbo {
namespace {

// A 32-bit lane holding the 16-bit pair (lo, hi), the operand layout of Madd.
inline int32_t PairOf(int32_t lo, int32_t hi) { return int32_t((uint32_t(lo) & 0xFFFF) | uint32_t(hi) << 16); }

template <class V>
struct MatrixRows {
  // Per output channel: the pair (B, R) weights and the G weight, matching the
  // (B, R) and (G, 0) pairs cut from each pixel.
  typename V::T br[3], g[3];
  explicit MatrixRows(const ColorMatrix& m) {
    for (int k = 0; k < 3; ++k) {
      br[k] = V::Set1(PairOf(m.m[k][2], m.m[k][0]));
      g[k] = V::Set1(PairOf(m.m[k][1], 0));
    }
  }
  // The recoloured pixels with alpha 0.
  typename V::T Apply(typename V::T pair_br, typename V::T pair_g) const {
    typename V::T out[3];
    for (int k = 0; k < 3; ++k) out[k] = V::template Srai<8>(V::Add(V::Madd(pair_br, br[k]), V::Madd(pair_g, g[k])));
    return V::PackPixels(out[2], out[1], out[0], V::Set1(0));
  }
};

template <class V>
void ColorMatrixBody(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  using T = typename V::T;
  const T low_bytes = V::Set1(0x00FF00FF), byte = V::Set1(0xFF), alpha = V::Set1(int32_t(0xFF000000u));
  const MatrixRows<V> matrix(m);
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T px = V::Load(src + i);
    const T rgb = matrix.Apply(V::And(px, low_bytes), V::And(V::template Srli<8>(px), byte));
    V::Store(dst + i, V::Or(rgb, V::And(px, alpha)));
  }
  ColorMatrixScalar(src + i, dst + i, count - i, m);
}

}  // namespace
}  // namespace nimbo
