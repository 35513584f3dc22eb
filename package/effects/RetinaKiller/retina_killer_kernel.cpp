#include "retina_killer_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>

#include "core/cpu.h"

namespace nimbo {

namespace {

// The limit word of one pixel: the colour bytes get the limit, alpha 255.
inline uint32_t LimitWord(uint8_t limit) { return 0xFF000000u | uint32_t(limit) * 0x010101u; }

}  // namespace

void RetinaScalar(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  const int32_t limits[4] = {params.limit, params.limit, params.limit, 255};
  for (size_t i = 0; i < count * 4; ++i) {
    int32_t in = s8[i];
    int32_t f = fatigue[i];
    d8[i] = uint8_t(std::min(255, in + f));
    fatigue[i] = uint8_t(std::max(0, std::min(255, f + std::max(0, in - limits[i & 3])) - params.fade));
  }
}

void RetinaSse2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  const __m128i limit = _mm_set1_epi32(int32_t(LimitWord(params.limit)));
  const __m128i fade = _mm_set1_epi8(char(params.fade));
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    __m128i f = _mm_loadu_si128(reinterpret_cast<const __m128i*>(fatigue + i * 4));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_adds_epu8(in, f));
    f = _mm_subs_epu8(_mm_adds_epu8(f, _mm_subs_epu8(in, limit)), fade);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(fatigue + i * 4), f);
  }
  RetinaScalar(src + i, dst + i, fatigue + i * 4, count - i, params);
}

NIMBO_TARGET_AVX2 void RetinaAvx2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count,
                                  const RetinaParams& params) {
  const __m256i limit = _mm256_set1_epi32(int32_t(LimitWord(params.limit)));
  const __m256i fade = _mm256_set1_epi8(char(params.fade));
  size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    __m256i in = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    __m256i f = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(fatigue + i * 4));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_adds_epu8(in, f));
    f = _mm256_subs_epu8(_mm256_adds_epu8(f, _mm256_subs_epu8(in, limit)), fade);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(fatigue + i * 4), f);
  }
  RetinaScalar(src + i, dst + i, fatigue + i * 4, count - i, params);
}

RetinaFn RetinaKernel() {
  static const RetinaFn fn = CpuHasAvx2() ? RetinaAvx2 : RetinaSse2;
  return fn;
}

}  // namespace nimbo
