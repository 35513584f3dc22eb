// The WAX volume screen: the tile layout, the round trip through a screen,
// screens that are no volume, and trilinear sampling.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "render3d/wax_volume.h"

namespace {

using nimbo::wax::kScreenSide;
using nimbo::wax::Volume;

uint32_t Hash(uint32_t v) {
  v ^= v >> 16;
  v *= 0x7feb352du;
  v ^= v >> 15;
  v *= 0x846ca68bu;
  return v ^ (v >> 16);
}

TEST(WaxVolume, RoundTripsThroughTheTiledScreen) {
  Volume volume;
  for (int32_t z = 0; z < 64; ++z)
    for (int32_t y = 0; y < 64; ++y)
      for (int32_t x = 0; x < 64; ++x) volume.Set(x, y, z, Hash(uint32_t(Volume::Index(x, y, z))));
  std::vector<uint32_t> pixels(size_t(kScreenSide) * kScreenSide, 0);
  orrery::Screen screen{kScreenSide, kScreenSide, pixels.data()};
  ASSERT_TRUE(volume.WriteTo(&screen));
  // Slice 13 is the tile at column 5, row 1: voxel (7, 9, 13) is pixel (5*64+7, 64+9).
  EXPECT_EQ(pixels[size_t(64 + 9) * kScreenSide + 5 * 64 + 7], volume.At(7, 9, 13));
  EXPECT_EQ(pixels[size_t(7 * 64 + 63) * kScreenSide + 7 * 64 + 63], volume.At(63, 63, 63));
  Volume back;
  ASSERT_TRUE(back.ReadFrom(&screen));
  EXPECT_EQ(std::vector<uint32_t>(back.Data(), back.Data() + nimbo::wax::kVoxelCount),
            std::vector<uint32_t>(volume.Data(), volume.Data() + nimbo::wax::kVoxelCount));
}

TEST(WaxVolume, ScreensOfOtherSizesReadEmptyAndAreNotWritten) {
  Volume volume;
  volume.Set(1, 2, 3, 0xFF102030u);
  std::vector<uint32_t> pixels(size_t(kScreenSide + 1) * kScreenSide, 0xFFFFFFFFu);
  for (orrery::Screen screen : {orrery::Screen{kScreenSide + 1, kScreenSide, pixels.data()},
                                orrery::Screen{kScreenSide, kScreenSide - 1, pixels.data()},
                                orrery::Screen{64, 64, pixels.data()}, orrery::Screen{-512, -512, pixels.data()},
                                orrery::Screen{kScreenSide, kScreenSide, nullptr}}) {
    EXPECT_FALSE(volume.WriteTo(&screen));
    Volume read;
    read.Set(0, 0, 0, 0xFFFFFFFFu);
    EXPECT_FALSE(read.ReadFrom(&screen));
    EXPECT_TRUE(read.Empty());
  }
  EXPECT_EQ(pixels, std::vector<uint32_t>(pixels.size(), 0xFFFFFFFFu));
  EXPECT_FALSE(volume.ReadFrom(nullptr));
  EXPECT_TRUE(volume.Empty());
}

TEST(WaxVolume, TrilinearSampleInterpolatesDensityAndKeepsTheSolidColour) {
  Volume volume;
  volume.Set(10, 10, 10, 0xFFFF0000u);  // solid red beside empty space
  volume.Set(11, 10, 10, 0x800000FFu);  // half-dense blue
  EXPECT_EQ(volume.Sample(10, 10, 10), 0xFFFF0000u);
  EXPECT_EQ(volume.Sample(11, 10, 10), 0x800000FFu);
  const uint32_t mid = volume.Sample(10.5f, 10, 10);
  EXPECT_EQ(mid >> 24, (255u + 128u + 1u) / 2u);
  // Colour weighted by density: red counts about twice as much as blue.
  EXPECT_NEAR(double((mid >> 16) & 0xFF), 255.0 * 255 / 383, 1.0);
  EXPECT_NEAR(double(mid & 0xFF), 255.0 * 128 / 383, 1.0);
  // Halfway into the empty neighbour the colour stays red, the density halves.
  EXPECT_EQ(volume.Sample(9.5f, 10, 10), 0x80FF0000u);
  EXPECT_EQ(volume.Sample(-0.99f, 0, 0), 0u);
  EXPECT_EQ(volume.Sample(1e30f, 5, 5), 0u);
  EXPECT_EQ(volume.Sample(std::numeric_limits<float>::quiet_NaN(), 5, 5), 0u);
}

}  // namespace
