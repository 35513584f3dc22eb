// Small .3ds scenes for 3DSViewer's tests, built chunk by chunk on the
// package's writer: coloured cubes, keyframed nodes and a camera.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "render3d/c3ds_writer.h"

namespace nimbo::viewer3ds::testing {

// A material with diffuse colour `rgb` (0x00RRGGBB) and, when `picture` is
// not empty, a texture map of that name.
void AddColorMaterial(C3DSWriter& w, const char* name, int32_t rgb, const char* picture = "");

// A cube of side 2 * `half` around `centre` (the file's axes, z up), faces
// counter-clockwise seen from outside, texture coordinates over each face.
void AddCube(C3DSWriter& w, const char* name, const float centre[3], float half, const char* material);

// A position key: frame and point (file axes).
struct PositionKey {
  int32_t frame;
  float x, y, z;
};

// An object node for mesh `name` with a position track (and pivot 0).
// `parent` is a node id, 0xFFFF for none; `flags` NODE_HDR's first flags
// word (0x800 = hidden).
void AddObjectNode(C3DSWriter& w, uint16_t id, const char* name, uint16_t parent, const std::vector<PositionKey>& keys,
                   uint16_t flags = 0x4000);

// KFSEG start..end (later chunks of the same kind win in the reader's pass).
void SetSegment(C3DSWriter& w, int32_t start, int32_t end);

// Writes the scene to `path`; false when it cannot.
bool Save(const C3DSWriter& w, const std::string& path);

}  // namespace nimbo::viewer3ds::testing
