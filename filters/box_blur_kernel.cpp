#include "filters/box_blur_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>

#include "package/cpu.h"

namespace nimbo {

BoxBlurParams MakeBoxBlurParams(int32_t radius) {
  radius = std::clamp(radius, 0, kBoxBlurMaxRadius);
  const int32_t d = 2 * radius + 1;
  BoxBlurParams params{radius, 1.0f / float(d), 0, 0};
  if (radius >= 1 && radius <= kBoxBlurWordMaxRadius) {
    // The largest shift that keeps the rounded-up reciprocal within 16 bits.
    int32_t k = 0;
    while ((2 << k) < d) ++k;
    params.word_multiplier = uint16_t(((uint32_t(1) << (16 + k)) + uint32_t(d) - 1) / uint32_t(d));
    params.word_shift = k;
  }
  return params;
}

void BoxBlurPadRow(const uint32_t* row, uint32_t* padded, size_t count, int32_t radius) {
  if (count == 0) return;
  std::fill(padded, padded + radius, row[0]);
  std::copy(row, row + count, padded + radius);
  std::fill(padded + radius + count, padded + 2 * radius + 1 + count, row[count - 1]);
}

namespace {

// The running sum from pixel `from` on, in plain integers; `sum` holds the
// window sums for pixel `from`.
void BlurTail(const uint32_t* padded, uint32_t* dst, size_t from, size_t count, int32_t r, int32_t sum[4]) {
  const int32_t d = 2 * r + 1;
  const uint8_t* p = reinterpret_cast<const uint8_t*>(padded);
  uint8_t* out = reinterpret_cast<uint8_t*>(dst);
  for (size_t x = from; x < count; ++x) {
    for (int32_t k = 0; k < 4; ++k) {
      out[x * 4 + k] = uint8_t((sum[k] + r) / d);
      sum[k] += p[(x + d) * 4 + k] - p[x * 4 + k];
    }
  }
}

void WindowSum(const uint32_t* padded, int32_t r, int32_t sum[4]) {
  const uint8_t* p = reinterpret_cast<const uint8_t*>(padded);
  for (int32_t k = 0; k < 4; ++k) sum[k] = 0;
  for (int32_t j = 0; j < 2 * r + 1; ++j) {
    for (int32_t k = 0; k < 4; ++k) sum[k] += p[j * 4 + k];
  }
}

// Sign-extends the low (high) pixel of eight 16-bit differences to 32 bits.
inline __m128i LowPixel(__m128i d) { return _mm_srai_epi32(_mm_unpacklo_epi16(d, d), 16); }
inline __m128i HighPixel(__m128i d) { return _mm_srai_epi32(_mm_unpackhi_epi16(d, d), 16); }

}  // namespace

void BoxBlurRowScalar(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params) {
  int32_t sum[4];
  WindowSum(padded, params.radius, sum);
  BlurTail(padded, dst, 0, count, params.radius, sum);
}

// The SIMD versions divide in float: the window sum (below 2^24) times a
// rounded 1/d is within 255 * 2^-23 of sum / d, while sum / d, d odd, lies at
// least 1 / (2d) from any half; so rounding to nearest gives (sum + r) / d.
//
// Four pixels a step: the differences entering and leaving the window are
// formed for all four at once, then added in turn to the running sum (the
// one serial chain), and the four quotients are packed into one store.

namespace {

void FloatRowSse2(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params) {
  const int32_t d = 2 * params.radius + 1;
  const __m128i zero = _mm_setzero_si128();
  const __m128 inv = _mm_set1_ps(params.inv_divisor);
  int32_t start[4];
  WindowSum(padded, params.radius, start);
  __m128i s0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(start));
  auto quotient = [&](__m128i s) { return _mm_cvtps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(s), inv)); };
  size_t x = 0;
  for (; x + 4 <= count; x += 4) {
    __m128i enter = _mm_loadu_si128(reinterpret_cast<const __m128i*>(padded + x + d));
    __m128i leave = _mm_loadu_si128(reinterpret_cast<const __m128i*>(padded + x));
    __m128i d01 = _mm_sub_epi16(_mm_unpacklo_epi8(enter, zero), _mm_unpacklo_epi8(leave, zero));
    __m128i d23 = _mm_sub_epi16(_mm_unpackhi_epi8(enter, zero), _mm_unpackhi_epi8(leave, zero));
    __m128i s1 = _mm_add_epi32(s0, LowPixel(d01));
    __m128i s2 = _mm_add_epi32(s1, HighPixel(d01));
    __m128i s3 = _mm_add_epi32(s2, LowPixel(d23));
    __m128i q01 = _mm_packs_epi32(quotient(s0), quotient(s1));
    __m128i q23 = _mm_packs_epi32(quotient(s2), quotient(s3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(q01, q23));
    s0 = _mm_add_epi32(s3, HighPixel(d23));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(start), s0);
  BlurTail(padded, dst, x, count, params.radius, start);
}

// The running sum in 16-bit words (exact modulo 2^16, and the true value
// fits): a register holds two pixels, the lower one's sum duplicated in both
// halves (`s`). Four pixels a step: the entering-minus-leaving differences of
// pixels 0 and 1 (2 and 3) shifted up by one pixel give the sums for both
// pixels from `s` in one add; their pairwise total, broadcast, moves `s` on.
// `s` starts at the window sum plus r, so the quotient is a multiply-high and
// a shift.
void WordRowSse2(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params) {
  const int32_t d = 2 * params.radius + 1;
  const __m128i zero = _mm_setzero_si128();
  const __m128i mul = _mm_set1_epi16(int16_t(params.word_multiplier));
  const __m128i shift = _mm_cvtsi32_si128(params.word_shift);
  int32_t start[4];
  WindowSum(padded, params.radius, start);
  __m128i s = _mm_set1_epi64x(int64_t(uint64_t(uint16_t(start[0] + params.radius)) |
                                      uint64_t(uint16_t(start[1] + params.radius)) << 16 |
                                      uint64_t(uint16_t(start[2] + params.radius)) << 32 |
                                      uint64_t(uint16_t(start[3] + params.radius)) << 48));
  size_t x = 0;
  for (; x + 4 <= count; x += 4) {
    __m128i enter = _mm_loadu_si128(reinterpret_cast<const __m128i*>(padded + x + d));
    __m128i leave = _mm_loadu_si128(reinterpret_cast<const __m128i*>(padded + x));
    __m128i d01 = _mm_sub_epi16(_mm_unpacklo_epi8(enter, zero), _mm_unpacklo_epi8(leave, zero));
    __m128i d23 = _mm_sub_epi16(_mm_unpackhi_epi8(enter, zero), _mm_unpackhi_epi8(leave, zero));
    __m128i up01 = _mm_slli_si128(d01, 8);
    __m128i s01 = _mm_add_epi16(s, up01);
    __m128i t01 = _mm_add_epi16(d01, up01);
    s = _mm_add_epi16(s, _mm_unpackhi_epi64(t01, t01));
    __m128i up23 = _mm_slli_si128(d23, 8);
    __m128i s23 = _mm_add_epi16(s, up23);
    __m128i t23 = _mm_add_epi16(d23, up23);
    s = _mm_add_epi16(s, _mm_unpackhi_epi64(t23, t23));
    __m128i q01 = _mm_srl_epi16(_mm_mulhi_epu16(s01, mul), shift);
    __m128i q23 = _mm_srl_epi16(_mm_mulhi_epu16(s23, mul), shift);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(q01, q23));
  }
  alignas(16) uint16_t words[8];
  _mm_store_si128(reinterpret_cast<__m128i*>(words), s);
  for (int32_t k = 0; k < 4; ++k) start[k] = int32_t(words[k]) - params.radius;
  BlurTail(padded, dst, x, count, params.radius, start);
}

}  // namespace

void BoxBlurRowSse2(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params) {
  if (params.word_multiplier != 0) {
    WordRowSse2(padded, dst, count, params);
  } else {
    FloatRowSse2(padded, dst, count, params);
  }
}

void BoxBlurRowPairSse2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0, uint32_t* dst1,
                        size_t count, const BoxBlurParams& params) {
  BoxBlurRowSse2(padded0, dst0, count, params);
  BoxBlurRowSse2(padded1, dst1, count, params);
}

namespace {

NIMBO_TARGET_AVX2 inline __m256i LowPixel256(__m256i d) {
  return _mm256_srai_epi32(_mm256_unpacklo_epi16(d, d), 16);
}
NIMBO_TARGET_AVX2 inline __m256i HighPixel256(__m256i d) {
  return _mm256_srai_epi32(_mm256_unpackhi_epi16(d, d), 16);
}
NIMBO_TARGET_AVX2 inline __m256i Quotient256(__m256i s, __m256 inv) {
  return _mm256_cvtps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(s), inv));
}
NIMBO_TARGET_AVX2 inline __m256i LoadPair(const uint32_t* a, const uint32_t* b) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)), 1);
}

// The SSE2 scheme with one row in each 128-bit half: every instruction works
// within its half, so two rows cost what one did.
NIMBO_TARGET_AVX2 void FloatRowPairAvx2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0,
                                        uint32_t* dst1, size_t count, const BoxBlurParams& params) {
  const int32_t d = 2 * params.radius + 1;
  const __m256i zero = _mm256_setzero_si256();
  const __m256 inv = _mm256_set1_ps(params.inv_divisor);
  int32_t start[8];
  WindowSum(padded0, params.radius, start);
  WindowSum(padded1, params.radius, start + 4);
  __m256i s0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(start));
  size_t x = 0;
  for (; x + 4 <= count; x += 4) {
    __m256i enter = LoadPair(padded0 + x + d, padded1 + x + d);
    __m256i leave = LoadPair(padded0 + x, padded1 + x);
    __m256i d01 = _mm256_sub_epi16(_mm256_unpacklo_epi8(enter, zero), _mm256_unpacklo_epi8(leave, zero));
    __m256i d23 = _mm256_sub_epi16(_mm256_unpackhi_epi8(enter, zero), _mm256_unpackhi_epi8(leave, zero));
    __m256i s1 = _mm256_add_epi32(s0, LowPixel256(d01));
    __m256i s2 = _mm256_add_epi32(s1, HighPixel256(d01));
    __m256i s3 = _mm256_add_epi32(s2, LowPixel256(d23));
    __m256i q01 = _mm256_packs_epi32(Quotient256(s0, inv), Quotient256(s1, inv));
    __m256i q23 = _mm256_packs_epi32(Quotient256(s2, inv), Quotient256(s3, inv));
    __m256i q = _mm256_packus_epi16(q01, q23);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst0 + x), _mm256_castsi256_si128(q));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst1 + x), _mm256_extracti128_si256(q, 1));
    s0 = _mm256_add_epi32(s3, HighPixel256(d23));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(start), s0);
  BlurTail(padded0, dst0, x, count, params.radius, start);
  BlurTail(padded1, dst1, x, count, params.radius, start + 4);
}

// The 16-bit word scheme of WordRowSse2 with one row in each 128-bit half.
NIMBO_TARGET_AVX2 void WordRowPairAvx2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0,
                                       uint32_t* dst1, size_t count, const BoxBlurParams& params) {
  const int32_t d = 2 * params.radius + 1;
  const __m256i zero = _mm256_setzero_si256();
  const __m256i mul = _mm256_set1_epi16(int16_t(params.word_multiplier));
  const __m128i shift = _mm_cvtsi32_si128(params.word_shift);
  int32_t start[8];
  WindowSum(padded0, params.radius, start);
  WindowSum(padded1, params.radius, start + 4);
  alignas(32) uint16_t words[16];
  for (int32_t k = 0; k < 4; ++k) {
    words[k] = words[4 + k] = uint16_t(start[k] + params.radius);
    words[8 + k] = words[12 + k] = uint16_t(start[4 + k] + params.radius);
  }
  __m256i s = _mm256_load_si256(reinterpret_cast<const __m256i*>(words));
  size_t x = 0;
  for (; x + 4 <= count; x += 4) {
    __m256i enter = LoadPair(padded0 + x + d, padded1 + x + d);
    __m256i leave = LoadPair(padded0 + x, padded1 + x);
    __m256i d01 = _mm256_sub_epi16(_mm256_unpacklo_epi8(enter, zero), _mm256_unpacklo_epi8(leave, zero));
    __m256i d23 = _mm256_sub_epi16(_mm256_unpackhi_epi8(enter, zero), _mm256_unpackhi_epi8(leave, zero));
    __m256i up01 = _mm256_slli_si256(d01, 8);
    __m256i s01 = _mm256_add_epi16(s, up01);
    __m256i t01 = _mm256_add_epi16(d01, up01);
    s = _mm256_add_epi16(s, _mm256_unpackhi_epi64(t01, t01));
    __m256i up23 = _mm256_slli_si256(d23, 8);
    __m256i s23 = _mm256_add_epi16(s, up23);
    __m256i t23 = _mm256_add_epi16(d23, up23);
    s = _mm256_add_epi16(s, _mm256_unpackhi_epi64(t23, t23));
    __m256i q01 = _mm256_srl_epi16(_mm256_mulhi_epu16(s01, mul), shift);
    __m256i q23 = _mm256_srl_epi16(_mm256_mulhi_epu16(s23, mul), shift);
    __m256i q = _mm256_packus_epi16(q01, q23);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst0 + x), _mm256_castsi256_si128(q));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst1 + x), _mm256_extracti128_si256(q, 1));
  }
  _mm256_store_si256(reinterpret_cast<__m256i*>(words), s);
  for (int32_t k = 0; k < 4; ++k) {
    start[k] = int32_t(words[k]) - params.radius;
    start[4 + k] = int32_t(words[8 + k]) - params.radius;
  }
  BlurTail(padded0, dst0, x, count, params.radius, start);
  BlurTail(padded1, dst1, x, count, params.radius, start + 4);
}

}  // namespace

NIMBO_TARGET_AVX2 void BoxBlurRowPairAvx2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0,
                                          uint32_t* dst1, size_t count, const BoxBlurParams& params) {
  if (params.word_multiplier != 0) {
    WordRowPairAvx2(padded0, padded1, dst0, dst1, count, params);
  } else {
    FloatRowPairAvx2(padded0, padded1, dst0, dst1, count, params);
  }
}

BoxBlurRowPairFn BoxBlurRowPair() {
  static const BoxBlurRowPairFn fn = CpuHasAvx2() ? BoxBlurRowPairAvx2 : BoxBlurRowPairSse2;
  return fn;
}

}  // namespace nimbo
