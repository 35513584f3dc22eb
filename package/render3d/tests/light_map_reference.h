// An independent light map for the material tests, written as geometry
// rather than as the kernels' formulas.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "render3d/material.h"

namespace nimbo::testing {

// The light map as geometry: the sphere's normal n = (u, v, -sqrt(q)),
// diffuse = -(n . L), specular = the negated z of L reflected about n, in
// double precision with pow for the sharpness.
inline uint32_t IndependentLightMap(int x, int y, int w, int h, const nimbo::TextureLayer& t) {
  double l[3] = {t.l_x, t.l_y, 0};
  const double r2 = l[0] * l[0] + l[1] * l[1];
  if (r2 <= 1) {
    l[2] = std::sqrt(1 - r2);
  } else {
    l[0] /= std::sqrt(r2), l[1] /= std::sqrt(r2);
  }
  const double u = (2.0 * x / w - 1) * w / (w + 2.0), v = (2.0 * y / h - 1) * h / (h + 2.0);
  const double q = 1 - u * u - v * v;
  int channel[3];
  for (int c = 0; c < 3; ++c) channel[c] = (t.base_clr >> (16 - 8 * c)) & 0xFF;
  if (q > 0) {
    const double n[3] = {u, v, -std::sqrt(q)};
    const double nl = n[0] * l[0] + n[1] * l[1] + n[2] * l[2];
    const double reflected_z = l[2] - 2 * nl * n[2];
    const double light[2] = {std::max(0.0, -nl), std::max(0.0, -reflected_z)};
    const int colors[2] = {t.diff_clr, t.spec_clr};
    const int powers[2] = {t.diff, t.spec_power};
    for (int k = 0; k < 2; ++k) {
      if (colors[k] == 0) continue;
      const double i = std::pow(light[k], std::pow(2.0, powers[k]));
      for (int c = 0; c < 3; ++c)
        channel[c] = std::min(255, channel[c] + int(std::min(255.0, 255 * i * ((colors[k] >> (16 - 8 * c)) & 0xFF) / 255)));
    }
  }
  return uint32_t(channel[0] << 16 | channel[1] << 8 | channel[2]);
}

}  // namespace nimbo::testing
