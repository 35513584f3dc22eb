// WAXViewer's geometry: a WAX volume as a surface or as points, in the
// viewer's model space.
//
// Model space: the volume's 64 voxels span kModelSide units about the
// origin; model x is volume x, model y is volume -y and model z is volume
// -z (a half turn about x), so a volume made by 3DStoWAX stands the way its
// scene did, and a volume's slice tiles read top-down show it upright.
//
// Colour: every vertex carries texture coordinates into a 64 x 64 palette of
// the colours quantised to 4 bits per channel (16^3 = 4096 entries, one
// texel each, sampled nearest), so the voxel colours need no vertex colour
// support in the engine. A vertex takes the volume's trilinear colour at its
// place (weighted by density, so the solid side's colour).
#pragma once

#include <cstdint>
#include <vector>

#include "nb3d/nb3d.h"
#include "render3d/isosurface.h"
#include "render3d/wax_volume.h"

namespace nimbo::wax {

inline constexpr float kModelSide = 100.0f;
inline constexpr int32_t kPaletteSide = 64;

// The palette texture's texels: entry (r4 << 8 | g4 << 4 | b4) at
// (index mod 64, index div 64), opaque.
std::vector<uint32_t> PalettePixels();
// Texture coordinates of the palette texel nearest `rgb` (0x00RRGGBB).
void PaletteCoordinates(uint32_t rgb, float* u, float* v);

// A triangle whose corners wear different palette entries would sweep its
// texture coordinates across unrelated entries in between (neighbouring
// texels are not neighbouring colours). `seamless` gets the mesh with each
// such triangle on three vertices of its own, all wearing the mean of its
// corners' colours; triangles of one colour keep their shared vertices.
void SeparateColourSeams(const std::vector<nb3D::Vertex>& vertices, const std::vector<uint32_t>& triangles,
                         std::vector<nb3D::Vertex>& seamless_vertices, std::vector<uint32_t>& seamless_triangles);

// Model-space position of volume point (x, y, z) (voxel units).
void ModelPoint(const float volume[3], float model[3]);

// The isosurface of the density at `threshold` (a voxel is inside when its
// density is at least `threshold`, 1..255), closed at the volume's border,
// with palette coordinates in u, v and u2, v2.
void SurfaceMesh(const Volume& volume, int32_t threshold, std::vector<float>& field, IsoMesh& surface,
                 std::vector<nb3D::Vertex>& vertices, std::vector<uint32_t>& triangles);

// One quad per visible voxel: inside voxels (density >= threshold) with at
// least one of their six neighbours outside. Each quad is `size` voxels
// wide, faces the viewer along -`forward` (model space, unit) with its
// sides along `right` and `up`, and carries the voxel's palette
// coordinates. At most `max_points` voxels (the rest are skipped evenly).
void PointMesh(const Volume& volume, int32_t threshold, float size, const float right[3], const float up[3],
               const float forward[3], size_t max_points, std::vector<nb3D::Vertex>& vertices,
               std::vector<uint32_t>& triangles);

}  // namespace nimbo::wax
