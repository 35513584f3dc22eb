// The colour matrix from its settings, the scalar reference, the SSE2
// version (SSE2 is the baseline of every x86-64 CPU) and the choice per CPU.
#include "shared/colour_matrix.h"

#include <cmath>

#include "core/cpu.h"
#include "shared/colour_matrix_simd.h"
#include "shared/fixed_point.h"
#include "shared/simd_lanes.h"

namespace nimbo {

ColorMatrix ComputeColorMatrix(const HueSatBright& hsb) {
  const double s = hsb.sat, b = hsb.bright;
  const double sc = s * std::cos(double(hsb.hue)), ss = s * std::sin(double(hsb.hue));
  auto q = [](double v) { return TruncToInt16(256.0 * v); };
  ColorMatrix m;
  m.m[0][0] = q(0.7008149 * sc - 0.235391 * ss + 0.299185 * b);
  m.m[0][1] = q(-0.5867288 * sc - 0.4650321 * ss + 0.5867288 * b);
  m.m[0][2] = q(-0.1140861 * sc + 0.7004231 * ss + 0.1140861 * b);
  m.m[1][0] = q(-0.299185 * sc + 0.2922387 * ss + 0.299185 * b);
  m.m[1][1] = q(0.4132712 * sc + 0.0926723 * ss + 0.5867288 * b);
  m.m[1][2] = q(-0.1140861 * sc - 0.3849111 * ss + 0.1140861 * b);
  m.m[2][0] = q(-0.299185 * sc - 0.885641 * ss + 0.299185 * b);
  m.m[2][1] = q(-0.5867288 * sc + 0.7429223 * ss + 0.5867288 * b);
  m.m[2][2] = q(0.8859138 * sc + 0.1427187 * ss + 0.1140861 * b);
  return m;
}

void ColorMatrixScalar(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  for (size_t i = 0; i < count; ++i) dst[i] = (src[i] & 0xFF000000u) | ColorMatrixPixel(m, src[i]);
}

void ColorMatrixSse2(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  ColorMatrixBody<simd::Lanes128>(src, dst, count, m);
}

ColorMatrixFn ColorMatrixKernel() {
  static const ColorMatrixFn fn = CpuHasAvx2() ? ColorMatrixAvx2 : ColorMatrixSse2;
  return fn;
}

}  // namespace nimbo
