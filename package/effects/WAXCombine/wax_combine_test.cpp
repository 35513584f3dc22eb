// WAXCombine: each mode's density and colour rule on chosen voxels, a
// volume minus itself is empty, and the effect as a host runs it.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "render3d/wax_volume.h"
#include "test_host.h"
#include "wax_combine_kernel.h"

namespace {

using nimbo::wax::CombineMode;
using nimbo::wax::kScreenSide;

uint32_t One(uint32_t a, uint32_t b, CombineMode mode, float mix = 0.5f) {
  uint32_t out = 0xDEADBEEFu;
  nimbo::wax::CombineVoxels(&a, &b, &out, 1, mode, mix);
  return out;
}

TEST(WaxCombineKernel, ColourFollowsTheDensityThatWins) {
  const uint32_t red = 0xC0FF0000u, blue = 0x400000FFu, empty = 0x0012345u;
  EXPECT_EQ(One(red, blue, CombineMode::kUnion), red);
  EXPECT_EQ(One(blue, red, CombineMode::kUnion), red);
  EXPECT_EQ(One(red, blue, CombineMode::kIntersection), blue);
  EXPECT_EQ(One(red, empty, CombineMode::kIntersection), 0u) << "no density, no colour";
  EXPECT_EQ(One(red, blue, CombineMode::kDifference), 0x80FF0000u);
  EXPECT_EQ(One(blue, red, CombineMode::kDifference), 0u);
  EXPECT_EQ(One(red, 0xC000FF00u, CombineMode::kUnion), red) << "a tie keeps input 1";
  EXPECT_EQ(One(red, blue, CombineMode::kBlend, 0.0f), red);
  EXPECT_EQ(One(red, blue, CombineMode::kBlend, 1.0f), blue);
  EXPECT_EQ(One(red, 0, CombineMode::kBlend, 0.5f), 0x60FF0000u) << "fading into empty space stays red";
  const uint32_t half = One(red, blue, CombineMode::kBlend, 0.5f);
  EXPECT_EQ(half >> 24, 0x80u);
  EXPECT_EQ((half >> 16) & 0xFF, 191u) << "red has three times blue's share";
  EXPECT_EQ(half & 0xFF, 64u);
  EXPECT_EQ(One(red, blue, CombineMode::kBlend, std::nanf("")), half);
  EXPECT_EQ(One(red, blue, CombineMode::kBlend, 7.0f), blue);
}

TEST(WaxCombineEffect, AVolumeMinusItselfIsEmptyAndHostileScreensAreEmpty) {
  nimbo::testing::TestHost host(kScreenSide, kScreenSide);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("mode", 2);
  auto effect = nimbo::testing::MakeEffect("WAXCombine", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  EXPECT_EQ(effect->GetInputScreenRes(1, 320, 200), (orrery::Size{kScreenSide, kScreenSide}));
  ASSERT_EQ(effect->Initialize(), 1);
  ASSERT_NE(host.FindDynVar("Blend mix"), nullptr);

  std::vector<uint32_t> random(size_t(kScreenSide) * kScreenSide), out_pixels(random.size(), 0xDEADBEEFu);
  for (size_t i = 0; i < random.size(); ++i) random[i] = uint32_t(i * 2654435761u) ^ uint32_t(i >> 3);
  orrery::Screen in{kScreenSide, kScreenSide, random.data()}, out{kScreenSide, kScreenSide, out_pixels.data()};
  nimbo::wax::Volume got;
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in, &in}, &out), 1);
  got.ReadFrom(&out);
  EXPECT_TRUE(got.Empty());
  EXPECT_EQ(out_pixels, std::vector<uint32_t>(out_pixels.size(), 0u));

  // The difference with a missing or wrongly sized second input is the first.
  std::vector<uint32_t> junk(100 * 7, 0xFFFFFFFFu);
  orrery::Screen wrong{100, 7, junk.data()};
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in, &wrong}, &out), 1);
  EXPECT_EQ(out_pixels[12345] >> 24, random[12345] >> 24);
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&wrong}, &out), 1);
  got.ReadFrom(&out);
  EXPECT_TRUE(got.Empty());
}

}  // namespace
