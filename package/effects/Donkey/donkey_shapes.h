// The primitives Donkey flies: a cube, a sphere, a torus, a closed cylinder,
// and a tunnel (an open tube seen from inside). Each is an indexed triangle
// list in the engine's vertex layout, centred on the origin, about
// kShapeSize units across, with texture coordinates spanning 0..1 once over
// the shape (the tunnel: once around, `kTunnelRepeats` times along), unit
// normals pointing out (in for the tunnel) and triangles counter-clockwise
// seen from the side the normals point to. Closed shapes are closed: welded
// by position, every edge is shared by exactly two triangles.
#pragma once

#include <cstdint>
#include <vector>

#include "nb3d/nb3d.h"

namespace nimbo::donkey {

enum Shape : int32_t { kCube = 0, kSphere = 1, kTorus = 2, kCylinder = 3, kTunnel = 4 };
inline constexpr int32_t kShapeCount = 5;

inline constexpr float kShapeSize = 40.0f;
inline constexpr float kTunnelRadius = 30.0f;
inline constexpr float kTunnelLength = 600.0f;  // from z = 0 to z = -kTunnelLength
inline constexpr float kTunnelRepeats = 8.0f;
inline constexpr int32_t kMinDetail = 4;
inline constexpr int32_t kMaxDetail = 128;

struct ShapeMesh {
  std::vector<nb3D::Vertex> vertices;
  std::vector<uint32_t> triangles;
};

// `detail`: segments around (and half as many along) the round shapes,
// clamped to kMinDetail..kMaxDetail; the cube ignores it.
ShapeMesh MakeShape(int32_t shape, int32_t detail);

}  // namespace nimbo::donkey
