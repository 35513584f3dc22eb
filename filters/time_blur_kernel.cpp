#include "filters/time_blur_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>

#include "package/cpu.h"

namespace nimbo {

int32_t TimeBlurShift(int32_t n) {
  n = std::clamp(n, 1, kTimeBlurMaxFrames);
  int32_t s = 0;
  while ((1 << s) < n) ++s;
  return s;
}

namespace {

inline uint16_t AddSat16(uint16_t a, uint16_t b) { return uint16_t(std::min(0xFFFF, int32_t(a) + int32_t(b))); }
inline uint16_t SubSat16(uint16_t a, uint16_t b) { return uint16_t(std::max(0, int32_t(a) - int32_t(b))); }

// The scalar step over bytes: the SIMD versions hand their tails to it.
void StepBytes(const uint8_t* src, uint8_t* dst, uint8_t* ring, uint16_t* sum, size_t bytes, int32_t shift) {
  for (size_t i = 0; i < bytes; ++i) {
    uint16_t s = SubSat16(AddSat16(sum[i], src[i]), ring[i]);
    sum[i] = s;
    uint8_t in = src[i];  // read before the writes: src may be dst
    dst[i] = uint8_t(std::min(255, s >> shift));
    ring[i] = in;
  }
}

// min(x, 255) for unsigned words: x - max(0, x - 255).
inline __m128i Min255(__m128i x) { return _mm_sub_epi16(x, _mm_subs_epu16(x, _mm_set1_epi16(255))); }

}  // namespace

void TimeBlurStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                        const TimeBlurParams& params) {
  StepBytes(reinterpret_cast<const uint8_t*>(src), reinterpret_cast<uint8_t*>(dst), reinterpret_cast<uint8_t*>(ring),
            sum, count * 4, params.shift);
}

void TimeBlurStepSse2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  uint8_t* r8 = reinterpret_cast<uint8_t*>(ring);
  const size_t bytes = count * 4;
  const __m128i zero = _mm_setzero_si128();
  const __m128i shift = _mm_cvtsi32_si128(params.shift);
  size_t i = 0;
  for (; i + 16 <= bytes; i += 16) {
    __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s8 + i));
    __m128i old = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r8 + i));
    __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sum + i));
    __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sum + i + 8));
    lo = _mm_subs_epu16(_mm_adds_epu16(lo, _mm_unpacklo_epi8(in, zero)), _mm_unpacklo_epi8(old, zero));
    hi = _mm_subs_epu16(_mm_adds_epu16(hi, _mm_unpackhi_epi8(in, zero)), _mm_unpackhi_epi8(old, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sum + i), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sum + i + 8), hi);
    __m128i out = _mm_packus_epi16(Min255(_mm_srl_epi16(lo, shift)), Min255(_mm_srl_epi16(hi, shift)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r8 + i), in);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d8 + i), out);
  }
  StepBytes(s8 + i, d8 + i, r8 + i, sum + i, bytes - i, params.shift);
}

NIMBO_TARGET_AVX2 void TimeBlurStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum,
                                        size_t count, const TimeBlurParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  uint8_t* r8 = reinterpret_cast<uint8_t*>(ring);
  const size_t bytes = count * 4;
  const __m128i shift = _mm_cvtsi32_si128(params.shift);
  const __m256i max_byte = _mm256_set1_epi16(255);
  size_t i = 0;
  // Widening with vpmovzxbw keeps the sum words in plain byte order, the
  // same layout the scalar and SSE2 versions use.
  for (; i + 32 <= bytes; i += 32) {
    __m256i in = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s8 + i));
    __m256i old = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r8 + i));
    __m256i lo = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(sum + i));
    __m256i hi = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(sum + i + 16));
    lo = _mm256_subs_epu16(_mm256_adds_epu16(lo, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(in))),
                           _mm256_cvtepu8_epi16(_mm256_castsi256_si128(old)));
    hi = _mm256_subs_epu16(_mm256_adds_epu16(hi, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(in, 1))),
                           _mm256_cvtepu8_epi16(_mm256_extracti128_si256(old, 1)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sum + i), lo);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sum + i + 16), hi);
    __m256i out_lo = _mm256_min_epu16(_mm256_srl_epi16(lo, shift), max_byte);
    __m256i out_hi = _mm256_min_epu16(_mm256_srl_epi16(hi, shift), max_byte);
    // packus works per 128-bit lane; the permute puts the quarters back in order.
    __m256i out = _mm256_permute4x64_epi64(_mm256_packus_epi16(out_lo, out_hi), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(r8 + i), in);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d8 + i), out);
  }
  StepBytes(s8 + i, d8 + i, r8 + i, sum + i, bytes - i, params.shift);
}

TimeBlurStepFn TimeBlurStep() {
  static const TimeBlurStepFn fn = CpuHasAvx2() ? TimeBlurStepAvx2 : TimeBlurStepSse2;
  return fn;
}

void TimeBlurFillSum(const uint32_t* src, uint16_t* sum, size_t count, int32_t n) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  n = std::clamp(n, 1, kTimeBlurMaxFrames);
  for (size_t i = 0; i < count * 4; ++i) sum[i] = uint16_t(s8[i] * n);
}

}  // namespace nimbo
