// WAXRotate: quarter turns are exact and come back after four, a turn moves
// a voxel where the right-hand rule says, scaling about the centre, and the
// effect as a host runs it (sizes it asks for, hostile screens).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "render3d/wax_volume.h"
#include "test_host.h"
#include "wax_rotate_kernel.h"

namespace {

using nimbo::wax::kScreenSide;
using nimbo::wax::Volume;

// A lopsided blob of colours, so any wrong turn shows.
Volume Lopsided() {
  Volume v;
  uint32_t s = 7;
  for (int32_t z = 4; z < 50; ++z)
    for (int32_t y = 10; y < 60; ++y)
      for (int32_t x = 0; x < 30 + z / 2; ++x) {
        s = s * 1664525u + 1013904223u;
        v.Set(x, y, z, (s | 0x01000000u) & (s >> 8 & 1 ? 0xFFFFFFFFu : 0x7FFFFFFFu));
      }
  return v;
}

std::vector<uint32_t> Voxels(const Volume& v) {
  return std::vector<uint32_t>(v.Data(), v.Data() + nimbo::wax::kVoxelCount);
}

TEST(WaxRotateKernel, FourQuarterTurnsGiveTheInputBackExactly) {
  const Volume input = Lopsided();
  for (int axis = 0; axis < 3; ++axis) {
    for (float angle : {90.0f, -90.0f, 270.0f}) {
      float r[3] = {0, 0, 0};
      r[axis] = angle;
      const nimbo::wax::SourceMap map = nimbo::wax::RotationMap(r[0], r[1], r[2], 1.0f);
      Volume a = input, b;
      for (int k = 0; k < 4; ++k) {
        nimbo::wax::Resample(a, map, &b);
        if (k == 0) {
          EXPECT_NE(Voxels(b), Voxels(input)) << "axis " << axis;
        }
        EXPECT_EQ(b.CountAtLeast(1), input.CountAtLeast(1)) << "a quarter turn keeps every voxel";
        std::swap(a, b);
      }
      EXPECT_EQ(Voxels(a), Voxels(input)) << "axis " << axis << " angle " << angle;
    }
  }
}

TEST(WaxRotateKernel, TurnsByTheRightHandRuleAndScalesAboutTheCentre) {
  Volume input;
  input.Set(50, 31, 31, 0xFF00FF00u);  // on the +x side, near the centre line
  Volume out;
  // 90 degrees about z takes +x to +y.
  nimbo::wax::Resample(input, nimbo::wax::RotationMap(0, 0, 90, 1), &out);
  EXPECT_EQ(out.At(32, 50, 31), 0xFF00FF00u);
  EXPECT_EQ(out.CountAtLeast(1), 1u);
  // 90 degrees about y takes +x to -z.
  nimbo::wax::Resample(input, nimbo::wax::RotationMap(0, 90, 0, 1), &out);
  EXPECT_EQ(out.At(31, 31, 13), 0xFF00FF00u);
  // Scale 2 about the centre: (50 - 31.5) doubles, past the border: gone;
  // a voxel near the centre moves out to twice its distance, 2 voxels wide.
  Volume near;
  near.Set(35, 31, 31, 0xFF123456u);
  nimbo::wax::Resample(near, nimbo::wax::RotationMap(0, 0, 0, 2), &out);
  EXPECT_GT(nimbo::wax::Density(out.At(38, 31, 31)), 100u);
  EXPECT_EQ(nimbo::wax::Colour(out.At(38, 31, 31)), 0x123456u);
  EXPECT_EQ(out.At(35, 31, 31), 0u);
  // A turn by 45 degrees keeps the amount of matter within a few percent.
  const Volume blob = Lopsided();
  nimbo::wax::Resample(blob, nimbo::wax::RotationMap(0, 0, 45, 0.6f), &out);
  double before = 0, after = 0;
  for (size_t i = 0; i < nimbo::wax::kVoxelCount; ++i) before += blob.Data()[i] >> 24, after += out.Data()[i] >> 24;
  EXPECT_NEAR(after, before * 0.6 * 0.6 * 0.6, before * 0.216 * 0.05);
}

TEST(WaxRotateEffect, AsksForWaxScreensAndSurvivesHostileOnes) {
  nimbo::testing::TestHost host(kScreenSide, kScreenSide);
  auto effect = nimbo::testing::MakeEffect("WAXRotate", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  EXPECT_EQ(effect->GetInputScreenRes(0, 640, 360), (orrery::Size{kScreenSide, kScreenSide}));
  EXPECT_EQ(effect->GetInputScreenRes(0, -1, -1), (orrery::Size{-1, -1}));
  ASSERT_EQ(effect->Initialize(), 1);
  for (const char* name : {"Rotation x", "Rotation y", "Rotation z", "Scale"})
    ASSERT_NE(host.FindDynVar(name), nullptr) << name;
  host.FindDynVar("Rotation z")->value = 90;

  const Volume input = Lopsided();
  std::vector<uint32_t> in_pixels(size_t(kScreenSide) * kScreenSide), out_pixels(in_pixels.size(), 0xDEADBEEFu);
  orrery::Screen in{kScreenSide, kScreenSide, in_pixels.data()}, out{kScreenSide, kScreenSide, out_pixels.data()};
  ASSERT_TRUE(input.WriteTo(&in));
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in}, &out), 1);
  Volume expected, got;
  nimbo::wax::Resample(input, nimbo::wax::RotationMap(0, 0, 90, 1), &expected);
  got.ReadFrom(&out);
  EXPECT_EQ(Voxels(got), Voxels(expected));

  // Random bytes in a screen of the wrong size: an empty volume out.
  std::vector<uint32_t> junk(size_t(300) * 200);
  for (size_t i = 0; i < junk.size(); ++i) junk[i] = uint32_t(i * 2654435761u);
  orrery::Screen wrong{300, 200, junk.data()};
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&wrong}, &out), 1);
  got.ReadFrom(&out);
  EXPECT_TRUE(got.Empty());
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {}, &out), 1);
  // Random bytes in a WAX-sized screen are a volume like any other.
  for (size_t i = 0; i < in_pixels.size(); ++i) in_pixels[i] = uint32_t(i * 2246822519u + 7);
  host.FindDynVar("Rotation x")->value = 33;
  host.FindDynVar("Scale")->value = std::nanf("");
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {&in}, &out), 1);
  // An output that is no WAX screen is left alone.
  std::vector<uint32_t> small(64 * 48, 0x11111111u);
  orrery::Screen small_out{64, 48, small.data()};
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {&in}, &small_out), 0);
  EXPECT_EQ(small, std::vector<uint32_t>(64 * 48, 0x11111111u));
}

}  // namespace
