// The SSE2 versions of the keying kernels: four pixels per step. SSE2 lacks
// a 32-bit multiply, abs, blend, byte shuffle and gather; each is built here
// from what it has.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "chroma_key_kernel.h"

namespace nimbo {
namespace {

struct V128 {
  using T = __m128i;
  static constexpr size_t kLanes = 4;

  static T Load(const uint32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  static void Store(uint32_t* p, T v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
  static T Set1(int32_t v) { return _mm_set1_epi32(v); }
  static T And(T a, T b) { return _mm_and_si128(a, b); }
  static T Or(T a, T b) { return _mm_or_si128(a, b); }
  static T AndNot(T a, T b) { return _mm_andnot_si128(a, b); }
  static T Xor(T a, T b) { return _mm_xor_si128(a, b); }
  static T Add(T a, T b) { return _mm_add_epi32(a, b); }
  static T Sub(T a, T b) { return _mm_sub_epi32(a, b); }
  template <int N>
  static T Srai(T a) { return _mm_srai_epi32(a, N); }
  template <int N>
  static T Srli(T a) { return _mm_srli_epi32(a, N); }
  template <int N>
  static T Slli(T a) { return _mm_slli_epi32(a, N); }
  static T Madd(T a, T b) { return _mm_madd_epi16(a, b); }
  static T CmpGt(T a, T b) { return _mm_cmpgt_epi32(a, b); }
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
  static bool AnyLane(T mask) { return _mm_movemask_epi8(mask) != 0; }
  static T Blend(T mask, T a, T b) { return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b)); }
  // Lanes b, g, r, a -> pixels, each value saturated to 0..255 (the signed
  // 16-bit pack keeps out-of-range values out of range for the unsigned one).
  static T PackPixels(T b, T g, T r, T a) {
    const T bytes = _mm_packus_epi16(_mm_packs_epi32(b, r), _mm_packs_epi32(g, a));  // B0-3 R0-3 G0-3 A0-3
    const T bg_ra = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 8));           // B0 G0 B1 G1 .. R0 A0 ..
    return _mm_unpacklo_epi16(bg_ra, _mm_srli_si128(bg_ra, 8));
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
  static T AddsU8(T a, T b) { return _mm_adds_epu8(a, b); }
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
void ColorMatrixSse2(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  ColorMatrixBody<V128>(src, dst, count, m);
}
void XtractAlphaSse2(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  XtractAlphaBody<V128>(src, dst, count, invert);
}

}  // namespace nimbo
