// Saturating pixel helpers. SSE2 is the x86-64 baseline; the scalar loop
// finishes the tail and serves other architectures.
#include "orrery/pixels.h"

#include <algorithm>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orrery {

void MMXAddDWORDSaturation(uint32_t* dst, const uint32_t* src, size_t count) {
  size_t i = 0;
#if defined(__SSE2__)
  for (; i + 4 <= count; i += 4) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_adds_epu8(a, b));
  }
#endif
  for (; i < count; ++i) {
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
      uint32_t sum = ((dst[i] >> shift) & 0xFF) + ((src[i] >> shift) & 0xFF);
      out |= std::min<uint32_t>(sum, 255) << shift;
    }
    dst[i] = out;
  }
}

void MMXDWORDset(uint32_t* dst, uint32_t value, size_t count) { std::fill(dst, dst + count, value); }

}  // namespace orrery
