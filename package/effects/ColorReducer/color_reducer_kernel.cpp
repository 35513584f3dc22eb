#include "color_reducer_kernel.h"

#include <emmintrin.h>

namespace nimbo::color_reducer {

namespace {
constexpr uint8_t kBayer8[8][8] = {
    {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26}, {12, 44, 4, 36, 14, 46, 6, 38},
    {60, 28, 52, 20, 62, 30, 54, 22}, {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
    {15, 47, 7, 39, 13, 45, 5, 37},  {63, 31, 55, 23, 61, 29, 53, 21},
};
}  // namespace

int32_t BayerIndex(int32_t x, int32_t y) { return kBayer8[y & 7][x & 7]; }

ReduceParams ParamsForBits(int32_t bits) {
  bits = bits < 1 ? 1 : (bits > 8 ? 8 : bits);
  const int32_t levels = (1 << bits) - 1;
  ReduceParams p;
  p.levels = levels;
  p.mul = (65280 + levels - 1) / levels;
  return p;
}

void FillDitherPattern(int32_t bits, bool dither, int32_t y, uint16_t* pattern) {
  bits = bits < 1 ? 1 : (bits > 8 ? 8 : bits);
  for (int32_t x = 0; x < 16; ++x) {
    const uint16_t d = dither ? uint16_t(((2 * BayerIndex(x, y) + 1) * 255) >> 7) : 127;
    for (int32_t lane = 0; lane < 4; ++lane) pattern[x * 4 + lane] = lane == 3 ? 0 : d;
  }
}

void ReduceRowScalar(const uint32_t* src, uint32_t* dst, int32_t x0, int32_t count, const ReduceParams& p) {
  for (int32_t x = x0; x < x0 + count; ++x) {
    const uint16_t* d = p.pattern + (x & 7) * 4;
    uint32_t out = src[x] & 0xFF000000u;
    for (int lane = 0; lane < 3; ++lane) {
      const int32_t c = int32_t((src[x] >> (8 * lane)) & 0xFF);
      const int32_t q = (c * p.levels + d[lane]) / 255;
      out |= uint32_t((q * p.mul) >> 8) << (8 * lane);
    }
    dst[x] = out;
  }
}

void ReduceRowSse2(const uint32_t* src, uint32_t* dst, int32_t x0, int32_t count, const ReduceParams& p) {
  const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi16(1);
  const __m128i levels = _mm_set1_epi16(int16_t(p.levels)), mul = _mm_set1_epi16(int16_t(p.mul));
  const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  auto lanes = [&](__m128i c, const uint16_t* d) {
    const __m128i dv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
    const __m128i x = _mm_add_epi16(_mm_mullo_epi16(c, levels), dv);  // unsigned, < 65536
    const __m128i q = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(x, one), _mm_srli_epi16(x, 8)), 8);
    return _mm_srli_epi16(_mm_mullo_epi16(q, mul), 8);
  };
  int32_t x = x0;
  const int32_t end = x0 + count;
  for (; x + 4 <= end; x += 4) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + x));
    // Pixels x, x+1 and x+2, x+3 take pattern entries (x & 7) .. +3, which
    // lie inside the 16-pixel pattern.
    const uint16_t* d = p.pattern + (x & 7) * 4;
    const __m128i lo = lanes(_mm_unpacklo_epi8(v, zero), d);
    const __m128i hi = lanes(_mm_unpackhi_epi8(v, zero), d + 8);
    const __m128i packed = _mm_packus_epi16(lo, hi);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x),
                     _mm_or_si128(_mm_andnot_si128(alpha, packed), _mm_and_si128(v, alpha)));
  }
  ReduceRowScalar(src, dst, x, end - x, p);
}

ReduceRowFn ReduceRowKernel() { return ReduceRowSse2; }

}  // namespace nimbo::color_reducer
