// RGB Displacer: channel shifts against a per-pixel computation, the SIMD
// row against the scalar one, and the dynamic variables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "rgb_displacer_kernel.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kEffect[] = "RGB Displacer";

uint32_t Expected(const OwnedScreen& in, int x, int y, const int s[6]) {
  auto at = [&](int dx, int dy) {
    int sx = std::clamp(x - dx, 0, in.screen.width - 1), sy = std::clamp(y - dy, 0, in.screen.height - 1);
    return in.pixels[size_t(sy * in.screen.width + sx)];
  };
  return (at(s[0], s[1]) & 0xFF0000) | (at(s[2], s[3]) & 0xFF00) | (at(s[4], s[5]) & 0xFF) |
         (in.pixels[size_t(y * in.screen.width + x)] & 0xFF000000u);
}

TEST(RGBDisplacerTest, ShiftsEachChannelByItsVariableClampedAtTheEdges) {
  TestHost host(29, 17);
  auto effect = nimbo::testing::MakeEffect(kEffect, &host);
  effect->UpdateConfig();
  effect->Initialize();
  const char* names[6] = {"Red x", "Red y", "Green x", "Green y", "Blue x", "Blue y"};
  OwnedScreen in(29, 17), out(29, 17);
  nimbo::testing::FillRandom(in, 4);
  // Defaults first (red 4 right, blue 4 left), then mixed, large and
  // non-finite values (NaN counts as 0, a huge shift as the frame's size).
  const float cases[][6] = {{4, 0, 0, 0, -4, 0},      {3.9f, -2.7f, -11, 5, 0, 16},
                            {100, -300, 28, 16, -29, 1}, {NAN, INFINITY, -INFINITY, 0.5f, -0.5f, 2}};
  const int want[][6] = {{4, 0, 0, 0, -4, 0}, {3, -2, -11, 5, 0, 16}, {29, -17, 28, 16, -29, 1}, {0, 17, -29, 0, 0, 2}};
  for (int c = 0; c < 4; ++c) {
    for (int i = 0; i < 6; ++i) {
      orrery::DynVar* v = host.FindDynVar(names[i]);
      ASSERT_NE(v, nullptr) << names[i];
      if (c > 0) v->value = cases[c][i];
      else EXPECT_EQ(v->value, cases[0][i]);
    }
    ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
    for (int y = 0; y < 17; ++y) {
      for (int x = 0; x < 29; ++x) ASSERT_EQ(out.At(x, y), Expected(in, x, y, want[c])) << c << " at " << x << "," << y;
    }
  }
  // Stored resting offsets become the variables' initial values.
  host.store.Clear();
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetFloat("green_y", -7.0f);
  effect->UpdateConfig();
  EXPECT_EQ(host.FindDynVar("Green y")->value, -7.0f);
}

TEST(RGBDisplacerTest, SimdRowEqualsScalar) {
  std::mt19937 rng(3);
  const int w = 77;
  std::vector<uint32_t> rows[4];
  for (auto& r : rows) {
    r.resize(w);
    for (uint32_t& p : r) p = rng();
  }
  for (int dr : {0, 5, -9, 80, -80}) {
    for (int dg : {0, -1, 3}) {
      for (int db : {0, 7, -30}) {
        nimbo::rgb_displacer::ShiftRows s{rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(), dr, dg, db};
        for (int x0 : {0, 1, 3}) {
          for (int count : {0, 1, 5, w - x0}) {
            std::vector<uint32_t> a(w, 1), b(w, 1);
            nimbo::rgb_displacer::ShiftRowScalar(s, a.data(), w, x0, count);
            nimbo::rgb_displacer::ShiftRowSse2(s, b.data(), w, x0, count);
            ASSERT_EQ(a, b) << dr << " " << dg << " " << db << " x0 " << x0 << " count " << count;
          }
        }
      }
    }
  }
}

}  // namespace
