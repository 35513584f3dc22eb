#include "render3d/isosurface.h"

#include <algorithm>
#include <cmath>

namespace nimbo {
namespace {

// The field copied once with non-finite samples replaced and, for
// `close_border`, a frame of outside samples around it, so the cell loop
// needs no bounds checks.
struct Field {
  std::vector<float> values;
  int32_t ex = 0, ey = 0, ez = 0;  // extended sides
  int32_t border = 0;              // 1 with the outside frame
  float At(int32_t x, int32_t y, int32_t z) const { return values[(size_t(z) * size_t(ey) + size_t(y)) * size_t(ex) + size_t(x)]; }
};

Field PrepareField(const IsoGrid& grid, float level, bool close_border) {
  Field f;
  f.border = close_border ? 1 : 0;
  f.ex = grid.nx + 2 * f.border, f.ey = grid.ny + 2 * f.border, f.ez = grid.nz + 2 * f.border;
  const size_t count = size_t(grid.nx) * size_t(grid.ny) * size_t(grid.nz);
  float highest = level;
  for (size_t i = 0; i < count; ++i) {
    if (std::isfinite(grid.values[i])) highest = std::max(highest, grid.values[i]);
  }
  // Outside, and low enough that a surface meeting the border closes within
  // half a cell beyond it.
  const float outside = level - std::max(1.0f, highest - level);
  f.values.assign(size_t(f.ex) * size_t(f.ey) * size_t(f.ez), outside);
  for (int32_t z = 0; z < grid.nz; ++z) {
    for (int32_t y = 0; y < grid.ny; ++y) {
      const float* src = grid.values + (size_t(z) * size_t(grid.ny) + size_t(y)) * size_t(grid.nx);
      float* dst = &f.values[(size_t(z + f.border) * size_t(f.ey) + size_t(y + f.border)) * size_t(f.ex) + size_t(f.border)];
      for (int32_t x = 0; x < grid.nx; ++x) dst[x] = std::isfinite(src[x]) ? src[x] : outside;
    }
  }
  return f;
}

class Extractor {
 public:
  Extractor(const Field& field, const IsoGrid& grid, float level, IsoMesh* out)
      : f_(field), grid_(grid), level_(level), out_(out) {}

  void Run() {
    const size_t layer = size_t(f_.ex) * size_t(f_.ey);
    for (int l = 0; l < 2; ++l) x_edges_[l].assign(layer, 0), y_edges_[l].assign(layer, 0);
    z_edges_.assign(layer, 0);
    MakeLayerVertices(0, 0);
    for (int32_t z = 0; z + 1 < f_.ez; ++z) {
      const int lo = z & 1, hi = lo ^ 1;
      MakeLayerVertices(z + 1, hi);
      MakeVerticalVertices(z);
      for (int32_t y = 0; y + 1 < f_.ey; ++y) {
        for (int32_t x = 0; x + 1 < f_.ex; ++x) Cell(x, y, z, lo, hi);
      }
    }
  }

 private:
  bool Inside(float v) const { return v > level_; }

  // The outward normal at a sample: minus the field's gradient.
  void Normal(int32_t x, int32_t y, int32_t z, float n[3]) const {
    const int32_t p[3] = {x, y, z}, side[3] = {f_.ex, f_.ey, f_.ez};
    for (int d = 0; d < 3; ++d) {
      int32_t a[3] = {x, y, z}, b[3] = {x, y, z};
      a[d] = std::max(0, p[d] - 1);
      b[d] = std::min(side[d] - 1, p[d] + 1);
      const float run = float(b[d] - a[d]) * grid_.spacing[d];
      n[d] = run != 0 ? -(f_.At(b[0], b[1], b[2]) - f_.At(a[0], a[1], a[2])) / run : 0.0f;
    }
  }

  // A vertex on the edge from sample (x, y, z) one step along `axis`.
  uint32_t AddVertex(int32_t x, int32_t y, int32_t z, int axis) {
    int32_t q[3] = {x, y, z};
    ++q[axis];
    const float v0 = f_.At(x, y, z), v1 = f_.At(q[0], q[1], q[2]);
    const float t = (level_ - v0) / (v1 - v0);
    const int32_t p[3] = {x, y, z};
    float n0[3], n1[3];
    Normal(x, y, z, n0);
    Normal(q[0], q[1], q[2], n1);
    float n[3];
    for (int d = 0; d < 3; ++d) {
      const float at = float(p[d] - f_.border) + (d == axis ? t : 0.0f);
      out_->positions.push_back(grid_.origin[d] + at * grid_.spacing[d]);
      n[d] = n0[d] + t * (n1[d] - n0[d]);
    }
    const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int d = 0; d < 3; ++d) out_->normals.push_back(length > 0 ? n[d] / length : 0.0f);
    return uint32_t(out_->positions.size() / 3 - 1);
  }

  void MakeLayerVertices(int32_t z, int l) {
    for (int32_t y = 0; y < f_.ey; ++y) {
      for (int32_t x = 0; x < f_.ex; ++x) {
        const bool here = Inside(f_.At(x, y, z));
        const size_t i = size_t(y) * size_t(f_.ex) + size_t(x);
        if (x + 1 < f_.ex && here != Inside(f_.At(x + 1, y, z))) x_edges_[l][i] = AddVertex(x, y, z, 0);
        if (y + 1 < f_.ey && here != Inside(f_.At(x, y + 1, z))) y_edges_[l][i] = AddVertex(x, y, z, 1);
      }
    }
  }

  void MakeVerticalVertices(int32_t z) {
    for (int32_t y = 0; y < f_.ey; ++y) {
      for (int32_t x = 0; x < f_.ex; ++x) {
        if (Inside(f_.At(x, y, z)) != Inside(f_.At(x, y, z + 1)))
          z_edges_[size_t(y) * size_t(f_.ex) + size_t(x)] = AddVertex(x, y, z, 2);
      }
    }
  }

  void Cell(int32_t x, int32_t y, int32_t z, int lo, int hi) {
    int cube_case = 0;
    for (int c = 0; c < 8; ++c) {
      if (Inside(f_.At(x + (c & 1), y + (c >> 1 & 1), z + (c >> 2 & 1)))) cube_case |= 1 << c;
    }
    if (cube_case == 0 || cube_case == 255) return;
    const std::vector<uint8_t>& triangles = IsoCaseTriangles(cube_case);
    const size_t row = size_t(f_.ex);
    const size_t at = size_t(y) * row + size_t(x);
    uint32_t edge_vertex[12];
    for (int k = 0; k < 4; ++k) {
      const int a = k & 1, b = k >> 1;
      edge_vertex[k] = x_edges_[b ? hi : lo][at + size_t(a) * row];
      edge_vertex[4 + k] = y_edges_[b ? hi : lo][at + size_t(a)];
      edge_vertex[8 + k] = z_edges_[at + size_t(b) * row + size_t(a)];
    }
    for (uint8_t e : triangles) out_->triangles.push_back(edge_vertex[e]);
  }

  const Field& f_;
  const IsoGrid& grid_;
  float level_;
  IsoMesh* out_;
  std::vector<uint32_t> x_edges_[2], y_edges_[2], z_edges_;
};

}  // namespace

void ExtractIsosurface(const IsoGrid& grid, float level, bool close_border, IsoMesh* out) {
  out->positions.clear();
  out->normals.clear();
  out->triangles.clear();
  const int32_t least = close_border ? 1 : 2;
  if (!grid.values || grid.nx < least || grid.ny < least || grid.nz < least || !std::isfinite(level)) return;
  const Field field = PrepareField(grid, level, close_border);
  Extractor(field, grid, level, out).Run();
}

}  // namespace nimbo
