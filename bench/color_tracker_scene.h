// Generated footage for ColorTracker's benchmarks: a flat-coloured disc with
// an anti-aliased edge over a textured, low-chroma background, with sensor
// noise on every frame. Pixel (i, j) is sampled at the point (i, j), so the
// disc's centre is in the same coordinates as the tracker's output.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace nimbo::bench {

inline uint32_t Hash(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352dU;
  x ^= x >> 15;
  x *= 0x846ca68bU;
  x ^= x >> 16;
  return x;
}

// Smooth value noise in 0..1 with cells of `cell` pixels.
inline double ValueNoise(int32_t x, int32_t y, int32_t cell, uint32_t seed) {
  int32_t gx = x / cell, gy = y / cell;
  double fx = double(x % cell) / cell, fy = double(y % cell) / cell;
  auto at = [&](int32_t i, int32_t j) { return (Hash(uint32_t(i) * 73856093u ^ uint32_t(j) * 19349663u ^ seed) & 0xFFFF) / 65535.0; };
  fx = fx * fx * (3 - 2 * fx);
  fy = fy * fy * (3 - 2 * fy);
  double top = at(gx, gy) * (1 - fx) + at(gx + 1, gy) * fx;
  double bottom = at(gx, gy + 1) * (1 - fx) + at(gx + 1, gy + 1) * fx;
  return top * (1 - fy) + bottom * fy;
}

// Browns, olives and greys in blotches of several sizes, with fine grain.
inline std::vector<uint32_t> MakeBackground(int32_t w, int32_t h, uint32_t seed) {
  std::vector<uint32_t> px(size_t(w) * h);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      double v = 0.5 * ValueNoise(x, y, 97, seed) + 0.3 * ValueNoise(x, y, 23, seed + 1) +
                 0.2 * ValueNoise(x, y, 5, seed + 2);
      double hue = ValueNoise(x, y, 151, seed + 3);
      double r = 50 + 150 * v + 30 * hue, g = 45 + 140 * v + 20 * (1 - hue), b = 35 + 110 * v;
      auto c = [](double u) { return uint32_t(std::clamp(u, 0.0, 255.0)); };
      px[size_t(y) * w + x] = 0xFF000000u | (c(r) << 16) | (c(g) << 8) | c(b);
    }
  }
  return px;
}

// Adds uniform noise of +-amplitude to each channel (sensor noise).
inline void AddNoise(std::vector<uint32_t>& px, uint32_t frame, int32_t amplitude) {
  const uint32_t span = uint32_t(2 * amplitude + 1);
  for (size_t i = 0; i < px.size(); ++i) {
    uint32_t n = Hash(uint32_t(i) * 2654435761u ^ frame * 0x9E3779B9u);
    uint32_t p = px[i], out = p & 0xFF000000u;
    for (int32_t shift = 0; shift <= 16; shift += 8) {
      int32_t v = int32_t((p >> shift) & 0xFF) + int32_t((n >> shift) % span) - amplitude;
      out |= uint32_t(std::clamp(v, 0, 255)) << shift;
    }
    px[i] = out;
  }
}

// Blends a disc into `px`; edge pixels get their covered fraction (4 x 4
// samples per pixel).
inline void PaintDisc(std::vector<uint32_t>& px, int32_t w, int32_t h, double cx, double cy, double radius,
                      uint32_t rgb) {
  int32_t x0 = std::max(0, int32_t(std::floor(cx - radius - 1))), x1 = std::min(w - 1, int32_t(std::ceil(cx + radius + 1)));
  int32_t y0 = std::max(0, int32_t(std::floor(cy - radius - 1))), y1 = std::min(h - 1, int32_t(std::ceil(cy + radius + 1)));
  for (int32_t y = y0; y <= y1; ++y) {
    for (int32_t x = x0; x <= x1; ++x) {
      int32_t inside = 0;
      for (int32_t sy = 0; sy < 4; ++sy) {
        for (int32_t sx = 0; sx < 4; ++sx) {
          double dx = x - 0.375 + 0.25 * sx - cx, dy = y - 0.375 + 0.25 * sy - cy;
          inside += dx * dx + dy * dy <= radius * radius;
        }
      }
      if (!inside) continue;
      uint32_t& p = px[size_t(y) * w + x];
      uint32_t out = 0xFF000000u;
      for (int32_t shift = 0; shift <= 16; shift += 8) {
        uint32_t a = (p >> shift) & 0xFF, b = (rgb >> shift) & 0xFF;
        out |= ((a * uint32_t(16 - inside) + b * uint32_t(inside) + 8) / 16) << shift;
      }
      p = out;
    }
  }
}

}  // namespace nimbo::bench
