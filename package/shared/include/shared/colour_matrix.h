// The hue/saturation/brightness colour matrix: ColorTrafo's whole effect and
// ChromaKeyPRO's transform of the foreground. Computed once per setting
// change in 8.8 fixed point (shared/fixed_point.h); per pixel
//   out_k = clamp((m[k][R]*R + m[k][G]*G + m[k][B]*B) >> 8, 0, 255)
// with rows and columns in the order R, G, B.
//
// The kernels: ColorMatrixScalar is the reference; the SSE2 and AVX2
// versions (one body over simd lanes, colour_matrix_simd.h) give the same
// bytes; ColorMatrixKernel() answers the best for this CPU, chosen once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace nimbo {

// Hue rotation (radians), saturation and brightness; the neutral transform is
// hue 0, saturation 1, brightness 1.
struct HueSatBright {
  float hue = 0.0f;
  float sat = 1.0f;
  float bright = 1.0f;
};

// The neutral transform truncates to 255 on the R and B diagonal (the float
// sums fall just below 1), not 256.
struct ColorMatrix {
  int16_t m[3][3];
};
ColorMatrix ComputeColorMatrix(const HueSatBright& hsb);

// One pixel through the matrix, alpha byte 0.
inline uint32_t ColorMatrixPixel(const ColorMatrix& m, uint32_t p) {
  const int32_t r = int32_t((p >> 16) & 0xFF), g = int32_t((p >> 8) & 0xFF), b = int32_t(p & 0xFF);
  auto row = [&](const int16_t k[3]) { return uint32_t(std::clamp((k[0] * r + k[1] * g + k[2] * b) >> 8, 0, 255)); };
  return row(m.m[0]) << 16 | row(m.m[1]) << 8 | row(m.m[2]);
}

// Every pixel through the matrix, the alpha byte kept. `src` may equal `dst`.
using ColorMatrixFn = void (*)(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m);
void ColorMatrixScalar(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m);
void ColorMatrixSse2(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m);
// Call only when CpuHasAvx2().
void ColorMatrixAvx2(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m);
ColorMatrixFn ColorMatrixKernel();

}  // namespace nimbo
