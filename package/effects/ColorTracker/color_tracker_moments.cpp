#include "color_tracker_moments.h"

#include <immintrin.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "core/cpu.h"

namespace nimbo {

RowSums RowSumsScalar(const uint8_t* scores, int32_t width) {
  RowSums r;
  int32_t x = 0;
  while (x < width) {
    // Most of a window lies outside the object: step over zero runs eight
    // scores at a time.
    if (x + 8 <= width) {
      uint64_t block;
      std::memcpy(&block, scores + x, 8);
      if (block == 0) {
        x += 8;
        continue;
      }
    }
    int32_t end = x + 8 <= width ? x + 8 : width;
    for (; x < end; ++x) {
      int64_t s = scores[x];
      int64_t s2 = s * s;
      r.s += s;
      r.xs += x * s;
      r.s2 += s2;
      r.xs2 += x * s2;
      r.x2s2 += int64_t(x) * x * s2;
    }
  }
  return r;
}

namespace {

NIMBO_TARGET_AVX2 inline __m256i AddWidened(__m256i acc64, __m256i v32) {
  // v32 holds non-negative 32-bit values; add them into 64-bit lanes.
  const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF);
  acc64 = _mm256_add_epi64(acc64, _mm256_and_si256(v32, low));
  return _mm256_add_epi64(acc64, _mm256_srli_epi64(v32, 32));
}

NIMBO_TARGET_AVX2 inline int64_t Sum64(__m256i v) {
  alignas(32) int64_t lanes[4];
  _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), v);
  return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}

NIMBO_TARGET_AVX2 inline int64_t Sum32(__m256i v) {
  alignas(32) int32_t lanes[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), v);
  int64_t sum = 0;
  for (int32_t lane : lanes) sum += lane;
  return sum;
}

}  // namespace

NIMBO_TARGET_AVX2 RowSums RowSumsAvx2(const uint8_t* scores, int32_t width) {
  if (width > kMaxSimdRowWidth) return RowSumsScalar(scores, width);
  // Lane bounds for width <= 32767: Σs per lane <= 4096 * 255 and Σs² per
  // lane <= 4096 * 65025 fit 32 bits; x·s² < 2^31 fits one lane before it is
  // widened; x·s, x·s² and x²·s² are summed in 64-bit lanes.
  __m256i acc_s = _mm256_setzero_si256(), acc_s2 = _mm256_setzero_si256();
  __m256i acc_xs = _mm256_setzero_si256(), acc_xs2 = _mm256_setzero_si256();
  __m256i acc_x2s2 = _mm256_setzero_si256();
  const __m256i step = _mm256_set1_epi32(8);
  int32_t x = 0;
  for (; x + 32 <= width; x += 32) {
    __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(scores + x));
    if (_mm256_testz_si256(block, block)) continue;
    __m256i xv = _mm256_add_epi32(_mm256_set1_epi32(x), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
    for (int32_t k = 0; k < 32; k += 8, xv = _mm256_add_epi32(xv, step)) {
      __m256i s = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(scores + x + k)));
      __m256i s2 = _mm256_mullo_epi32(s, s);
      __m256i xs2 = _mm256_mullo_epi32(xv, s2);
      acc_s = _mm256_add_epi32(acc_s, s);
      acc_s2 = _mm256_add_epi32(acc_s2, s2);
      acc_xs = AddWidened(acc_xs, _mm256_mullo_epi32(xv, s));
      acc_xs2 = AddWidened(acc_xs2, xs2);
      // x · (x·s²) for even and odd lanes, as 32 x 32 -> 64-bit products.
      acc_x2s2 = _mm256_add_epi64(acc_x2s2, _mm256_mul_epu32(xv, xs2));
      acc_x2s2 = _mm256_add_epi64(acc_x2s2,
                                  _mm256_mul_epu32(_mm256_srli_epi64(xv, 32), _mm256_srli_epi64(xs2, 32)));
    }
  }
  RowSums r;
  r.s = Sum32(acc_s);
  r.s2 = Sum32(acc_s2);
  r.xs = Sum64(acc_xs);
  r.xs2 = Sum64(acc_xs2);
  r.x2s2 = Sum64(acc_x2s2);
  if (x < width) {
    // The tail, with x counted from the row's start.
    RowSums tail = RowSumsScalar(scores + x, width - x);
    r.s += tail.s;
    r.s2 += tail.s2;
    r.xs += tail.xs + x * tail.s;
    r.xs2 += tail.xs2 + x * tail.s2;
    r.x2s2 += tail.x2s2 + 2 * int64_t(x) * tail.xs2 + int64_t(x) * x * tail.s2;
  }
  return r;
}

RowSumsFn RowSumsKernel() {
  static const RowSumsFn chosen = CpuHasAvx2() ? RowSumsAvx2 : RowSumsScalar;
  return chosen;
}

namespace {

Axis AxisFor(int64_t lambda, int64_t mxx, int64_t mxy) {
  int64_t dl = mxx - lambda;
  if (dl == 0 && mxy == 0) return {};
  double vx, vy;
  if (std::llabs(mxy) <= std::llabs(dl)) {
    vx = 1.0;
    vy = -double(mxy) / double(dl);
  } else {
    vx = -double(dl) / double(mxy);
    vy = 1.0;
  }
  double scale = std::sqrt(double(lambda > 0 ? lambda : 0)) / std::sqrt(vx * vx + vy * vy);
  return {int32_t(vx * scale), int32_t(vy * scale)};
}

}  // namespace

Axes ComputeAxes(int64_t mxx, int64_t mxy, int64_t myy) {
  // (mxx+myy)² - 4(mxx·myy - mxy²) = (mxx-myy)² + 4mxy², never negative.
  __int128 diff = __int128(mxx) - myy;
  __int128 disc = diff * diff + 4 * __int128(mxy) * mxy;
  double root = std::sqrt(double(disc));
  double trace = double(mxx) + double(myy);
  Axes a;
  a.lambda1 = int64_t((trace + root) / 2);
  a.lambda2 = int64_t((trace - root) / 2);
  a.axis1 = AxisFor(a.lambda1, mxx, mxy);
  a.axis2 = AxisFor(a.lambda2, mxx, mxy);
  if (a.lambda1 < a.lambda2) {
    std::swap(a.lambda1, a.lambda2);
    std::swap(a.axis1, a.axis2);
  }
  return a;
}

WindowMoments ComputeWindowMoments(const uint8_t* scores, int32_t stride, int32_t w, int32_t h, RowSumsFn row_sums) {
  WindowMoments m;
  if (w <= 0 || h <= 0) return m;
  // Window totals can pass 2^63 on very large screens; 128 bits hold them.
  __int128 mass = 0, sum_xs = 0, sum_ys = 0;
  __int128 q = 0, x1 = 0, y1 = 0, x2 = 0, xy = 0, y2 = 0;
  for (int32_t y = 0; y < h; ++y) {
    RowSums r = row_sums(scores + size_t(y) * size_t(stride), w);
    if (r.s == 0) continue;
    mass += r.s;
    sum_xs += r.xs;
    sum_ys += __int128(y) * r.s;
    q += r.s2;
    x1 += r.xs2;
    x2 += r.x2s2;
    y1 += __int128(y) * r.s2;
    xy += __int128(y) * r.xs2;
    y2 += __int128(y) * y * r.s2;
  }
  if (mass == 0) return m;
  m.mass = int64_t(mass);
  // The row prefix sums add up to Sx = w·M - Σx·s, so w - Sx/M = Σx·s / M.
  m.cx = int32_t(sum_xs / mass);
  m.cy = int32_t(sum_ys / mass);
  m.mean = int32_t(mass / (int64_t(w) * h));
  if (q > 0) {
    __int128 cx = m.cx, cy = m.cy;
    m.mxx = int64_t((x2 - 2 * cx * x1 + cx * cx * q) / q);
    m.mxy = int64_t((xy - cy * x1 - cx * y1 + cx * cy * q) / q);
    m.myy = int64_t((y2 - 2 * cy * y1 + cy * cy * q) / q);
  }
  m.axes = ComputeAxes(m.mxx, m.mxy, m.myy);
  return m;
}

}  // namespace nimbo
