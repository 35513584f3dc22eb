// Scalar reference kernels of texture building, the light vector, and the
// choice of kernel set for this CPU.
#include "render3d/material_kernels.h"

#include <cmath>

#include "core/cpu.h"
#include "material_kernels_internal.h"

namespace nimbo {

LightVec LightVector(float l_x, float l_y) {
  const float len2 = l_x * l_x + l_y * l_y;
  if (len2 <= 1.0f) return {l_x, l_y, std::sqrt(1.0f - len2)};
  const float len = std::sqrt(len2);
  return {l_x / len, l_y / len, 0.0f};
}

LightColor LightColorOf(int32_t color) {
  return {float((color >> 16) & 0xFF) / 255.0f, float((color >> 8) & 0xFF) / 255.0f, float(color & 0xFF) / 255.0f};
}

namespace {

// trunc(v) clamped to 0..255; NaN gives 0.
inline uint32_t ChannelByte(float v) {
  if (!(v > 0.0f)) return 0;
  if (v >= 255.0f) return 255;
  return uint32_t(v);
}

inline uint32_t AddSaturated(uint32_t a, uint32_t b) {
  uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    const uint32_t s = ((a >> shift) & 0xFF) + ((b >> shift) & 0xFF);
    out |= (s > 255 ? 255u : s) << shift;
  }
  return out;
}

}  // namespace

void SphereLightSpanScalar(uint32_t* row, int32_t x0, int32_t x1, int32_t w, int32_t h, int32_t y,
                           const SphereLight& light) {
  const float fw = float(w), fh = float(h);
  const float v = (2.0f * float(y) / fh - 1.0f) * fh / (fh + 2.0f);
  const float vv = v * v;
  const LightVec l = light.dir;
  const LightColor c = LightColorOf(light.color);
  const int32_t squarings = ClampedSquarings(light.squarings);
  for (int32_t x = x0; x < x1; ++x) {
    const float u = (2.0f * float(x) / fw - 1.0f) * fw / (fw + 2.0f);
    const float q = 1.0f - u * u - vv;
    if (!(q > 0.0f)) continue;  // outside the sphere: no light
    const float nz = -std::sqrt(q);
    float i;
    if (light.specular) {
      const float d = l.x * u + l.y * v + l.z * nz;
      i = -(l.z - 2.0f * nz * d);
    } else {
      i = -(u * l.x + v * l.y + nz * l.z);
    }
    if (!(i > 0.0f)) i = 0.0f;
    for (int32_t n = 0; n < squarings; ++n) i = i * i;
    const float s = 255.0f * i;
    const uint32_t add = ChannelByte(s * c.r) << 16 | ChannelByte(s * c.g) << 8 | ChannelByte(s * c.b);
    row[x] = AddSaturated(row[x], add);
  }
}

void SphereLightRowScalar(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light) {
  SphereLightSpanScalar(row, 0, w, w, h, y, light);
}

void ApplyLightMapScalar(const uint32_t* light, uint32_t* tex, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) {
      const int32_t t = int32_t((tex[i] >> shift) & 0xFF), l = int32_t((light[i] >> shift) & 0xFF);
      // L < 128: T - 2(128 - L); else T + 2L - 256: the same expression.
      const int32_t r = t + 2 * l - 256;
      out |= uint32_t(r < 0 ? 0 : (r > 255 ? 255 : r)) << shift;
    }
    tex[i] = out;
  }
}

void BlurRowScalar(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst, size_t count) {
  for (size_t x = 1; x + 1 < count; ++x) {
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
      auto at = [shift](const uint32_t* p, size_t i) { return (p[i] >> shift) & 0xFF; };
      auto line = [&](const uint32_t* p) { return at(p, x - 1) + 2 * at(p, x) + at(p, x + 1); };
      out |= ((line(above) + 2 * line(row) + line(below)) >> 4) << shift;
    }
    dst[x] = out;
  }
}

const MaterialKernels& MaterialKernelsScalar() {
  static const MaterialKernels k{"scalar", SphereLightRowScalar, ApplyLightMapScalar, BlurRowScalar};
  return k;
}

const MaterialKernels& MaterialKernelsBest() {
  static const MaterialKernels& k = CpuHasAvx2() ? MaterialKernelsAvx2() : MaterialKernelsSse2();
  return k;
}

}  // namespace nimbo
