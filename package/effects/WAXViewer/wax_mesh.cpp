// WAXViewer's geometry (see wax_mesh.h).
#include "wax_mesh.h"

#include <algorithm>
#include <cmath>

namespace nimbo::wax {
namespace {

constexpr float kUnit = kModelSide / float(kSide);  // model units per voxel
constexpr float kCentre = (kSide - 1) / 2.0f;

}  // namespace

std::vector<uint32_t> PalettePixels() {
  std::vector<uint32_t> pixels(size_t(kPaletteSide) * kPaletteSide);
  for (uint32_t i = 0; i < pixels.size(); ++i) {
    const uint32_t r = (i >> 8) & 15, g = (i >> 4) & 15, b = i & 15;
    pixels[i] = 0xFF000000u | (r * 17) << 16 | (g * 17) << 8 | (b * 17);
  }
  return pixels;
}

void PaletteCoordinates(uint32_t rgb, float* u, float* v) {
  // Nearest of the 16 levels (k * 17) per channel.
  auto level = [](uint32_t c) { return (c + 8) / 17; };
  const uint32_t index = level((rgb >> 16) & 0xFF) << 8 | level((rgb >> 8) & 0xFF) << 4 | level(rgb & 0xFF);
  *u = (float(index % kPaletteSide) + 0.5f) / kPaletteSide;
  *v = (float(index / kPaletteSide) + 0.5f) / kPaletteSide;
}

namespace {

// The colour of the palette texel under (u, v).
uint32_t PaletteColour(float u, float v) {
  const auto cell = [](float c) { return uint32_t(std::clamp(int32_t(c * kPaletteSide), 0, kPaletteSide - 1)); };
  const uint32_t index = cell(v) * kPaletteSide + cell(u);
  return ((index >> 8) & 15) * 17 << 16 | ((index >> 4) & 15) * 17 << 8 | (index & 15) * 17;
}

}  // namespace

void SeparateColourSeams(const std::vector<nb3D::Vertex>& vertices, const std::vector<uint32_t>& triangles,
                         std::vector<nb3D::Vertex>& seamless_vertices, std::vector<uint32_t>& seamless_triangles) {
  seamless_vertices = vertices;
  seamless_triangles = triangles;
  for (size_t t = 0; t + 2 < triangles.size(); t += 3) {
    const nb3D::Vertex* corner[3] = {&vertices[triangles[t]], &vertices[triangles[t + 1]], &vertices[triangles[t + 2]]};
    if (corner[0]->u == corner[1]->u && corner[0]->v == corner[1]->v && corner[0]->u == corner[2]->u &&
        corner[0]->v == corner[2]->v)
      continue;
    uint32_t sum[3] = {0, 0, 0};
    for (const nb3D::Vertex* c : corner) {
      const uint32_t rgb = PaletteColour(c->u, c->v);
      for (int k = 0; k < 3; ++k) sum[k] += (rgb >> (16 - 8 * k)) & 0xFF;
    }
    const uint32_t mean = (sum[0] + 1) / 3 << 16 | (sum[1] + 1) / 3 << 8 | (sum[2] + 1) / 3;
    float u, v;
    PaletteCoordinates(mean, &u, &v);
    for (int k = 0; k < 3; ++k) {
      nb3D::Vertex own = *corner[k];
      own.u = own.u2 = u, own.v = own.v2 = v;
      seamless_triangles[t + size_t(k)] = uint32_t(seamless_vertices.size());
      seamless_vertices.push_back(own);
    }
  }
}

void ModelPoint(const float volume[3], float model[3]) {
  model[0] = (volume[0] - kCentre) * kUnit;
  model[1] = -(volume[1] - kCentre) * kUnit;
  model[2] = -(volume[2] - kCentre) * kUnit;
}

void SurfaceMesh(const Volume& volume, int32_t threshold, std::vector<float>& field, IsoMesh& surface,
                 std::vector<nb3D::Vertex>& vertices, std::vector<uint32_t>& triangles) {
  field.resize(kVoxelCount);
  const uint32_t* voxels = volume.Data();
  for (size_t i = 0; i < kVoxelCount; ++i) field[i] = float(Density(voxels[i]));
  IsoGrid grid;
  grid.values = field.data();
  grid.nx = grid.ny = grid.nz = kSide;
  ExtractIsosurface(grid, float(std::clamp(threshold, 1, 255)) - 0.5f, true, &surface);
  vertices.resize(surface.VertexCount());
  for (size_t i = 0; i < vertices.size(); ++i) {
    const float* p = &surface.positions[3 * i];
    const float* n = &surface.normals[3 * i];
    nb3D::Vertex& v = vertices[i];
    float model[3];
    ModelPoint(p, model);
    v.x = model[0], v.y = model[1], v.z = model[2];
    v.nx = n[0], v.ny = -n[1], v.nz = -n[2];
    PaletteCoordinates(Colour(volume.Sample(p[0], p[1], p[2])), &v.u, &v.v);
    v.u2 = v.u, v.v2 = v.v;
  }
  // The half turn keeps handedness, so the winding stays counter-clockwise
  // seen from outside.
  triangles = surface.triangles;
}

void PointMesh(const Volume& volume, int32_t threshold, float size, const float right[3], const float up[3],
               const float forward[3], size_t max_points, std::vector<nb3D::Vertex>& vertices,
               std::vector<uint32_t>& triangles) {
  vertices.clear();
  triangles.clear();
  const uint32_t level = uint32_t(std::clamp(threshold, 1, 255));
  auto inside = [&volume, level](int32_t x, int32_t y, int32_t z) { return Density(volume.At(x, y, z)) >= level; };
  std::vector<uint32_t> shown;  // voxel indices
  for (int32_t z = 0; z < kSide; ++z)
    for (int32_t y = 0; y < kSide; ++y)
      for (int32_t x = 0; x < kSide; ++x) {
        if (!inside(x, y, z)) continue;
        if (inside(x - 1, y, z) && inside(x + 1, y, z) && inside(x, y - 1, z) && inside(x, y + 1, z) &&
            inside(x, y, z - 1) && inside(x, y, z + 1))
          continue;
        shown.push_back(uint32_t(Volume::Index(x, y, z)));
      }
  if (shown.empty() || max_points == 0) return;
  const size_t count = std::min(shown.size(), max_points);
  const float half = 0.5f * std::clamp(std::isfinite(size) ? size : 1.0f, 0.05f, 4.0f) * kUnit;
  for (size_t k = 0; k < count; ++k) {
    const uint32_t index = shown[k * shown.size() / count];
    const float p[3] = {float(index % kSide), float((index / kSide) % kSide), float(index / (kSide * kSide))};
    float centre[3], u, v;
    ModelPoint(p, centre);
    PaletteCoordinates(Colour(volume.Data()[index]), &u, &v);
    const uint32_t first = uint32_t(vertices.size());
    for (int corner = 0; corner < 4; ++corner) {
      const float sr = (corner & 1) ? half : -half, su = (corner & 2) ? half : -half;
      nb3D::Vertex q;
      q.x = centre[0] + sr * right[0] + su * up[0];
      q.y = centre[1] + sr * right[1] + su * up[1];
      q.z = centre[2] + sr * right[2] + su * up[2];
      q.nx = -forward[0], q.ny = -forward[1], q.nz = -forward[2];
      q.u = q.u2 = u, q.v = q.v2 = v;
      vertices.push_back(q);
    }
    // Counter-clockwise seen from the viewer (right x up points at it).
    triangles.insert(triangles.end(), {first, first + 1, first + 3, first, first + 3, first + 2});
  }
}

}  // namespace nimbo::wax
