// Colour maths shared by the keying and tracking filters: BT.601 YCbCr, the
// chroma-cone key parameters and the fixed-point projection onto the key's
// direction. All float-to-integer conversions truncate toward zero.
//
// The cone test: a pixel's chroma (Cb, Cr) is rotated into a frame whose X
// axis points along the key colour's chroma; X is the distance along the key
// direction, Z the distance across it. The pixel lies inside the cone of
// half-angle `angle` when X > |Z| * tan-factor, i.e. X - (|Z| * tanFactor >> 8) > 0.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace nimbo {

// The cone's degrees become radians with this value, deliberately not pi's
// nearest double or float: the keyers' cone tangent is defined with it, and
// the key and the tracker must agree to the last bit.
inline constexpr double kConeDegreesPi = 3.1415925;

struct YCbCr {
  float y, cb, cr;
};

inline YCbCr ToYCbCr601(int32_t r, int32_t g, int32_t b) {
  return {0.257f * r + 0.504f * g + 0.098f * b, -0.148f * r - 0.291f * g + 0.439f * b,
          0.439f * r - 0.368f * g - 0.071f * b};
}

// Key parameters of a key colour 0xRRGGBB and a cone half-angle in degrees.
struct KeyParams {
  float y = 0, cb = 0, cr = 0;
  float mag = 0;   // chroma magnitude, sqrt of the integer part of Cb^2 + Cr^2
  int32_t kx = 0;  // key direction scaled by 255
  int32_t ky = 0;
  int32_t tan_factor = 0;  // 256 / tan(angle)
  int32_t inv_mag = 0;     // 65536 / mag, 0 for a grey key
  int32_t y_scale = 0;
  int32_t k_mag = 0;  // min(mag, 127)
};

inline KeyParams ComputeKeyParams(uint32_t rgb, float angle_degrees) {
  KeyParams k;
  int32_t r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
  YCbCr c = ToYCbCr601(r, g, b);
  k.y = c.y;
  k.cb = c.cb;
  k.cr = c.cr;
  k.mag = std::sqrt(float(int64_t(c.cr * c.cr + c.cb * c.cb)));
  // A grey key has no direction: 0/0 would be NaN, and NaN converts to an
  // undefined integer, so the direction is 0 there.
  k.kx = k.mag > 0 ? int32_t(c.cb / k.mag * 255.0f) : 0;
  k.ky = k.mag > 0 ? int32_t(c.cr / k.mag * 255.0f) : 0;
  double tan_value = std::tan(angle_degrees * kConeDegreesPi / 180.0);
  double tan_factor = 256.0 / tan_value;
  // A cone of 0 degrees has an infinite factor: it saturates like any factor
  // too large for 32 bits, so the cone narrows to the key's own direction
  // (it must not turn into the widest cone, which a factor of 0 would be).
  k.tan_factor = std::isnan(tan_factor) ? 0 : int32_t(std::clamp(tan_factor, -2147483647.0, 2147483647.0));
  k.inv_mag = k.mag <= 0.0001f ? 0 : int32_t(65536.0f / k.mag);
  k.y_scale = k.mag > 0 ? int32_t(std::min(k.y * 16.0f / k.mag, 255.0f)) : 255;
  k.k_mag = int32_t(std::min(k.mag, 127.0f));
  return k;
}

// 16-bit signed projection rows in the frame rotated onto the key direction
// (8 fractional bits), plus the constant luma row.
struct Projection {
  int16_t xr, xg, xb;  // along the key direction
  int16_t zr, zg, zb;  // across it
  static constexpr int16_t kLumaR = 65, kLumaG = 129, kLumaB = 25;
};

inline Projection ComputeProjection(int32_t kx, int32_t ky) {
  auto t = [](double v) { return int16_t(int32_t(v)); };
  return {t(-0.148 * kx + 0.439 * ky), t(-0.291 * kx - 0.368 * ky), t(0.439 * kx - 0.071 * ky),
          t(0.439 * kx + 0.148 * ky),  t(-0.368 * kx + 0.291 * ky), t(-0.071 * kx - 0.439 * ky)};
}

}  // namespace nimbo
