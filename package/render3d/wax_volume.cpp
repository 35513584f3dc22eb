// The WAX volume screen: reading, writing and sampling (see wax_volume.h).
#include "render3d/wax_volume.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nimbo::wax {
namespace {

bool IsWaxScreen(const orrery::Screen* screen) {
  return screen && screen->pixels && screen->width == kScreenSide && screen->height == kScreenSide;
}

// The first pixel of row y of slice z in a WAX screen.
size_t SliceRowOffset(int32_t y, int32_t z) {
  const size_t column = size_t(z % kTilesPerRow) * kSide;
  const size_t row = size_t(z / kTilesPerRow) * kSide + size_t(y);
  return row * kScreenSide + column;
}

}  // namespace

void Volume::Clear() { std::fill(voxels_.begin(), voxels_.end(), 0u); }

bool Volume::Empty() const {
  return std::none_of(voxels_.begin(), voxels_.end(), [](uint32_t v) { return Density(v) != 0; });
}

size_t Volume::CountAtLeast(uint32_t threshold) const {
  return size_t(std::count_if(voxels_.begin(), voxels_.end(), [threshold](uint32_t v) { return Density(v) >= threshold; }));
}

bool Volume::ReadFrom(const orrery::Screen* screen) {
  if (!IsWaxScreen(screen)) {
    Clear();
    return false;
  }
  for (int32_t z = 0; z < kSide; ++z) {
    for (int32_t y = 0; y < kSide; ++y)
      std::memcpy(&voxels_[Index(0, y, z)], screen->pixels + SliceRowOffset(y, z), kSide * sizeof(uint32_t));
  }
  return true;
}

bool Volume::WriteTo(orrery::Screen* screen) const {
  if (!IsWaxScreen(screen)) return false;
  for (int32_t z = 0; z < kSide; ++z) {
    for (int32_t y = 0; y < kSide; ++y)
      std::memcpy(screen->pixels + SliceRowOffset(y, z), &voxels_[Index(0, y, z)], kSide * sizeof(uint32_t));
  }
  return true;
}

uint32_t BlendCorners(const uint32_t c[8], uint32_t fx, uint32_t fy, uint32_t fz) {
  // On a voxel, or inside a uniform region, the blend is that voxel: exact,
  // and the common case inside solid bodies and for quarter turns.
  if ((fx | fy | fz) == 0 ||
      (c[0] == c[1] && c[0] == c[2] && c[0] == c[3] && c[0] == c[4] && c[0] == c[5] && c[0] == c[6] && c[0] == c[7]))
    return Density(c[0]) ? c[0] : 0u;
  const uint32_t wx[2] = {256 - fx, fx}, wy[2] = {256 - fy, fy}, wz[2] = {256 - fz, fz};
  // Weights sum to 2^24 and densities are at most 255, so the density sum
  // fits 32 bits. The colour is a ratio of sums; single precision keeps it
  // well inside half a level.
  uint32_t density = 0;
  float red = 0, green = 0, blue = 0;
  for (int i = 0; i < 8; ++i) {
    const uint32_t a = Density(c[i]);
    if (!a) continue;
    const uint32_t w = wx[i & 1] * wy[(i >> 1) & 1] * wz[i >> 2] * a;
    density += w;
    const float fw = float(w);
    red += fw * float((c[i] >> 16) & 0xFF);
    green += fw * float((c[i] >> 8) & 0xFF);
    blue += fw * float(c[i] & 0xFF);
  }
  const uint32_t a = (density + (1u << 23)) >> 24;
  if (!a) return 0;
  const float inverse = 1.0f / float(density);
  auto level = [inverse](float sum) { return std::min(255u, uint32_t(sum * inverse + 0.5f)); };
  return (a << 24) | (level(red) << 16) | (level(green) << 8) | level(blue);
}

uint32_t Volume::Sample(float x, float y, float z) const {
  if (!(x > -1.0f && y > -1.0f && z > -1.0f && x < float(kSide) && y < float(kSide) && z < float(kSide))) return 0;
  // Coordinates in 1/256 of a voxel, rounded to nearest.
  const int32_t qx = int32_t(std::floor(x * 256.0f + 0.5f)), qy = int32_t(std::floor(y * 256.0f + 0.5f)),
                qz = int32_t(std::floor(z * 256.0f + 0.5f));
  const int32_t ix = qx >> 8, iy = qy >> 8, iz = qz >> 8;
  uint32_t c[8];
  for (int i = 0; i < 8; ++i) c[i] = At(ix + (i & 1), iy + ((i >> 1) & 1), iz + (i >> 2));
  return BlendCorners(c, uint32_t(qx & 255), uint32_t(qy & 255), uint32_t(qz & 255));
}

}  // namespace nimbo::wax
