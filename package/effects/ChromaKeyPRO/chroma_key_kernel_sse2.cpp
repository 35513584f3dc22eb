// The SSE2 versions of ChromaKeyPRO's kernels: four pixels per step. SSE2
// lacks a 32-bit multiply, abs, blend, byte shuffle and gather; the shared
// lanes build the first three from what it has, the keying's own type here
// the rest.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "chroma_key_kernel.h"
#include "shared/simd_lanes.h"

namespace nimbo {
namespace {

struct V128 : simd::Lanes128 {
  // min(a, b) unsigned, given b ^ sign - 1 as `b_biased_less_one`.
  static T MinU32(T a, T b, T sign, T b_biased_less_one) {
    const T over = _mm_cmpgt_epi32(_mm_xor_si128(a, sign), b_biased_less_one);
    return _mm_or_si128(_mm_andnot_si128(over, a), _mm_and_si128(over, b));
  }
  // (byte, high) pairs for R, G and B; `high` holds the weight in its upper half.
  static void BackgroundPairs(T back, T high, T out[3]) {
    const T byte = _mm_set1_epi32(0xFF);
    out[0] = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(back, 16), byte), high);
    out[1] = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(back, 8), byte), high);
    out[2] = _mm_or_si128(_mm_and_si128(back, byte), high);
  }
  static T Gather(const int32_t* table, T index) {
    alignas(16) int32_t at[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(at), index);
    return _mm_setr_epi32(table[at[0]], table[at[1]], table[at[2]], table[at[3]]);
  }
  // SSE2 has no byte shuffle: one gather per vector.
  static constexpr bool kConeShuffles = false;
  static void LookUpCone(const ChromaKeyParams&, const T*, T*) {}
  static void LookUpAlpha(const ChromaKeyParams& p, T a[4]) {
    for (int j = 0; j < 4; ++j) a[j] = Gather(p.lut, a[j]);
  }
  static void KeyTableEntries(const uint32_t* table, T index, T& colour, T& alpha) {
    alignas(16) uint32_t at[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(at), index);
    const uint32_t* e0 = table + 2 * size_t(at[0]);
    const uint32_t* e1 = table + 2 * size_t(at[1]);
    const uint32_t* e2 = table + 2 * size_t(at[2]);
    const uint32_t* e3 = table + 2 * size_t(at[3]);
    colour = _mm_setr_epi32(int32_t(e0[0]), int32_t(e1[0]), int32_t(e2[0]), int32_t(e3[0]));
    alpha = _mm_setr_epi32(int32_t(e0[1]), int32_t(e1[1]), int32_t(e2[1]), int32_t(e3[1]));
  }
  // Per byte: (a * b) >> 8.
  static T MulBytesShr8(T a, T b) {
    const T zero = _mm_setzero_si128();
    const T lo = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero)), 8);
    const T hi = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero)), 8);
    return _mm_packus_epi16(lo, hi);
  }
};

}  // namespace
}  // namespace nimbo

#include "chroma_key_kernel_simd.h"

namespace nimbo {

void ChromaKeySse2(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params) {
  ChromaKeyBody<V128>(dst, bg, count, params);
}
void ApplyKeyTableSse2(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb) {
  ApplyKeyTableBody<V128>(dst, bg, count, table, null_rgb);
}

}  // namespace nimbo
