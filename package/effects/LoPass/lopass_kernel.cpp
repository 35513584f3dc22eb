#include "lopass_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/cpu.h"

namespace nimbo {

LoPassParams MakeLoPassParams(float frequency, float q) {
  // NaN falls to the lower bound.
  if (!(frequency >= kLoPassMinFrequency)) frequency = kLoPassMinFrequency;
  if (!(q >= kLoPassMinResonance)) q = kLoPassMinResonance;
  frequency = std::min(frequency, kLoPassMaxFrequency);
  q = std::min(q, kLoPassMaxResonance);
  const double g = std::tan(std::numbers::pi * frequency);
  const double k = 1.0 / q;
  const double a1 = 1.0 / (1.0 + g * (g + k));
  return {float(a1), float(g * a1), float(g * g * a1)};
}

void LoPassSeed(const uint32_t* src, float* state, size_t count) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  for (size_t i = 0; i < count; ++i) {
    for (size_t k = 0; k < 4; ++k) {
      state[i * 8 + k] = 0.0f;
      state[i * 8 + 4 + k] = float(s8[i * 4 + k]);
    }
  }
}

void LoPassScalar(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& p) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  for (size_t i = 0; i < count; ++i) {
    float* s1 = state + i * 8;
    float* s2 = s1 + 4;
    for (size_t k = 0; k < 4; ++k) {
      const float x = float(s8[i * 4 + k]);
      const float v3 = x - s2[k];
      const float v1 = p.a1 * s1[k] + p.a2 * v3;
      const float v2 = (s2[k] + p.a2 * s1[k]) + p.a3 * v3;
      s1[k] = 2.0f * v1 - s1[k];
      s2[k] = 2.0f * v2 - s2[k];
      d8[i * 4 + k] = uint8_t(std::lrint(std::min(255.0f, std::max(0.0f, v2))));
    }
  }
}

void LoPassSse2(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& p) {
  const __m128i zero = _mm_setzero_si128();
  const __m128 a1 = _mm_set1_ps(p.a1), a2 = _mm_set1_ps(p.a2), a3 = _mm_set1_ps(p.a3);
  const __m128 two = _mm_set1_ps(2.0f), lo = _mm_setzero_ps(), hi = _mm_set1_ps(255.0f);
  size_t i = 0;
  for (; i + 2 <= count; i += 2) {
    __m128i in16 = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i)), zero);
    __m128i out32[2];
    for (int32_t half = 0; half < 2; ++half) {
      float* st = state + (i + size_t(half)) * 8;
      __m128i x32 = half == 0 ? _mm_unpacklo_epi16(in16, zero) : _mm_unpackhi_epi16(in16, zero);
      __m128 x = _mm_cvtepi32_ps(x32);
      __m128 s1 = _mm_loadu_ps(st);
      __m128 s2 = _mm_loadu_ps(st + 4);
      __m128 v3 = _mm_sub_ps(x, s2);
      __m128 v1 = _mm_add_ps(_mm_mul_ps(a1, s1), _mm_mul_ps(a2, v3));
      __m128 v2 = _mm_add_ps(_mm_add_ps(s2, _mm_mul_ps(a2, s1)), _mm_mul_ps(a3, v3));
      _mm_storeu_ps(st, _mm_sub_ps(_mm_mul_ps(two, v1), s1));
      _mm_storeu_ps(st + 4, _mm_sub_ps(_mm_mul_ps(two, v2), s2));
      out32[half] = _mm_cvtps_epi32(_mm_min_ps(hi, _mm_max_ps(lo, v2)));
    }
    __m128i out16 = _mm_packs_epi32(out32[0], out32[1]);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(out16, out16));
  }
  LoPassScalar(src + i, dst + i, state + i * 8, count - i, p);
}

NIMBO_TARGET_AVX2 void LoPassAvx2(const uint32_t* src, uint32_t* dst, float* state, size_t count,
                                  const LoPassParams& p) {
  // One 256-bit register holds s1 (low half) and s2 (high half) of one pixel
  // as the state lies in memory; two pixels go through per step.
  const __m256 a1 = _mm256_set1_ps(p.a1), a2 = _mm256_set1_ps(p.a2), a3 = _mm256_set1_ps(p.a3);
  const __m256 two = _mm256_set1_ps(2.0f), lo = _mm256_setzero_ps(), hi = _mm256_set1_ps(255.0f);
  size_t i = 0;
  for (; i + 2 <= count; i += 2) {
    // x of pixel i in the low lane, of pixel i + 1 in the high lane.
    __m256 x = _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i))));
    __m256 st0 = _mm256_loadu_ps(state + i * 8);
    __m256 st1 = _mm256_loadu_ps(state + i * 8 + 8);
    __m256 s1 = _mm256_permute2f128_ps(st0, st1, 0x20);
    __m256 s2 = _mm256_permute2f128_ps(st0, st1, 0x31);
    __m256 v3 = _mm256_sub_ps(x, s2);
    __m256 v1 = _mm256_add_ps(_mm256_mul_ps(a1, s1), _mm256_mul_ps(a2, v3));
    __m256 v2 = _mm256_add_ps(_mm256_add_ps(s2, _mm256_mul_ps(a2, s1)), _mm256_mul_ps(a3, v3));
    __m256 n1 = _mm256_sub_ps(_mm256_mul_ps(two, v1), s1);
    __m256 n2 = _mm256_sub_ps(_mm256_mul_ps(two, v2), s2);
    _mm256_storeu_ps(state + i * 8, _mm256_permute2f128_ps(n1, n2, 0x20));
    _mm256_storeu_ps(state + i * 8 + 8, _mm256_permute2f128_ps(n1, n2, 0x31));
    __m256i q = _mm256_cvtps_epi32(_mm256_min_ps(hi, _mm256_max_ps(lo, v2)));
    __m128i q16 = _mm_packs_epi32(_mm256_castsi256_si128(q), _mm256_extracti128_si256(q, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(q16, q16));
  }
  LoPassScalar(src + i, dst + i, state + i * 8, count - i, p);
}

LoPassFn LoPassKernel() {
  static const LoPassFn fn = CpuHasAvx2() ? LoPassAvx2 : LoPassSse2;
  return fn;
}

}  // namespace nimbo
