// Lanes256: the AVX2 lanes of simd_lanes.h, eight pixels per register, with
// the same operations under the same names. The header compiles its own
// definitions for AVX2 and may be included like any other; code that uses
// Lanes256 must itself be compiled for AVX2 and reached only when the CPU has
// it (CpuHasAvx2()).
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace nimbo::simd {
namespace {

struct Lanes256 {
  using T = __m256i;
  static constexpr size_t kLanes = 8;

  static T Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
  static void Store(void* p, T v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
  static T Set1(int32_t v) { return _mm256_set1_epi32(v); }
  static T And(T a, T b) { return _mm256_and_si256(a, b); }
  static T Or(T a, T b) { return _mm256_or_si256(a, b); }
  static T AndNot(T a, T b) { return _mm256_andnot_si256(a, b); }
  static T Xor(T a, T b) { return _mm256_xor_si256(a, b); }
  static T Add(T a, T b) { return _mm256_add_epi32(a, b); }
  static T Sub(T a, T b) { return _mm256_sub_epi32(a, b); }
  template <int N>
  static T Srai(T a) {
    return _mm256_srai_epi32(a, N);
  }
  template <int N>
  static T Srli(T a) {
    return _mm256_srli_epi32(a, N);
  }
  template <int N>
  static T Slli(T a) {
    return _mm256_slli_epi32(a, N);
  }
  static T Madd(T a, T b) { return _mm256_madd_epi16(a, b); }
  static T CmpGt(T a, T b) { return _mm256_cmpgt_epi32(a, b); }
  static T MulLo(T a, T b) { return _mm256_mullo_epi32(a, b); }
  static T Abs(T a) { return _mm256_abs_epi32(a); }
  static T AddsU8(T a, T b) { return _mm256_adds_epu8(a, b); }
  static T SubsU8(T a, T b) { return _mm256_subs_epu8(a, b); }
  // Widening by halves keeps the words in memory order, unlike the unpacks,
  // which work within 128-bit halves.
  static T WidenLowBytes(T a) { return _mm256_cvtepu8_epi16(_mm256_castsi256_si128(a)); }
  static T WidenHighBytes(T a) { return _mm256_cvtepu8_epi16(_mm256_extracti128_si256(a, 1)); }
  static T AddsU16(T a, T b) { return _mm256_adds_epu16(a, b); }
  static T SubsU16(T a, T b) { return _mm256_subs_epu16(a, b); }
  static T SrlU16(T a, int n) { return _mm256_srl_epi16(a, _mm_cvtsi32_si128(n)); }
  static T MinU16(T a, T b) { return _mm256_min_epu16(a, b); }
  // packus works per 128-bit half; the permute puts the quarters back in order.
  static T PackU16(T lo, T hi) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8); }
  static bool AnyLane(T mask) { return !_mm256_testz_si256(mask, mask); }
  static T Blend(T mask, T a, T b) { return _mm256_blendv_epi8(b, a, mask); }
  // The packs work within each 128-bit half, which holds four whole pixels;
  // one byte shuffle per half then interleaves B, G, R, A.
  static T PackPixels(T b, T g, T r, T a) {
    const T bytes = _mm256_packus_epi16(_mm256_packs_epi32(b, r), _mm256_packs_epi32(g, a));  // B R G A per half
    const T order = _mm256_setr_epi8(0, 8, 4, 12, 1, 9, 5, 13, 2, 10, 6, 14, 3, 11, 7, 15,    //
                                     0, 8, 4, 12, 1, 9, 5, 13, 2, 10, 6, 14, 3, 11, 7, 15);
    return _mm256_shuffle_epi8(bytes, order);
  }
};

}  // namespace
}  // namespace nimbo::simd

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
