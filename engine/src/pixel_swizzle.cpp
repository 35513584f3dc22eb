#include "pixel_swizzle.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace nb3d {

void SwapRedBlueScalar(const uint32_t* src, uint32_t* dst, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t p = src[i];
    dst[i] = (p & 0xFF00FF00u) | ((p >> 16) & 0xFFu) | ((p & 0xFFu) << 16);
  }
}

#if defined(__x86_64__) || defined(__i386__)
void SwapRedBlueSse2(const uint32_t* src, uint32_t* dst, size_t count) {
  const __m128i keep = _mm_set1_epi32(int32_t(0xFF00FF00u));
  const __m128i low = _mm_set1_epi32(0xFF);
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    __m128i out = _mm_or_si128(_mm_and_si128(p, keep),
                               _mm_or_si128(_mm_and_si128(_mm_srli_epi32(p, 16), low),
                                            _mm_slli_epi32(_mm_and_si128(p, low), 16)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), out);
  }
  SwapRedBlueScalar(src + i, dst + i, count - i);
}

__attribute__((target("avx2"))) void SwapRedBlueAvx2(const uint32_t* src, uint32_t* dst, size_t count) {
  // Byte shuffle within each 32-bit lane: 2 1 0 3 -> bytes R and B exchanged.
  const __m256i order = _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15,  //
                                         2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_shuffle_epi8(p, order));
  }
  SwapRedBlueSse2(src + i, dst + i, count - i);
}
#endif

bool CpuHasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
#else
  return false;
#endif
}

void SwapRedBlue(const uint32_t* src, uint32_t* dst, size_t count) {
#if defined(__x86_64__) || defined(__i386__)
  static void (*const chosen)(const uint32_t*, uint32_t*, size_t) =
      CpuHasAvx2() ? SwapRedBlueAvx2 : SwapRedBlueSse2;
  chosen(src, dst, count);
#else
  SwapRedBlueScalar(src, dst, count);
#endif
}

}  // namespace nb3d
