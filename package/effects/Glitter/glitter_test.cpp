// Glitter: stars on bright pixels against a separate drawing from the seeded
// generator, twinkling between frames, nothing below the threshold, and the
// luma kernels.
#include <gtest/gtest.h>

#include <random>

#include "glitter_kernel.h"
#include "core/platform.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kEffect[] = "Glitter";

// A star drawn from its description onto `f`.
void Star(std::vector<uint32_t>& f, int w, int h, int x, int y, int amp, int len) {
  auto add = [&](int px, int py, int v) {
    if (px < 0 || py < 0 || px >= w || py >= h || v <= 0) return;
    uint32_t& p = f[size_t(py * w + px)];
    uint32_t out = p & 0xFF000000u;
    for (int s = 0; s < 24; s += 8) out |= uint32_t(std::min(int((p >> s) & 0xFF) + v, 255)) << s;
    p = out;
  };
  add(x, y, amp);
  for (int d = 1; d <= len; ++d) {
    int v = amp * (len + 1 - d) / (len + 1);
    for (auto [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}}) add(x + dx * d, y + dy * d, v);
    if (2 * d <= len)
      for (auto [dx, dy] : {std::pair{1, 1}, {-1, 1}, {1, -1}, {-1, -1}}) add(x + dx * d, y + dy * d, v / 2);
  }
}

TEST(GlitterTest, BrightPixelsGetTwinklingStarsFromTheSeededGenerator) {
  const int w = 40, h = 30, spacing = 12, size = 9, speed = 16;
  TestHost host(w, h);
  host.store.Clear();
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("threshold", 200);
  host.store.SetInt("size", size);
  host.store.SetInt("spacing", spacing);
  host.store.SetFloat("density", 1.0f);
  host.store.SetInt("speed", speed);
  auto effect = nimbo::testing::MakeEffect(kEffect, &host);
  effect->UpdateConfig();
  effect->Initialize();
  OwnedScreen in(w, h, 0xFF102030), out(w, h);
  // Two bright pixels in one cell (the brighter wins), one in another, one
  // just at the threshold (luma 200 is not above it).
  in.At(5, 5) = 0xFFFFFFFF;
  in.At(6, 7) = 0xFFF0F0F0;
  in.At(30, 20) = 0x80E0E0E0;
  in.At(20, 2) = 0xFFC8C8C8;
  const int cells_w = (w + spacing - 1) / spacing, cells_h = (h + spacing - 1) / spacing;
  nimbo::platform::SeedRand(77);
  std::vector<int> phase;
  for (int i = 0; i < cells_w * cells_h; ++i) {
    nimbo::platform::Rand();  // chance: density 1 makes every cell sparkle
    phase.push_back(nimbo::platform::Rand() & 0xFF);
  }
  nimbo::platform::SeedRand(77);
  std::vector<std::vector<uint32_t>> frames;
  for (int frame = 0; frame < 3; ++frame) {
    ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
    std::vector<uint32_t> want = in.pixels;
    for (auto [x, y] : {std::pair{5, 5}, {30, 20}}) {
      int cell = (y / spacing) * cells_w + x / spacing;
      int ph = (phase[size_t(cell)] + frame * speed) & 0xFF;
      int amp = ph < 128 ? 2 * ph : 2 * (255 - ph);
      Star(want, w, h, x, y, amp, size * amp / 255);
    }
    ASSERT_EQ(out.pixels, want) << "frame " << frame;
    frames.push_back(out.pixels);
  }
  EXPECT_NE(frames[0], frames[1]);  // twinkles

  // Nothing above the threshold: the picture passes unchanged.
  host.FindDynVar("Threshold")->value = 255;
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
  EXPECT_EQ(out.pixels, in.pixels);
}

TEST(GlitterTest, LumaKernelsAgree) {
  std::mt19937 rng(2);
  std::vector<uint32_t> src(70);
  for (uint32_t& p : src) p = rng();
  src[0] = 0xFFFFFFFF;
  for (int start : {0, 1, 3}) {
    for (int count : {0, 1, 4, 9, 66}) {
      std::vector<uint8_t> a(70, 1), b(70, 1);
      nimbo::glitter::LumaRowScalar(&src[size_t(start)], &a[size_t(start)], count);
      nimbo::glitter::LumaRowSse2(&src[size_t(start)], &b[size_t(start)], count);
      ASSERT_EQ(a, b) << start << " " << count;
    }
  }
  uint8_t y;
  const uint32_t white = 0xFFFFFFFF, red = 0x00FF0000;
  nimbo::glitter::LumaRowScalar(&white, &y, 1);
  EXPECT_EQ(y, 255);
  nimbo::glitter::LumaRowScalar(&red, &y, 1);
  EXPECT_EQ(y, 76);  // 77 * 255 >> 8
}

}  // namespace
