// The AVX-512 version of the chroma-cone key: sixteen pixels per step, so a
// block of four vectors is 64 pixels. Reached only through ChromaKeyKernel()
// when the CPU has AVX-512 F, BW, DQ and VBMI (CpuHasKeyAvx512()).
//
// Beyond the wider vectors, VBMI's two-table byte permute looks the alpha
// LUT up directly: 128 table bytes sit in two registers, so the cone table
// takes one permute per 64 pixels and the full 256-entry LUT two plus a
// blend, where AVX2 walks eight or sixteen shuffled rows.
//
// All headers come first; the AVX-512 code generation is switched on only
// for the definitions below them, which all have internal linkage, so no
// inline function shared with other files is ever compiled for AVX-512.
//
// GCC 12's AVX-512 intrinsics start some results from a deliberately
// undefined register (`__m512i __Y = __Y;`), which -Wuninitialized reports
// wherever they are inlined; nothing here reads such a value.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "chroma_key_kernel.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512dq,avx512vbmi"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512dq,avx512vbmi")
#endif

namespace nimbo {
namespace {

struct V512 {
  using T = __m512i;
  static constexpr size_t kLanes = 16;

  static T Load(const uint32_t* p) { return _mm512_loadu_si512(p); }
  static void Store(uint32_t* p, T v) { _mm512_storeu_si512(p, v); }
  static T Set1(int32_t v) { return _mm512_set1_epi32(v); }
  static T And(T a, T b) { return _mm512_and_si512(a, b); }
  static T Or(T a, T b) { return _mm512_or_si512(a, b); }
  static T AndNot(T a, T b) { return _mm512_andnot_si512(a, b); }
  static T Xor(T a, T b) { return _mm512_xor_si512(a, b); }
  static T Add(T a, T b) { return _mm512_add_epi32(a, b); }
  static T Sub(T a, T b) { return _mm512_sub_epi32(a, b); }
  template <int N>
  static T Srai(T a) { return _mm512_srai_epi32(a, N); }
  template <int N>
  static T Srli(T a) { return _mm512_srli_epi32(a, N); }
  template <int N>
  static T Slli(T a) { return _mm512_slli_epi32(a, N); }
  static T Madd(T a, T b) { return _mm512_madd_epi16(a, b); }
  // Compares give mask registers; the shared bodies combine lane masks as
  // vectors, so the mask is spread back to all-ones lanes.
  static T CmpGt(T a, T b) { return _mm512_movm_epi32(_mm512_cmpgt_epi32_mask(a, b)); }
  static T MulLo(T a, T b) { return _mm512_mullo_epi32(a, b); }
  static T Abs(T a) { return _mm512_abs_epi32(a); }
  static T MinU32(T a, T b, T, T) { return _mm512_min_epu32(a, b); }
  // One masked byte shuffle moves each colour byte into the low half of its
  // lane and keeps the weight from `high` in the high half.
  static void BackgroundPairs(T back, T high, T out[3]) {
    const __mmask64 low_half = 0x3333333333333333ull;
    out[0] = _mm512_mask_shuffle_epi8(high, low_half, back, Spread(2));
    out[1] = _mm512_mask_shuffle_epi8(high, low_half, back, Spread(1));
    out[2] = _mm512_mask_shuffle_epi8(high, low_half, back, Spread(0));
  }
  // Per 128-bit quarter: byte k of each pixel, then a zero byte.
  static T Spread(int k) {
    const __m128i q = _mm_setr_epi8(char(k), -1, -1, -1, char(k + 4), -1, -1, -1, char(k + 8), -1, -1, -1,
                                    char(k + 12), -1, -1, -1);
    return _mm512_broadcast_i32x4(q);
  }
  static bool AnyLane(T mask) { return _mm512_test_epi32_mask(mask, mask) != 0; }
  // Bitwise select, mask ? a : b, in one ternary-logic instruction.
  static T Blend(T mask, T a, T b) { return _mm512_ternarylogic_epi32(mask, a, b, 0xCA); }
  // The packs work within each 128-bit quarter, which holds four whole
  // pixels; one byte shuffle per quarter then interleaves B, G, R, A.
  static T PackPixels(T b, T g, T r, T a) {
    const T bytes = _mm512_packus_epi16(_mm512_packs_epi32(b, r), _mm512_packs_epi32(g, a));  // B R G A per quarter
    const T order =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 8, 4, 12, 1, 9, 5, 13, 2, 10, 6, 14, 3, 11, 7, 15));
    return _mm512_shuffle_epi8(bytes, order);
  }
  static T Gather(const int32_t* table, T index) { return _mm512_i32gather_epi32(index, table, 4); }

  // The alpha LUT and the X' table as plain bytes in registers, made once per
  // call: the LUT from its widened copy, the X' table by undoing the
  // differences its rows store (row n holds entry 16n + i XOR entry
  // 16(n - 1) + i).
  struct Tables {
    T lut[4];  // entries 0-63, 64-127, 128-191, 192-255
    T cone[2];  // X' 0-63, 64-127
    explicit Tables(const ChromaKeyParams& p) {
      for (int q = 0; q < 4; ++q) {
        __m128i part[4];
        for (int k = 0; k < 4; ++k) part[k] = _mm512_cvtepi32_epi8(_mm512_loadu_si512(p.lut + 64 * q + 16 * k));
        lut[q] = Join(part);
      }
      __m128i row[8];
      row[0] = _mm_load_si128(reinterpret_cast<const __m128i*>(p.cone_rows[0]));
      for (int n = 1; n < 8; ++n) {
        row[n] = _mm_xor_si128(row[n - 1], _mm_load_si128(reinterpret_cast<const __m128i*>(p.cone_rows[n])));
      }
      cone[0] = Join(row);
      cone[1] = Join(row + 4);
    }
    static T Join(const __m128i part[4]) {
      const __m256i lo = _mm256_inserti128_si256(_mm256_castsi128_si256(part[0]), part[1], 1);
      const __m256i hi = _mm256_inserti128_si256(_mm256_castsi128_si256(part[2]), part[3], 1);
      return _mm512_inserti64x4(_mm512_castsi256_si512(lo), hi, 1);
    }
  };

  // The alpha LUT for 64 indices 0..255 at once: the indices packed to bytes,
  // each half of the table looked up by one two-register byte permute (which
  // reads the low 7 bits), the top bit choosing between them. The packs
  // and unpacks work within 128-bit quarters and undo each other, so lanes
  // keep their places.
  static void LookUpAlpha(const Tables& t, T a[4]) {
    const T bytes = _mm512_packus_epi16(_mm512_packus_epi32(a[0], a[1]), _mm512_packus_epi32(a[2], a[3]));
    const T low = _mm512_permutex2var_epi8(t.lut[0], bytes, t.lut[1]);
    const T high = _mm512_permutex2var_epi8(t.lut[2], bytes, t.lut[3]);
    Widen(_mm512_mask_blend_epi8(_mm512_movepi8_mask(bytes), low, high), a);
  }
  // a for 64 keyed lanes straight from X' (params.cone_rows_usable): X'
  // saturates to a byte, is clamped to 127 and picks its entry with one
  // permute. Foreground lanes (X' <= 0) get a meaningless value.
  static constexpr bool kConeShuffles = true;
  static void LookUpCone(const Tables& t, const T x_cone[4], T a[4]) {
    const T bytes =
        _mm512_packus_epi16(_mm512_packus_epi32(x_cone[0], x_cone[1]), _mm512_packus_epi32(x_cone[2], x_cone[3]));
    const T index = _mm512_min_epu8(bytes, _mm512_set1_epi8(127));
    Widen(_mm512_permutex2var_epi8(t.cone[0], index, t.cone[1]), a);
  }
  // Bytes packed by LookUp* back to their four vectors of 32-bit lanes.
  static void Widen(T bytes, T a[4]) {
    const T zero = _mm512_setzero_si512();
    const T lo = _mm512_unpacklo_epi8(bytes, zero), hi = _mm512_unpackhi_epi8(bytes, zero);
    a[0] = _mm512_unpacklo_epi16(lo, zero);
    a[1] = _mm512_unpackhi_epi16(lo, zero);
    a[2] = _mm512_unpacklo_epi16(hi, zero);
    a[3] = _mm512_unpackhi_epi16(hi, zero);
  }
};

}  // namespace
}  // namespace nimbo

#include "chroma_key_kernel_simd.h"

namespace nimbo {

void ChromaKeyAvx512(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params) {
  ChromaKeyBody<V512>(dst, bg, count, params);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
