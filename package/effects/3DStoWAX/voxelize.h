// 3DStoWAX's voxeliser: triangles into a solid WAX volume.
//
// Fit: the triangles' bounding box is centred in the volume and scaled, the
// same factor on every axis, so its longest side spans kFitVoxels voxels
// (one empty voxel is left at each border, so a voxelised body is closed
// inside the volume).
//
// Solid fill by ray parity: through the centre of every column (x, y) a ray
// runs along z; a voxel is inside when its centre has an odd number of
// crossings of the surface before it. The crossing test works on the
// triangles' corners snapped to 1/256 of a voxel, in exact integer
// arithmetic, with the top-left rule for rays that pass exactly through an
// edge or a corner: each such point belongs to exactly one of the triangles
// that share it, so a closed mesh is crossed an even number of times along
// every ray, and no column leaks.
//
// Colour: the colour of the nearest face. Rays along all three axes mark the
// points where they cross a face with that face's colour; each solid voxel
// takes the colour of the nearest marked point, found by sweeping nearest
// points through the volume (forward and back, twice).
//
// Axes: volume x is the scene's x, volume y its -y (the scene's y points up,
// the screen's rows down) and volume z its -z, which together is a half turn
// about x (no mirroring).
#pragma once

#include <cstdint>
#include <vector>

#include "render3d/wax_volume.h"

namespace nimbo::wax {

inline constexpr int32_t kFitVoxels = kSide - 2;

struct VoxelTriangle {
  float corner[3][3];  // scene coordinates
  uint32_t colour;     // 0x00RRGGBB
};

// Voxelises `triangles` into `out` (solid voxels 0xFF000000 | colour, empty
// 0). No triangles, or ones without extent, give an empty volume. Corners
// that are not finite are skipped with their triangle.
void VoxelizeTriangles(const std::vector<VoxelTriangle>& triangles, Volume* out);

}  // namespace nimbo::wax
