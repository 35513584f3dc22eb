// The AVX2 versions of the keying kernels: eight pixels per step. Reached
// only through the *Kernel() choosers when the CPU has AVX2.
//
// All headers come first; the AVX2 code generation is switched on only for
// the definitions below them, which all have internal linkage, so no inline
// function shared with other files is ever compiled for AVX2.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "chroma_key_kernel.h"
#include "shared/simd_lanes_avx2.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace nimbo {
namespace {

struct V256 : simd::Lanes256 {
  static T MinU32(T a, T b, T, T) { return _mm256_min_epu32(a, b); }
  // One byte shuffle moves each colour byte into the low half of its lane;
  // a word blend puts the weight into the high half.
  static void BackgroundPairs(T back, T high, T out[3]) {
    const T red = _mm256_setr_epi8(2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1,  //
                                   2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1);
    const T green = _mm256_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1,  //
                                     1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
    const T blue = _mm256_setr_epi8(0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1,  //
                                    0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1);
    out[0] = _mm256_blend_epi16(_mm256_shuffle_epi8(back, red), high, 0xAA);
    out[1] = _mm256_blend_epi16(_mm256_shuffle_epi8(back, green), high, 0xAA);
    out[2] = _mm256_blend_epi16(_mm256_shuffle_epi8(back, blue), high, 0xAA);
  }
  static T Gather(const int32_t* table, T index) { return _mm256_i32gather_epi32(table, index, 4); }
  // The alpha LUT for 32 indices at once, by byte shuffles instead of four
  // gathers (which cost several times more here). The indices are packed to
  // bytes; a shuffle gives a row's entry for a non-negative (signed) byte and
  // 0 for a negative one. Indices 0..127 walk rows 0..7 (i, i - 16, ...,
  // saturating, stay non-negative while the row is at or below theirs),
  // indices 128..255 rows 8..15 through i ^ 0x80 = i - 128 the same way; each
  // side starts out negative for the other half. XORing the shuffles adds up
  // the differences stored in the rows (see SetAlphaLut) to LUT[i]. The packs
  // and unpacks work within 128-bit halves and undo each other, so lanes keep
  // their places.
  static void LookUpAlpha(const ChromaKeyParams& p, T a[4]) {
    const T low = _mm256_packus_epi16(_mm256_packus_epi32(a[0], a[1]), _mm256_packus_epi32(a[2], a[3]));
    // Keyed screen pixels mostly have indices near 255: a block whose indices
    // all lie in one half walks only that half's rows.
    const uint32_t upper = uint32_t(_mm256_movemask_epi8(low));
    T out = _mm256_setzero_si256();
    if (upper != 0xFFFFFFFFu) out = WalkRows(p.lut_rows, low);
    if (upper != 0) {
      out = _mm256_xor_si256(out, WalkRows(p.lut_rows + 8, _mm256_xor_si256(low, _mm256_set1_epi8(char(0x80)))));
    }
    Widen(out, a);
  }
  // a for 32 keyed lanes straight from X' (params.cone_rows_usable): X'
  // saturates to a byte, is clamped to 127 and walks the 8 rows of the X'
  // table, which saves the multiply and clamp that make the LUT index.
  // Foreground lanes (X' <= 0) get a meaningless value.
  static constexpr bool kConeShuffles = true;
  static void LookUpCone(const ChromaKeyParams& p, const T x_cone[4], T a[4]) {
    const T bytes =
        _mm256_packus_epi16(_mm256_packus_epi32(x_cone[0], x_cone[1]), _mm256_packus_epi32(x_cone[2], x_cone[3]));
    Widen(WalkRows(p.cone_rows, _mm256_min_epu8(bytes, _mm256_set1_epi8(127))), a);
  }
  // XOR of the shuffles of 8 rows by index, index - 16, ... (saturating).
  // The eight shuffles are independent and summed as a tree: a chain of
  // them would be long enough to stall the loop.
  static T WalkRows(const uint8_t (*rows)[16], T index) {
    alignas(32) static constexpr int8_t kSteps[8][32] = {
#define NIMBO_STEP(n) {n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n, n}
        NIMBO_STEP(0), NIMBO_STEP(16), NIMBO_STEP(32), NIMBO_STEP(48),
        NIMBO_STEP(64), NIMBO_STEP(80), NIMBO_STEP(96), NIMBO_STEP(112)};
#undef NIMBO_STEP
    T part[8];
    for (int h = 0; h < 8; ++h) {
      const T step = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSteps[h]));
      part[h] = _mm256_shuffle_epi8(Row(rows[h]), _mm256_subs_epi8(index, step));
    }
    for (int width = 4; width > 0; width /= 2) {
      for (int h = 0; h < width; ++h) part[h] = _mm256_xor_si256(part[h], part[h + width]);
    }
    return part[0];
  }
  static T Row(const uint8_t* row) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(row)));
  }
  // Bytes packed by LookUp* back to their four vectors of 32-bit lanes.
  static void Widen(T bytes, T a[4]) {
    const T zero = _mm256_setzero_si256();
    const T lo = _mm256_unpacklo_epi8(bytes, zero), hi = _mm256_unpackhi_epi8(bytes, zero);
    a[0] = _mm256_unpacklo_epi16(lo, zero);
    a[1] = _mm256_unpackhi_epi16(lo, zero);
    a[2] = _mm256_unpacklo_epi16(hi, zero);
    a[3] = _mm256_unpackhi_epi16(hi, zero);
  }
  static void KeyTableEntries(const uint32_t* table, T index, T& colour, T& alpha) {
    const auto* base = reinterpret_cast<const long long*>(table);
    // Entries 0-3 and 4-7 as (colour, alpha) word pairs.
    const T lo = _mm256_i32gather_epi64(base, _mm256_castsi256_si128(index), 8);
    const T hi = _mm256_i32gather_epi64(base, _mm256_extracti128_si256(index, 1), 8);
    // Even words are colours, odd words alphas; gather them in pixel order.
    const T evens = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
    const T odds = _mm256_setr_epi32(1, 3, 5, 7, 1, 3, 5, 7);
    colour = _mm256_permute2x128_si256(_mm256_permutevar8x32_epi32(lo, evens), _mm256_permutevar8x32_epi32(hi, evens),
                                       0x20);
    alpha = _mm256_permute2x128_si256(_mm256_permutevar8x32_epi32(lo, odds), _mm256_permutevar8x32_epi32(hi, odds),
                                      0x20);
  }
  static T MulBytesShr8(T a, T b) {
    const T zero = _mm256_setzero_si256();
    const T lo = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpacklo_epi8(a, zero), _mm256_unpacklo_epi8(b, zero)), 8);
    const T hi = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpackhi_epi8(a, zero), _mm256_unpackhi_epi8(b, zero)), 8);
    return _mm256_packus_epi16(lo, hi);
  }
};

}  // namespace
}  // namespace nimbo

#include "chroma_key_kernel_simd.h"

namespace nimbo {

void ChromaKeyAvx2(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params) {
  ChromaKeyBody<V256>(dst, bg, count, params);
}
void ApplyKeyTableAvx2(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb) {
  ApplyKeyTableBody<V256>(dst, bg, count, table, null_rgb);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
