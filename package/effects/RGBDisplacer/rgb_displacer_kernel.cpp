#include "rgb_displacer_kernel.h"

#include <emmintrin.h>

#include <algorithm>

namespace nimbo::rgb_displacer {

namespace {
inline int32_t Clamp(int32_t x, int32_t width) { return x < 0 ? 0 : (x >= width ? width - 1 : x); }
}  // namespace

void ShiftRowScalar(const ShiftRows& r, uint32_t* dst, int32_t width, int32_t x0, int32_t count) {
  for (int32_t x = x0; x < x0 + count; ++x) {
    dst[x] = (r.red[Clamp(x - r.dx_red, width)] & 0x00FF0000u) | (r.green[Clamp(x - r.dx_green, width)] & 0xFF00u) |
             (r.blue[Clamp(x - r.dx_blue, width)] & 0xFFu) | (r.alpha[x] & 0xFF000000u);
  }
}

void ShiftRowSse2(const ShiftRows& r, uint32_t* dst, int32_t width, int32_t x0, int32_t count) {
  // Inside [lo, hi) every shifted position lies in the row: plain unaligned
  // loads. The ends, where positions clamp, go through the scalar code.
  const int32_t end = x0 + count;
  const int32_t lo = std::clamp(std::max({r.dx_red, r.dx_green, r.dx_blue, 0}), x0, end);
  const int32_t hi = std::clamp(width + std::min({r.dx_red, r.dx_green, r.dx_blue, 0}), lo, end);
  ShiftRowScalar(r, dst, width, x0, lo - x0);
  const __m128i mr = _mm_set1_epi32(0x00FF0000), mg = _mm_set1_epi32(0xFF00), mb = _mm_set1_epi32(0xFF),
                ma = _mm_set1_epi32(int32_t(0xFF000000u));
  auto load = [](const uint32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
  int32_t x = lo;
  for (; x + 4 <= hi; x += 4) {
    const __m128i v = _mm_or_si128(
        _mm_or_si128(_mm_and_si128(load(r.red + x - r.dx_red), mr), _mm_and_si128(load(r.green + x - r.dx_green), mg)),
        _mm_or_si128(_mm_and_si128(load(r.blue + x - r.dx_blue), mb), _mm_and_si128(load(r.alpha + x), ma)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), v);
  }
  ShiftRowScalar(r, dst, width, x, end - x);
}

ShiftRowFn ShiftRowKernel() { return ShiftRowSse2; }

}  // namespace nimbo::rgb_displacer
