// Voxel volumes the demo generates for the WAX effects, drawn as WAX volume
// screens: 64 slices of 64 x 64 voxels tiled 8 x 8 into a 512 x 512 screen,
// slice z at tile (z mod 8, z div 8), each voxel 0xAARRGGBB with A the
// density and RGB the colour. Densities fall off over a few voxels at the
// surface, so the isosurface WAXViewer draws is smooth rather than blocky.
// Each is of one colour: WAXViewer looks voxel colours up in a palette
// texture whose entries are not ordered by colour, so a colour gradient
// across a triangle shows as stripes of unrelated colours.
//   box     a blue cube with rounded edges
//   ball    a red ball that travels through the cube's corner over the clip
//   torus   an orange ring tilted towards the camera
#pragma once

#include <cstdint>

#include "media/frame_buffer.h"

namespace nimbo::host {

enum class DemoVolume { kBox, kBall, kTorus };

// The volume at time t (0 .. 1 over the clip) into `out`. At 512 x 512 the
// screen is a WAX volume; any other size holds the same tiles stretched.
void DrawDemoVolume(DemoVolume volume, FrameBuffer& out, double t);

}  // namespace nimbo::host
