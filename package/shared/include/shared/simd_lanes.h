// Vector types for kernels written once over a type of lanes: a kernel body
// is a template over V and each instruction set instantiates it with its own
// V, so the SSE2 and AVX2 versions are one source. Lanes128 (SSE2, here) and
// Lanes256 (AVX2, simd_lanes_avx2.h) hold 32-bit lanes, one pixel per lane,
// and offer the same operations under the same names:
//
//   T, kLanes            the register type and how many 32-bit lanes it holds
//   Load, Store          unaligned, kLanes pixels (or 4 * kLanes bytes)
//   Set1                 every lane the same 32-bit value
//   And, Or, Xor, AndNot (AndNot(a, b) = ~a & b)
//   Add, Sub             32-bit lanes, wrapping
//   Srai, Srli, Slli<N>  shifts of each 32-bit lane
//   Madd                 pairs of signed 16-bit products summed in 32 bits
//   CmpGt                signed 32-bit compare, all ones where a > b
//   MulLo                the low 32 bits of each 32-bit product
//   Abs                  signed 32-bit absolute value
//   AnyLane              whether any bit of a mask is set
//   Blend                mask ? a : b, bit by bit
//   PackPixels           lanes of B, G, R, A values to pixels, each value
//                        saturated to 0..255
//   AddsU8, SubsU8       bytewise unsigned add and subtract, saturating
//   WidenLowBytes,       the first (second) half of the register's bytes as
//   WidenHighBytes       unsigned 16-bit words, in memory order
//   AddsU16, SubsU16     unsigned 16-bit add and subtract, saturating
//   SrlU16               16-bit words shifted right by a run-time count
//   MinU16               unsigned 16-bit minimum
//   PackU16              two registers of 16-bit words to bytes, saturating,
//                        in memory order (the inverse of the widening)
//
// A kernel that needs more derives its own V from these and adds what only
// it uses. Everything here has internal linkage: the instantiations of one
// instruction set can never stand in for another's.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace nimbo::simd {
namespace {

struct Lanes128 {
  using T = __m128i;
  static constexpr size_t kLanes = 4;

  static T Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
  static void Store(void* p, T v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
  static T Set1(int32_t v) { return _mm_set1_epi32(v); }
  static T And(T a, T b) { return _mm_and_si128(a, b); }
  static T Or(T a, T b) { return _mm_or_si128(a, b); }
  static T AndNot(T a, T b) { return _mm_andnot_si128(a, b); }
  static T Xor(T a, T b) { return _mm_xor_si128(a, b); }
  static T Add(T a, T b) { return _mm_add_epi32(a, b); }
  static T Sub(T a, T b) { return _mm_sub_epi32(a, b); }
  template <int N>
  static T Srai(T a) {
    return _mm_srai_epi32(a, N);
  }
  template <int N>
  static T Srli(T a) {
    return _mm_srli_epi32(a, N);
  }
  template <int N>
  static T Slli(T a) {
    return _mm_slli_epi32(a, N);
  }
  static T Madd(T a, T b) { return _mm_madd_epi16(a, b); }
  static T CmpGt(T a, T b) { return _mm_cmpgt_epi32(a, b); }
  // SSE2 has no 32-bit multiply: the even and odd lanes' 64-bit products,
  // their low halves put back in place.
  static T MulLo(T a, T b) {
    const T even = _mm_mul_epu32(a, b);
    const T odd = _mm_mul_epu32(_mm_srli_epi64(a, 32), _mm_srli_epi64(b, 32));
    return _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                              _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0)));
  }
  static T Abs(T a) {
    const T s = _mm_srai_epi32(a, 31);
    return _mm_sub_epi32(_mm_xor_si128(a, s), s);
  }
  static T AddsU8(T a, T b) { return _mm_adds_epu8(a, b); }
  static T SubsU8(T a, T b) { return _mm_subs_epu8(a, b); }
  static T WidenLowBytes(T a) { return _mm_unpacklo_epi8(a, _mm_setzero_si128()); }
  static T WidenHighBytes(T a) { return _mm_unpackhi_epi8(a, _mm_setzero_si128()); }
  static T AddsU16(T a, T b) { return _mm_adds_epu16(a, b); }
  static T SubsU16(T a, T b) { return _mm_subs_epu16(a, b); }
  static T SrlU16(T a, int n) { return _mm_srl_epi16(a, _mm_cvtsi32_si128(n)); }
  // SSE2 has no unsigned 16-bit minimum: a - max(0, a - b).
  static T MinU16(T a, T b) { return _mm_sub_epi16(a, _mm_subs_epu16(a, b)); }
  static T PackU16(T lo, T hi) { return _mm_packus_epi16(lo, hi); }
  static bool AnyLane(T mask) { return _mm_movemask_epi8(mask) != 0; }
  static T Blend(T mask, T a, T b) { return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b)); }
  // The signed 16-bit pack keeps out-of-range values out of range for the
  // unsigned one, so each value saturates once.
  static T PackPixels(T b, T g, T r, T a) {
    const T bytes = _mm_packus_epi16(_mm_packs_epi32(b, r), _mm_packs_epi32(g, a));  // B0-3 R0-3 G0-3 A0-3
    const T bg_ra = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 8));              // B0 G0 B1 G1 .. R0 A0 ..
    return _mm_unpacklo_epi16(bg_ra, _mm_srli_si128(bg_ra, 8));
  }
};

}  // namespace
}  // namespace nimbo::simd
