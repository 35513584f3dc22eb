// Generated footage for the keying benchmarks: a subject with a known matte
// composited over a coloured screen, so speed is measured on a realistic mix
// of keyed, foreground and edge pixels and quality against the truth.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "runtime/aligned_vector.h"

namespace nimbo::bench {

struct Footage {
  int32_t width = 0, height = 0;
  // 0xAARRGGBB, alpha 255; on 64 bytes, as the host's frames are.
  nimbo::host::AlignedVector<uint32_t> frame;
  std::vector<float> matte;     // true foreground coverage, 0..1
};

// A feathered ellipse "body" and a few thin "strands" of varied, mostly
// warm colours with texture, over `screen` (0xRRGGBB) with sensor noise.
inline Footage MakeFootage(int32_t w, int32_t h, uint32_t screen, uint32_t seed) {
  Footage f;
  f.width = w;
  f.height = h;
  f.frame.resize(size_t(w) * h);
  f.matte.resize(size_t(w) * h);
  std::mt19937 rng(seed);
  std::normal_distribution<float> noise(0.0f, 4.0f);
  const float cx = w * (0.45f + 0.1f * float(rng() % 100) / 100.0f), cy = h * 0.55f;
  const float rx = w * 0.22f, ry = h * 0.38f, feather = std::max(2.0f, w / 320.0f);
  const float sr = float(screen >> 16 & 0xFF), sg = float(screen >> 8 & 0xFF), sb = float(screen & 0xFF);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const float dx = (x - cx) / rx, dy = (y - cy) / ry;
      const float d = (std::sqrt(dx * dx + dy * dy) - 1.0f) * std::min(rx, ry);
      float alpha = std::clamp(0.5f - d / feather, 0.0f, 1.0f);
      // Strands: thin slanted lines above the body, partly transparent.
      for (int k = 0; k < 6; ++k) {
        const float lx = cx + (k - 2.5f) * w * 0.03f + (cy - ry - y) * 0.15f * (k - 2.5f) / 2.5f;
        if (y < cy - ry * 0.8f && y > cy - ry * 1.5f) alpha = std::max(alpha, std::clamp(1.0f - std::fabs(x - lx) / 1.5f, 0.0f, 0.8f));
      }
      // Foreground: warm skin/cloth tones with texture and a dark band.
      const float tex = 0.5f + 0.5f * std::sin(x * 0.05f) * std::cos(y * 0.07f);
      float fr = 170 + 60 * tex, fg = 110 + 50 * tex, fb = 80 + 30 * tex;
      if ((y / 40) % 3 == 0) fr *= 0.4f, fg *= 0.45f, fb *= 0.5f;
      auto mix = [&](float fgc, float sc) {
        return uint32_t(std::clamp(alpha * fgc + (1.0f - alpha) * sc + noise(rng), 0.0f, 255.0f));
      };
      const size_t i = size_t(y) * w + x;
      f.frame[i] = 0xFF000000u | mix(fr, sr) << 16 | mix(fg, sg) << 8 | mix(fb, sb);
      f.matte[i] = alpha;
    }
  }
  return f;
}

}  // namespace nimbo::bench
