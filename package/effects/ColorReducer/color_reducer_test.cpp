// ColorReducer: the level arithmetic, dithering, alpha, the SIMD row against
// the scalar one, and the "Bits" variable.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include "color_reducer_kernel.h"
#include "test_host.h"

namespace {

using namespace nimbo::color_reducer;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kEffect[] = "ColorReducer";
constexpr int kBayer[8][8] = {{0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
                              {12, 44, 4, 36, 14, 46, 6, 38},  {60, 28, 52, 20, 62, 30, 54, 22},
                              {3, 35, 11, 43, 1, 33, 9, 41},   {51, 19, 59, 27, 49, 17, 57, 25},
                              {15, 47, 7, 39, 13, 45, 5, 37},  {63, 31, 55, 23, 61, 29, 53, 21}};

// One channel, from the formulas: the level under a threshold offset
// (nearest level without dithering), spread back so the top level is 255.
int Reduce(int c, int bits, bool dither, int x, int y) {
  int levels = (1 << bits) - 1;
  int d = dither ? (2 * kBayer[y % 8][x % 8] + 1) * 255 / 128 : 127;
  int q = (c * levels + d) / 255;
  int m = int(std::ceil(65280.0 / levels));
  return q * m / 256;
}

TEST(ColorReducerTest, LevelsSpanTheFullRangeAndEightBitsIsIdentity) {
  for (int bits = 1; bits <= 8; ++bits) {
    std::set<int> seen;
    for (int c = 0; c < 256; ++c) seen.insert(Reduce(c, bits, false, 0, 0));
    EXPECT_EQ(int(seen.size()), 1 << bits) << bits;
    EXPECT_EQ(*seen.begin(), 0);
    EXPECT_EQ(*seen.rbegin(), 255);
  }
  for (int c = 0; c < 256; ++c) EXPECT_EQ(Reduce(c, 8, true, 3, 5), c);
  // Dithering keeps the average: a flat 100 over an 8x8 tile at 2 bits
  // (levels 0, 85, 170, 255) averages close to 100.
  int sum = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) sum += Reduce(100, 2, true, x, y);
  EXPECT_NEAR(sum / 64.0, 100.0, 3.0);
}

TEST(ColorReducerTest, EffectMatchesPerPixelComputation) {
  for (int dither : {0, 1}) {
    for (float bits_value : {1.0f, 3.7f, 8.0f, 0.0f, NAN, 20.0f}) {
      TestHost host(35, 19);
      host.store.Clear();
      host.store.BeginWriting();
      host.store.SetInt("!", 1);
      host.store.SetInt("dither", dither);
      auto effect = nimbo::testing::MakeEffect(kEffect, &host);
      effect->UpdateConfig();
      effect->Initialize();
      orrery::DynVar* var = host.FindDynVar("Bits");
      ASSERT_NE(var, nullptr);
      EXPECT_EQ(var->value, 4.0f);  // the stored default
      var->value = bits_value;
      const int bits = std::isnan(bits_value) ? 1 : std::clamp(int(bits_value), 1, 8);
      OwnedScreen in(35, 19), out(35, 19);
      nimbo::testing::FillRandom(in, 8);
      ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
      for (int y = 0; y < 19; ++y) {
        for (int x = 0; x < 35; ++x) {
          uint32_t p = in.At(x, y), want = p & 0xFF000000u;
          for (int lane = 0; lane < 3; ++lane)
            want |= uint32_t(Reduce(int((p >> (8 * lane)) & 0xFF), bits, dither, x, y)) << (8 * lane);
          ASSERT_EQ(out.At(x, y), want) << "bits " << bits << " dither " << dither << " at " << x << "," << y;
        }
      }
    }
  }
}

TEST(ColorReducerTest, SimdRowEqualsScalar) {
  std::mt19937 rng(12);
  std::vector<uint32_t> src(64);
  for (uint32_t& p : src) p = rng();
  src[5] = 0xFFFFFFFF;  // the largest c * L + d
  uint16_t pattern[64];
  for (int bits = 1; bits <= 8; ++bits) {
    for (bool dither : {false, true}) {
      for (int y : {0, 3, 7}) {
        FillDitherPattern(bits, dither, y, pattern);
        ReduceParams p = ParamsForBits(bits);
        p.pattern = pattern;
        for (int x0 : {0, 1, 5}) {
          for (int count : {0, 3, 4, 13, 59}) {
            std::vector<uint32_t> a(64, 9), b(64, 9);
            ReduceRowScalar(src.data(), a.data(), x0, count, p);
            ReduceRowSse2(src.data(), b.data(), x0, count, p);
            ASSERT_EQ(a, b) << bits << " " << dither << " " << x0 << " " << count;
          }
        }
      }
    }
  }
}

}  // namespace
