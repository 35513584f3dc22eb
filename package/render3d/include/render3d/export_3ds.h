// "Save as 3DS...": the one export command of every 3D effect that shows a
// mesh. The effect hands over what it shows (its material, its meshes with
// the matrices that place them, the camera it drew with); the command writes
// them as a .3ds file through C3DSWriter.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "render3d/scene3d.h"

namespace nimbo {

struct Material;

// One mesh as the effect draws it, in the engine's axes (y up).
struct ExportMesh {
  std::string name;
  std::vector<float> positions;  // x, y, z per vertex
  std::vector<float> uvs;        // u, v per vertex; empty = no texture coordinates
  std::vector<uint32_t> triangles;  // three vertex indices per face
  float matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  // row-vector transform
};

// The messages the command shows (caption "Error").
inline constexpr const char* kMessageRenderingDisabled = "Rendering must be enabled";
inline constexpr const char* kMessageCannotCreate = "Couldn't create file";
inline constexpr const char* kMessageCannotOpen = "Couldn't open file";

// Writes `meshes` with `material` (named `material_name`) and `camera` to
// `path`. `rendering`: the effect draws (it has an engine object and has
// built its mesh). Returns "" on success, otherwise the message to show.
std::string ExportScene3DS(const char* path, bool rendering, const char* material_name, const Material& material,
                           std::span<const ExportMesh> meshes, const SceneCamera& camera,
                           float fov_degrees = kSceneFovDegrees);

}  // namespace nimbo
