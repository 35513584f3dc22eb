#include "color_tracker_match.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "shared/color_math.h"
#include "core/cpu.h"

namespace nimbo {
namespace {

// Cone depth d = X - t of one pixel; negative outside the cone.
inline int32_t ConeDepth(uint32_t pixel, const MatchParams& p) {
  int32_t r = (pixel >> 16) & 0xFF, g = (pixel >> 8) & 0xFF, b = pixel & 0xFF;
  int32_t x = (p.xr * r + p.xg * g + p.xb * b) >> 8;
  int32_t z = std::abs((p.zr * r + p.zg * g + p.zb * b) >> 8);
  int32_t t = (z * p.tan_factor) >> 8;
  return x - t;
}

inline uint8_t ScoreOfDepth(int32_t depth, const MatchParams& p) {
  if (depth < 0) return 0;
  return p.score_by_depth[std::min(depth, 255)];
}

}  // namespace

MatchParams ComputeMatchParams(uint32_t object_rgb, float tolerance_degrees) {
  float tolerance = std::isfinite(tolerance_degrees) ? tolerance_degrees : 30.0f;
  tolerance = std::clamp(tolerance, kMinTolerance, kMaxTolerance);
  KeyParams key = ComputeKeyParams(object_rgb & 0xFFFFFF, tolerance);
  Projection proj = ComputeProjection(key.kx, key.ky);

  MatchParams p;
  p.xr = proj.xr;
  p.xg = proj.xg;
  p.xb = proj.xb;
  p.zr = proj.zr;
  p.zg = proj.zg;
  p.zb = proj.zb;
  p.tan_factor = key.tan_factor;
  // The tracker's divisor uses the magnitude's integer part (the keyer keeps
  // the fraction).
  p.divisor = int32_t(std::max(std::trunc(key.mag), 1.0f) * 256.0f);
  for (int32_t d = 0; d < 256; ++d) {
    int64_t m = std::min<int64_t>((int64_t(d) * 65536) / p.divisor, 255);
    p.score_by_depth[d] = uint8_t((m * m) >> 8);
  }
  return p;
}

uint8_t MatchScoreDirect(uint32_t pixel, const MatchParams& p) {
  int32_t depth = ConeDepth(pixel, p);
  if (depth < 0) return 0;
  int64_t m = std::min<int64_t>((int64_t(depth) * 65536) / p.divisor, 255);
  return uint8_t((m * m) >> 8);
}

void MatchSpanScalar(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count, uint32_t stamp,
                           const MatchParams& p) {
  for (int32_t i = 0; i < count; ++i) {
    if (stamps[i] == stamp) continue;
    scores[i] = ScoreOfDepth(ConeDepth(pixels[i], p), p);
    stamps[i] = stamp;
  }
}

namespace {

// Writes the scores of `n` pixels whose depths are in `depth`, leaving the
// pixels whose stamp bit is set in `stamped` as they are.
inline void StoreScores(const int32_t* depth, int32_t n, uint32_t stamped, uint8_t* scores, const MatchParams& p) {
  for (int32_t k = 0; k < n; ++k) {
    if (!((stamped >> k) & 1)) scores[k] = ScoreOfDepth(depth[k], p);
  }
}

inline void StoreZeros(int32_t n, uint32_t stamped, uint8_t* scores) {
  if (stamped == 0) {
    std::memset(scores, 0, size_t(n));
    return;
  }
  for (int32_t k = 0; k < n; ++k) {
    if (!((stamped >> k) & 1)) scores[k] = 0;
  }
}

// Adds the pairs of 32-bit sums that madd leaves for each pixel:
// [p0a p0b p1a p1b] [p2a p2b p3a p3b] -> [p0 p1 p2 p3].
inline __m128i SumPairs(__m128i lo, __m128i hi) {
  __m128 a = _mm_castsi128_ps(lo), b = _mm_castsi128_ps(hi);
  __m128i even = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
  __m128i odd = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
  return _mm_add_epi32(even, odd);
}

}  // namespace

void MatchSpanSse2(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count, uint32_t stamp,
                         const MatchParams& p) {
  const __m128i zero = _mm_setzero_si128();
  // Pixel bytes lie B, G, R, A in memory; A gets a zero weight.
  const __m128i cx = _mm_setr_epi16(p.xb, p.xg, p.xr, 0, p.xb, p.xg, p.xr, 0);
  const __m128i cz = _mm_setr_epi16(p.zb, p.zg, p.zr, 0, p.zb, p.zg, p.zr, 0);
  const __m128i tf = _mm_set1_epi16(int16_t(p.tan_factor));  // fits: tolerance is at least kMinTolerance
  const __m128i cur = _mm_set1_epi32(int32_t(stamp));
  int32_t i = 0;
  alignas(16) int32_t depth[4];
  for (; i + 4 <= count; i += 4) {
    __m128i st = _mm_loadu_si128(reinterpret_cast<const __m128i*>(stamps + i));
    uint32_t stamped = uint32_t(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(st, cur))));
    if (stamped == 0xF) continue;
    __m128i px = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + i));
    __m128i lo = _mm_unpacklo_epi8(px, zero), hi = _mm_unpackhi_epi8(px, zero);
    __m128i x = _mm_srai_epi32(SumPairs(_mm_madd_epi16(lo, cx), _mm_madd_epi16(hi, cx)), 8);
    __m128i z = _mm_srai_epi32(SumPairs(_mm_madd_epi16(lo, cz), _mm_madd_epi16(hi, cz)), 8);
    __m128i sign = _mm_srai_epi32(z, 31);
    z = _mm_sub_epi32(_mm_xor_si128(z, sign), sign);
    // |Z| < 2^15 and tanFactor < 2^15: a 16 x 16 -> 32-bit product.
    __m128i z16 = _mm_packs_epi32(z, z);
    __m128i prod = _mm_unpacklo_epi16(_mm_mullo_epi16(z16, tf), _mm_mulhi_epi16(z16, tf));
    __m128i d = _mm_sub_epi32(x, _mm_srai_epi32(prod, 8));
    if (_mm_movemask_ps(_mm_castsi128_ps(d)) == 0xF) {
      StoreZeros(4, stamped, scores + i);  // the usual case: all four outside the cone
    } else {
      _mm_store_si128(reinterpret_cast<__m128i*>(depth), d);
      StoreScores(depth, 4, stamped, scores + i, p);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(stamps + i), cur);
  }
  MatchSpanScalar(pixels + i, stamps + i, scores + i, count - i, stamp, p);
}

NIMBO_TARGET_AVX2 void MatchSpanAvx2(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count,
                                           uint32_t stamp, const MatchParams& p) {
  const __m256i cx = _mm256_setr_epi16(p.xb, p.xg, p.xr, 0, p.xb, p.xg, p.xr, 0, p.xb, p.xg, p.xr, 0, p.xb, p.xg,
                                       p.xr, 0);
  const __m256i cz = _mm256_setr_epi16(p.zb, p.zg, p.zr, 0, p.zb, p.zg, p.zr, 0, p.zb, p.zg, p.zr, 0, p.zb, p.zg,
                                       p.zr, 0);
  const __m256i tf = _mm256_set1_epi32(p.tan_factor);
  const __m256i cur = _mm256_set1_epi32(int32_t(stamp));
  alignas(32) int32_t depth[8];
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    __m256i st = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(stamps + i));
    uint32_t stamped = uint32_t(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(st, cur))));
    if (stamped == 0xFF) continue;
    __m256i p0 = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + i)));
    __m256i p1 = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + i + 4)));
    // hadd works within 128-bit lanes and leaves pixels as 0 1 4 5 | 2 3 6 7;
    // the permute puts them back in order.
    __m256i x = _mm256_hadd_epi32(_mm256_madd_epi16(p0, cx), _mm256_madd_epi16(p1, cx));
    __m256i z = _mm256_hadd_epi32(_mm256_madd_epi16(p0, cz), _mm256_madd_epi16(p1, cz));
    x = _mm256_srai_epi32(_mm256_permute4x64_epi64(x, _MM_SHUFFLE(3, 1, 2, 0)), 8);
    z = _mm256_abs_epi32(_mm256_srai_epi32(_mm256_permute4x64_epi64(z, _MM_SHUFFLE(3, 1, 2, 0)), 8));
    __m256i d = _mm256_sub_epi32(x, _mm256_srai_epi32(_mm256_mullo_epi32(z, tf), 8));
    if (_mm256_movemask_ps(_mm256_castsi256_ps(d)) == 0xFF) {
      StoreZeros(8, stamped, scores + i);
    } else {
      _mm256_store_si256(reinterpret_cast<__m256i*>(depth), d);
      StoreScores(depth, 8, stamped, scores + i, p);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(stamps + i), cur);
  }
  MatchSpanScalar(pixels + i, stamps + i, scores + i, count - i, stamp, p);
}

MatchSpanFn MatchSpanKernel() {
  static const MatchSpanFn chosen = CpuHasAvx2() ? MatchSpanAvx2 : MatchSpanSse2;
  return chosen;
}

}  // namespace nimbo
