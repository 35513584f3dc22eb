#include "render3d/isosurface.h"

#include <algorithm>
#include <cmath>

namespace nimbo {
namespace {

// The case table flattened for the cell loop.
struct IsoCase {
  uint8_t count = 0;  // edge indices, three per triangle
  uint8_t edges[36] = {};
};
struct FlatCases {
  IsoCase cases[256];
  FlatCases() {
    for (int c = 0; c < 256; ++c) {
      const std::vector<uint8_t>& t = IsoCaseTriangles(c);
      cases[c].count = uint8_t(t.size());
      std::copy(t.begin(), t.end(), cases[c].edges);
    }
  }
};
const FlatCases& Cases() {
  static const FlatCases cases;
  return cases;
}

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

// Inside flags as bit rows (64 samples a word), so the scans for crossed
// edges and for cells the surface passes through skip whole runs of cells
// that are all inside or all outside in a few word operations.
class Extractor {
 public:
  Extractor(const Field& field, const IsoGrid& grid, float level, IsoMesh* out)
      : f_(field), grid_(grid), level_(level), out_(out), row_(size_t(field.ex)), layer_(row_ * size_t(field.ey)),
        words_(size_t(field.ex + 63) / 64 + 1) {}

  void Run() {
    bits_.assign(size_t(f_.ez) * size_t(f_.ey) * words_, 0);
    for (int32_t z = 0; z < f_.ez; ++z) {
      for (int32_t y = 0; y < f_.ey; ++y) {
        const float* v = &f_.values[size_t(z) * layer_ + size_t(y) * row_];
        uint64_t* r = Row(z, y);
        for (int32_t x = 0; x < f_.ex; ++x) r[x >> 6] |= uint64_t(v[x] > level_) << (x & 63);
      }
    }
    // Bits of the x positions where a cell (or an x edge) starts.
    cell_mask_.assign(words_, 0);
    for (int32_t x = 0; x + 1 < f_.ex; ++x) cell_mask_[size_t(x) >> 6] |= uint64_t(1) << (x & 63);

    for (int l = 0; l < 2; ++l) x_edges_[l].assign(layer_, 0), y_edges_[l].assign(layer_, 0);
    z_edges_.assign(layer_, 0);
    MakeLayerVertices(0, 0);
    for (int32_t z = 0; z + 1 < f_.ez; ++z) {
      const int lo = z & 1, hi = lo ^ 1;
      MakeLayerVertices(z + 1, hi);
      MakeVerticalVertices(z);
      for (int32_t y = 0; y + 1 < f_.ey; ++y) Cells(z, y, lo, hi);
    }
  }

 private:
  uint64_t* Row(int32_t z, int32_t y) { return &bits_[(size_t(z) * size_t(f_.ey) + size_t(y)) * words_]; }
  // Word i of row r shifted down by one bit: bit x tells about sample x + 1.
  uint64_t Next(const uint64_t* r, size_t i) const { return r[i] >> 1 | (i + 1 < words_ ? r[i + 1] << 63 : 0); }
  static int Bit(const uint64_t* r, int32_t x) { return int(r[size_t(x) >> 6] >> (x & 63) & 1); }

  // Calls `visit(x)` for each set bit of `word` (word index i).
  template <class Visit>
  static void ForEachBit(uint64_t word, size_t i, Visit visit) {
    while (word) {
      visit(int32_t(i * 64 + size_t(__builtin_ctzll(word))));
      word &= word - 1;
    }
  }

  void Cells(int32_t z, int32_t y, int lo, int hi) {
    const uint64_t* r00 = Row(z, y);
    const uint64_t* r01 = Row(z, y + 1);
    const uint64_t* r10 = Row(z + 1, y);
    const uint64_t* r11 = Row(z + 1, y + 1);
    for (size_t i = 0; i < words_; ++i) {
      const uint64_t all = r00[i] & r01[i] & r10[i] & r11[i] & Next(r00, i) & Next(r01, i) & Next(r10, i) & Next(r11, i);
      const uint64_t any = r00[i] | r01[i] | r10[i] | r11[i] | Next(r00, i) | Next(r01, i) | Next(r10, i) | Next(r11, i);
      ForEachBit(any & ~all & cell_mask_[i], i, [&](int32_t x) {
        const int cube_case = Bit(r00, x) | Bit(r00, x + 1) << 1 | Bit(r01, x) << 2 | Bit(r01, x + 1) << 3 |
                              Bit(r10, x) << 4 | Bit(r10, x + 1) << 5 | Bit(r11, x) << 6 | Bit(r11, x + 1) << 7;
        Cell(cube_case, size_t(y) * row_ + size_t(x), lo, hi);
      });
    }
  }

  // The outward normal at a sample: minus the field's gradient.
  void Normal(int32_t x, int32_t y, int32_t z, float n[3]) const {
    const int32_t p[3] = {x, y, z}, side[3] = {f_.ex, f_.ey, f_.ez};
    const size_t stride[3] = {1, row_, layer_};
    const size_t at = size_t(z) * layer_ + size_t(y) * row_ + size_t(x);
    for (int d = 0; d < 3; ++d) {
      const int32_t below = p[d] > 0 ? 1 : 0, above = p[d] + 1 < side[d] ? 1 : 0;
      const float run = float(below + above) * grid_.spacing[d];
      const float diff = f_.values[at + size_t(above) * stride[d]] - f_.values[at - size_t(below) * stride[d]];
      n[d] = run != 0 ? -diff / run : 0.0f;
    }
  }

  // A vertex on the edge from sample (x, y, z) one step along `axis`.
  uint32_t AddVertex(int32_t x, int32_t y, int32_t z, int axis) {
    int32_t q[3] = {x, y, z};
    ++q[axis];
    const float v0 = f_.At(x, y, z), v1 = f_.At(q[0], q[1], q[2]);
    const float t = (level_ - v0) / (v1 - v0);
    const int32_t p[3] = {x, y, z};
    float n0[3], n1[3], n[3];
    Normal(x, y, z, n0);
    Normal(q[0], q[1], q[2], n1);
    float position[3];
    for (int d = 0; d < 3; ++d) {
      const float at = float(p[d] - f_.border) + (d == axis ? t : 0.0f);
      position[d] = grid_.origin[d] + at * grid_.spacing[d];
      n[d] = n0[d] + t * (n1[d] - n0[d]);
    }
    const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    const float scale = length > 0 ? 1.0f / length : 0.0f;
    out_->positions.insert(out_->positions.end(), position, position + 3);
    out_->normals.insert(out_->normals.end(), {n[0] * scale, n[1] * scale, n[2] * scale});
    return uint32_t(out_->positions.size() / 3 - 1);
  }

  void MakeLayerVertices(int32_t z, int l) {
    for (int32_t y = 0; y < f_.ey; ++y) {
      const uint64_t* r = Row(z, y);
      const size_t line = size_t(y) * row_;
      for (size_t i = 0; i < words_; ++i) {
        ForEachBit((r[i] ^ Next(r, i)) & cell_mask_[i], i,
                   [&](int32_t x) { x_edges_[l][line + size_t(x)] = AddVertex(x, y, z, 0); });
      }
      if (y + 1 == f_.ey) continue;
      const uint64_t* up = Row(z, y + 1);
      for (size_t i = 0; i < words_; ++i) {
        ForEachBit(r[i] ^ up[i], i, [&](int32_t x) { y_edges_[l][line + size_t(x)] = AddVertex(x, y, z, 1); });
      }
    }
  }

  void MakeVerticalVertices(int32_t z) {
    for (int32_t y = 0; y < f_.ey; ++y) {
      const uint64_t* r = Row(z, y);
      const uint64_t* above = Row(z + 1, y);
      const size_t line = size_t(y) * row_;
      for (size_t i = 0; i < words_; ++i) {
        ForEachBit(r[i] ^ above[i], i, [&](int32_t x) { z_edges_[line + size_t(x)] = AddVertex(x, y, z, 2); });
      }
    }
  }

  void Cell(int cube_case, size_t at, int lo, int hi) {
    const IsoCase& c = Cases().cases[cube_case];
    uint32_t edge_vertex[12];
    for (int k = 0; k < 4; ++k) {
      const size_t a = size_t(k & 1), b = size_t(k >> 1);
      edge_vertex[k] = x_edges_[b ? hi : lo][at + a * row_];
      edge_vertex[4 + k] = y_edges_[b ? hi : lo][at + a];
      edge_vertex[8 + k] = z_edges_[at + b * row_ + a];
    }
    for (int i = 0; i < c.count; ++i) out_->triangles.push_back(edge_vertex[c.edges[i]]);
  }

  const Field& f_;
  const IsoGrid& grid_;
  float level_;
  IsoMesh* out_;
  size_t row_, layer_;
  size_t words_;  // words per bit row, one to spare so Next may read past the end
  std::vector<uint64_t> bits_;
  std::vector<uint64_t> cell_mask_;
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
  Cases();  // built once, before the loop
  Extractor(field, grid, level, out).Run();
}

}  // namespace nimbo
