// The triangles 3DStoWAX voxelises: every mesh of a loaded .3ds scene that
// is not hidden, posed at its current frame (the reader poses a fresh scene
// at frame 0), each face coloured with its material's diffuse colour.
#pragma once

#include <vector>

#include "render3d/c3ds_scene.h"
#include "voxelize.h"

namespace nimbo::wax {

std::vector<VoxelTriangle> SceneTriangles(const C3DSScene& scene);

}  // namespace nimbo::wax
