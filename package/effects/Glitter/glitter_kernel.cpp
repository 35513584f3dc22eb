#include "glitter_kernel.h"

#include <emmintrin.h>

namespace nimbo::glitter {

void LumaRowScalar(const uint32_t* src, uint8_t* dst, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const uint32_t p = src[i];
    dst[i] = uint8_t((77 * ((p >> 16) & 0xFF) + 150 * ((p >> 8) & 0xFF) + 29 * (p & 0xFF)) >> 8);
  }
}

void LumaRowSse2(const uint32_t* src, uint8_t* dst, int32_t count) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i weights = _mm_setr_epi16(29, 150, 77, 0, 29, 150, 77, 0);  // B G R A per pixel
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    // Per pixel two sums: 29 B + 150 G and 77 R + 0 A.
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), weights);
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), weights);
    const __m128 lof = _mm_castsi128_ps(lo), hif = _mm_castsi128_ps(hi);
    const __m128i bg = _mm_castps_si128(_mm_shuffle_ps(lof, hif, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i ra = _mm_castps_si128(_mm_shuffle_ps(lof, hif, _MM_SHUFFLE(3, 1, 3, 1)));
    const __m128i y = _mm_srli_epi32(_mm_add_epi32(bg, ra), 8);
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(y, zero), zero);
    const int32_t four = _mm_cvtsi128_si32(bytes);
    __builtin_memcpy(dst + i, &four, 4);
  }
  LumaRowScalar(src + i, dst + i, count - i);
}

LumaRowFn LumaRowKernel() { return LumaRowSse2; }

namespace {
inline void AddWhite(uint32_t* frame, int32_t width, int32_t height, int32_t x, int32_t y, int32_t v) {
  if (x < 0 || y < 0 || x >= width || y >= height || v <= 0) return;
  uint32_t& p = frame[size_t(y) * size_t(width) + size_t(x)];
  uint32_t out = p & 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    const int32_t c = int32_t((p >> shift) & 0xFF) + v;
    out |= uint32_t(c > 255 ? 255 : c) << shift;
  }
  p = out;
}
}  // namespace

void DrawGlint(uint32_t* frame, int32_t width, int32_t height, int32_t x, int32_t y, int32_t amplitude,
               int32_t length) {
  AddWhite(frame, width, height, x, y, amplitude);
  for (int32_t d = 1; d <= length; ++d) {
    const int32_t v = amplitude * (length + 1 - d) / (length + 1);
    AddWhite(frame, width, height, x + d, y, v);
    AddWhite(frame, width, height, x - d, y, v);
    AddWhite(frame, width, height, x, y + d, v);
    AddWhite(frame, width, height, x, y - d, v);
    if (d <= length / 2) {
      AddWhite(frame, width, height, x + d, y + d, v / 2);
      AddWhite(frame, width, height, x - d, y + d, v / 2);
      AddWhite(frame, width, height, x + d, y - d, v / 2);
      AddWhite(frame, width, height, x - d, y - d, v / 2);
    }
  }
}

}  // namespace nimbo::glitter
