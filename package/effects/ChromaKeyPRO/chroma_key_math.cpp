#include "chroma_key_math.h"

#include <cmath>

namespace nimbo {

Reconstruction ComputeReconstruction(int32_t kx, int32_t ky, const HueSatBright& hsb) {
  const double s = hsb.sat;
  const double cs = std::cos(double(hsb.hue)), sn = std::sin(double(hsb.hue));
  const double x = kx, y = ky;
  // The chroma weights of the YCbCr-to-RGB inverse (1.596, -0.813, -0.392,
  // 2.017), turned back from the key's frame and through the hue rotation.
  const double g_t = -0.813 * y - 0.392 * x;
  const double g_z = 0.392 * y - 0.813 * x;
  Reconstruction r;
  r.l = TruncToInt16(297.984 * hsb.bright);
  r.t[0] = TruncToInt16(2.0 * (1.596 * y * s * cs + 1.596 * x * s * sn));
  r.z[0] = TruncToInt16(2.0 * (-1.596 * y * s * sn + 1.596 * x * s * cs));
  r.t[1] = TruncToInt16(2.0 * (g_t * s * cs + g_z * s * sn));
  r.z[1] = TruncToInt16(2.0 * (-g_t * s * sn + g_z * s * cs));
  r.t[2] = TruncToInt16(2.0 * (2.017 * x * s * cs - 2.017 * y * s * sn));
  r.z[2] = TruncToInt16(2.0 * (-2.017 * x * s * sn - 2.017 * y * s * cs));
  return r;
}

float AlphaCurve(std::span<const AlphaPoint> map, float v) {
  if (map.empty()) return v;
  if (v < map[0].x) return map[0].y;
  for (size_t i = 1; i < map.size(); ++i) {
    if (map[i].x >= v) {
      const AlphaPoint& p = map[i - 1];
      const AlphaPoint& q = map[i];
      float dx = q.x - p.x;
      // Two points at the same x: a step, take the right-hand value.
      if (!(dx > 0.0f)) return q.y;
      return p.y + (v - p.x) * (q.y - p.y) / dx;
    }
  }
  return map.back().y;
}

AlphaLut BuildAlphaLut(std::span<const AlphaPoint> map) {
  AlphaLut lut;
  for (int32_t k = 0; k < 256; ++k) {
    int32_t value = TruncToInt32(double(AlphaCurve(map, float(k) / 255.0f) * 255.0f));
    lut[size_t(k)] = uint8_t(std::clamp(value, 0, 255));
  }
  return lut;
}

ChromaKeyParams MakeChromaKeyParams(const ChromaKeyInputs& in, const AlphaLut& lut) {
  const KeyParams key = ComputeKeyParams(in.key_rgb & 0xFFFFFF, in.angle);
  const Projection proj = ComputeProjection(key.kx, key.ky);
  const HueSatBright hsb = in.colortrafo_used ? in.colortrafo : HueSatBright{};
  ChromaKeyParams p;
  p.cx[0] = proj.xr;
  p.cx[1] = proj.xg;
  p.cx[2] = proj.xb;
  p.cz[0] = proj.zr;
  p.cz[1] = proj.zg;
  p.cz[2] = proj.zb;
  p.tan_factor = key.tan_factor;
  p.inv_mag = key.inv_mag;
  p.k_mag = key.k_mag;
  p.noise_sq = TruncToInt32(double(in.noise_level) * double(in.noise_level));
  p.rec = ComputeReconstruction(key.kx, key.ky, hsb);
  p.matrix = ComputeColorMatrix(hsb);
  p.colortrafo = in.colortrafo_used;
  p.null_rgb = in.null_rgb & 0xFFFFFF;
  SetAlphaLut(p, lut);
  return p;
}

void SetAlphaLut(ChromaKeyParams& params, const AlphaLut& lut) {
  params.lut_identity = true;
  for (int32_t k = 0; k < 256; ++k) {
    params.lut[k] = lut[size_t(k)];
    params.lut_identity = params.lut_identity && params.lut[k] == k;
  }
  for (int32_t n = 0; n < 16; ++n) {
    for (int32_t lo = 0; lo < 16; ++lo) {
      const uint8_t before = n % 8 == 0 ? 0 : lut[size_t(16 * (n - 1) + lo)];
      params.lut_rows[n][lo] = uint8_t(lut[size_t(16 * n + lo)] ^ before);
    }
  }
  params.cone_rows_usable = params.inv_mag >= 515 && params.inv_mag <= 0x7FFF;
  auto cone = [&](int32_t x) { return lut[std::min<size_t>(255, size_t(params.inv_mag) * size_t(x) >> 8)]; };
  for (int32_t n = 0; n < 8; ++n) {
    for (int32_t lo = 0; lo < 16; ++lo) {
      const uint8_t before = n == 0 ? 0 : cone(16 * (n - 1) + lo);
      params.cone_rows[n][lo] = params.cone_rows_usable ? uint8_t(cone(16 * n + lo) ^ before) : 0;
    }
  }
}

}  // namespace nimbo
