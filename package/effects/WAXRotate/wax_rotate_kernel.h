// WAXRotate's resampling: every output voxel takes the trilinear sample of
// the input at the point the inverse rotation and scale bring it to, about
// the volume's centre (31.5, 31.5, 31.5).
//
// The map from output voxel to source point is affine, so a row of output
// voxels walks the source along one step vector. Matrix entries that are
// within rounding of -1, 0 or 1 are snapped to them: a rotation by whole
// quarter turns at scale 1 then lands every output voxel exactly on a source
// voxel and moves voxels without changing a bit.
#pragma once

#include <cstdint>

#include "render3d/wax_volume.h"

namespace nimbo::wax {

// Source point of output voxel (x, y, z): origin + x * step_x + y * step_y + z * step_z.
struct SourceMap {
  float origin[3];
  float step_x[3];
  float step_y[3];
  float step_z[3];
};

inline constexpr float kMinScale = 0.1f;
inline constexpr float kMaxScale = 4.0f;

// The output shows the input turned by rx about x, then ry about y, then rz
// about z (degrees), and scaled by `scale` (clamped to kMinScale..kMaxScale;
// NaN angles count as 0, NaN scale as 1).
SourceMap RotationMap(float rx_degrees, float ry_degrees, float rz_degrees, float scale);

// One output row (y, z): 64 voxels into `out`. The hot loop; plain C++ on
// fixed-point weights, fast enough for a 64^3 volume well inside the frame
// budget (bench_wax_rotate measures it).
void ResampleRow(const Volume& source, const SourceMap& map, int32_t y, int32_t z, uint32_t* out);

// The whole volume.
void Resample(const Volume& source, const SourceMap& map, Volume* out);

}  // namespace nimbo::wax
