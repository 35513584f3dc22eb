#include "distorter_field.h"

#include <immintrin.h>

#include <cmath>

#include "core/cpu.h"
#include "distorter_map.h"

namespace nimbo::distorter {

std::vector<FieldLine> PrepareFieldLines(std::span<const LinePair> lines) {
  std::vector<FieldLine> out;
  out.reserve(lines.size());
  for (const LinePair& pair : lines) {
    FieldLine f;
    f.px = pair.l1.p1.x;
    f.py = pair.l1.p1.y;
    f.qx = pair.l1.p2.x;
    f.qy = pair.l1.p2.y;
    f.dx = f.qx - f.px;
    f.dy = f.qy - f.py;
    f.len = std::sqrt(f.dx * f.dx + f.dy * f.dy);
    if (!(f.len > 0)) continue;
    f.len2 = f.len * f.len;
    f.pqx = f.px - f.qx;
    f.spx = pair.l2.p1.x;
    f.spy = pair.l2.p1.y;
    const double sqx = pair.l2.p2.x, sqy = pair.l2.p2.y;
    f.sdx = sqx - f.spx;
    f.sdy = sqy - f.spy;
    f.spqx = f.spx - sqx;
    f.slen = std::sqrt(f.sdx * f.sdx + f.sdy * f.sdy);
    // A source line of length 0 is a point: its sideways term is dropped
    // instead of becoming 0/0 (slen = 0 marks that).
    if (!(f.slen > 0)) f.slen = 0;
    f.a = double(pair.a);
    out.push_back(f);
  }
  return out;
}

// ---- scalar reference -------------------------------------------------------------

void FieldRowScalar(std::span<const FieldLine> lines, int32_t x0, int32_t y, int32_t count, double* sx, double* sy) {
  const double Y = y;
  for (int32_t i = 0; i < count; ++i) {
    const double X = double(x0 + i);
    double dx_sum = 0, dy_sum = 0, weight_sum = 0;
    for (const FieldLine& f : lines) {
      const double rx = X - f.px, ry = Y - f.py;
      const double u = (rx * f.dx + ry * f.dy) / f.len2;
      const double v = (f.pqx * ry + f.dy * rx) / f.len;
      double xs = f.spx + u * f.sdx;
      double ys = f.spy + u * f.sdy;
      if (f.slen > 0) {
        xs += v * f.sdy / f.slen;
        ys += v * f.spqx / f.slen;
      }
      double dist;
      if (u < 0) {
        dist = std::sqrt(rx * rx + ry * ry);
      } else if (u > 1) {
        const double ex = X - f.qx, ey = Y - f.qy;
        dist = std::sqrt(ex * ex + ey * ey);
      } else {
        dist = std::fabs(v);
      }
      const double da = dist + f.a;
      const double w = f.len / (da * da);
      dx_sum += (xs - X) * w;
      dy_sum += (ys - Y) * w;
      weight_sum += w;
    }
    if (weight_sum > 0) {
      sx[i] = X + dx_sum / weight_sum;
      sy[i] = Y + dy_sum / weight_sum;
    } else {
      sx[i] = X;
      sy[i] = Y;
    }
  }
}

// ---- AVX2: four pixels of a row, the same operations lane by lane ----------------

NIMBO_TARGET_AVX2 void FieldRowAvx2(std::span<const FieldLine> lines, int32_t x0, int32_t y, int32_t count, double* sx,
                                    double* sy) {
  const __m256d Y = _mm256_set1_pd(double(y));
  const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0);
  const __m256d sign = _mm256_set1_pd(-0.0);
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const double xb = double(x0 + i);
    const __m256d X = _mm256_setr_pd(xb, xb + 1, xb + 2, xb + 3);  // small integers: exact
    __m256d dx_sum = zero, dy_sum = zero, weight_sum = zero;
    for (const FieldLine& f : lines) {
      const __m256d rx = _mm256_sub_pd(X, _mm256_set1_pd(f.px));
      const __m256d ry = _mm256_sub_pd(Y, _mm256_set1_pd(f.py));
      const __m256d u =
          _mm256_div_pd(_mm256_add_pd(_mm256_mul_pd(rx, _mm256_set1_pd(f.dx)), _mm256_mul_pd(ry, _mm256_set1_pd(f.dy))),
                        _mm256_set1_pd(f.len2));
      const __m256d v = _mm256_div_pd(
          _mm256_add_pd(_mm256_mul_pd(_mm256_set1_pd(f.pqx), ry), _mm256_mul_pd(_mm256_set1_pd(f.dy), rx)),
          _mm256_set1_pd(f.len));
      __m256d xs = _mm256_add_pd(_mm256_set1_pd(f.spx), _mm256_mul_pd(u, _mm256_set1_pd(f.sdx)));
      __m256d ys = _mm256_add_pd(_mm256_set1_pd(f.spy), _mm256_mul_pd(u, _mm256_set1_pd(f.sdy)));
      if (f.slen > 0) {
        const __m256d slen = _mm256_set1_pd(f.slen);
        xs = _mm256_add_pd(xs, _mm256_div_pd(_mm256_mul_pd(v, _mm256_set1_pd(f.sdy)), slen));
        ys = _mm256_add_pd(ys, _mm256_div_pd(_mm256_mul_pd(v, _mm256_set1_pd(f.spqx)), slen));
      }
      // All three distances, then the one the scalar branch would take.
      // Ordered compares are false for NaN, which then takes |v| as there.
      const __m256d to_p = _mm256_sqrt_pd(_mm256_add_pd(_mm256_mul_pd(rx, rx), _mm256_mul_pd(ry, ry)));
      const __m256d ex = _mm256_sub_pd(X, _mm256_set1_pd(f.qx));
      const __m256d ey = _mm256_sub_pd(Y, _mm256_set1_pd(f.qy));
      const __m256d to_q = _mm256_sqrt_pd(_mm256_add_pd(_mm256_mul_pd(ex, ex), _mm256_mul_pd(ey, ey)));
      __m256d dist = _mm256_andnot_pd(sign, v);
      dist = _mm256_blendv_pd(dist, to_q, _mm256_cmp_pd(u, one, _CMP_GT_OQ));
      dist = _mm256_blendv_pd(dist, to_p, _mm256_cmp_pd(u, zero, _CMP_LT_OQ));
      const __m256d da = _mm256_add_pd(dist, _mm256_set1_pd(f.a));
      const __m256d w = _mm256_div_pd(_mm256_set1_pd(f.len), _mm256_mul_pd(da, da));
      dx_sum = _mm256_add_pd(dx_sum, _mm256_mul_pd(_mm256_sub_pd(xs, X), w));
      dy_sum = _mm256_add_pd(dy_sum, _mm256_mul_pd(_mm256_sub_pd(ys, Y), w));
      weight_sum = _mm256_add_pd(weight_sum, w);
    }
    const __m256d weighted = _mm256_cmp_pd(weight_sum, zero, _CMP_GT_OQ);
    const __m256d mx = _mm256_add_pd(X, _mm256_div_pd(dx_sum, weight_sum));
    const __m256d my = _mm256_add_pd(Y, _mm256_div_pd(dy_sum, weight_sum));
    _mm256_storeu_pd(sx + i, _mm256_blendv_pd(X, mx, weighted));
    _mm256_storeu_pd(sy + i, _mm256_blendv_pd(Y, my, weighted));
  }
  FieldRowScalar(lines, x0 + i, y, count - i, sx + i, sy + i);
}

FieldRowFn FieldRowKernel() {
  static const FieldRowFn fn = CpuHasAvx2() ? FieldRowAvx2 : FieldRowScalar;
  return fn;
}

}  // namespace nimbo::distorter
