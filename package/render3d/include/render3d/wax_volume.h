// The WAX volume screen: how WAXViewer, WAXRotate, WAXCombine and 3DStoWAX
// pass voxel volumes between effects as ordinary host screens.
//
// A volume is 64 x 64 x 64 voxels. Slice z (64 x 64 voxels) is the tile at
// column z mod 8 and row z div 8 of a 512 x 512 screen, so voxel (x, y, z)
// is the pixel at column (z mod 8) * 64 + x, row (z div 8) * 64 + y. Each
// voxel is a pixel 0xAARRGGBB: A is the density (0 empty .. 255 solid) and
// RGB its colour.
//
// A screen of any other size (or without pixels) is no volume: it reads as
// an empty one, and writing refuses it, so a WAX effect fed a wrong picture
// shows nothing rather than reading past a buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "orrery/types.h"

namespace nimbo::wax {

inline constexpr int32_t kSide = 64;                      // voxels along each axis
inline constexpr int32_t kTilesPerRow = 8;                // slices per tile row
inline constexpr int32_t kScreenSide = kSide * kTilesPerRow;  // 512
inline constexpr size_t kVoxelCount = size_t(kSide) * kSide * kSide;

inline constexpr uint32_t Density(uint32_t voxel) { return voxel >> 24; }
inline constexpr uint32_t Colour(uint32_t voxel) { return voxel & 0xFFFFFFu; }

// Voxels stored slice by slice, row by row: index (z * 64 + y) * 64 + x.
class Volume {
 public:
  Volume() : voxels_(kVoxelCount, 0u) {}

  static constexpr size_t Index(int32_t x, int32_t y, int32_t z) {
    return (size_t(z) * kSide + size_t(y)) * kSide + size_t(x);
  }
  static constexpr bool Inside(int32_t x, int32_t y, int32_t z) {
    return x >= 0 && y >= 0 && z >= 0 && x < kSide && y < kSide && z < kSide;
  }
  // 0 (empty) outside the volume.
  uint32_t At(int32_t x, int32_t y, int32_t z) const { return Inside(x, y, z) ? voxels_[Index(x, y, z)] : 0u; }
  void Set(int32_t x, int32_t y, int32_t z, uint32_t voxel) {
    if (Inside(x, y, z)) voxels_[Index(x, y, z)] = voxel;
  }
  uint32_t* Data() { return voxels_.data(); }
  const uint32_t* Data() const { return voxels_.data(); }

  void Clear();
  // No voxel has any density.
  bool Empty() const;
  // Voxels whose density is at least `threshold`.
  size_t CountAtLeast(uint32_t threshold) const;

  // Reads a WAX screen. False, with the volume left empty, when the screen
  // is not 512 x 512 or has no pixels.
  bool ReadFrom(const orrery::Screen* screen);
  // Writes the volume as a WAX screen. False, writing nothing, when the
  // screen is not 512 x 512 or has no pixels.
  bool WriteTo(orrery::Screen* screen) const;

  // Trilinear sample at voxel coordinates (voxel centres at whole numbers;
  // outside the volume the density is 0). The density is interpolated; the
  // colour is the average of the eight neighbours weighted by their share
  // times their density, so an edge keeps the colour of the solid side
  // instead of fading to the black of empty voxels. At whole-number
  // coordinates the sample is exactly that voxel.
  uint32_t Sample(float x, float y, float z) const;

 private:
  std::vector<uint32_t> voxels_;
};

// The size a WAX effect asks for a WAX input in GetInputScreenRes: the
// volume screen's, except when the host asks for the default (-1 x -1),
// which stays the description's.
inline orrery::Size InputScreenRes(int32_t width, int32_t height) {
  if (width == -1 && height == -1) return {-1, -1};
  return {kScreenSide, kScreenSide};
}

// Trilinear blend of the eight voxels c[0..7] (bit 0 of the index steps x,
// bit 1 y, bit 2 z) with weights in 1/256 along each axis (0..256), as
// described at Volume::Sample. Shared by the sampler and the resampling
// kernels so every path rounds alike.
uint32_t BlendCorners(const uint32_t c[8], uint32_t fx, uint32_t fy, uint32_t fz);

}  // namespace nimbo::wax
