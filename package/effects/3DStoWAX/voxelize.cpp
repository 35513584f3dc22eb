// 3DStoWAX's voxeliser (see voxelize.h).
#include "voxelize.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace nimbo::wax {
namespace {

constexpr int64_t kSub = 256;  // sub-voxel steps of the snapped corners

// A triangle in volume units, snapped: corners in 1/256 voxel (integers) for
// the crossing test, and as floats for the crossing depth.
struct Snapped {
  int64_t q[3][3];
  float f[3][3];
  uint32_t colour;
};

// Twice the signed area of (a, b, p) in the plane of axes u, v.
int64_t Edge(const int64_t a[3], const int64_t b[3], int64_t pu, int64_t pv, int u, int v) {
  return (b[u] - a[u]) * (pv - a[v]) - (b[v] - a[v]) * (pu - a[u]);
}

// Top-left rule for a counter-clockwise triangle (positive area) in the
// (u, v) plane: a point exactly on edge a->b belongs to the triangle when the
// edge is a "top" edge (horizontal, running toward -u) or a "left" edge
// (running toward -v).
bool OwnsEdge(const int64_t a[3], const int64_t b[3], int u, int v) {
  const int64_t du = b[u] - a[u], dv = b[v] - a[v];
  return (dv == 0 && du < 0) || dv < 0;
}

struct Hit {
  float depth;
  uint32_t colour;
};

// Every crossing of rays along `axis` (through voxel centres of the other
// two axes) with the triangles: hits[column] with column = v * 64 + u.
void CastRays(const std::vector<Snapped>& tris, int axis, std::vector<std::vector<Hit>>& hits) {
  const int u = (axis + 1) % 3, v = (axis + 2) % 3;
  hits.assign(size_t(kSide) * kSide, {});
  for (const Snapped& t : tris) {
    const int64_t* a = t.q[0];
    const int64_t* b = t.q[1];
    const int64_t* c = t.q[2];
    int64_t area = Edge(a, b, c[u], c[v], u, v);
    if (area == 0) continue;  // seen edge-on: no ray crosses it
    if (area < 0) std::swap(b, c), area = -area;
    const int64_t lo_u = std::min({a[u], b[u], c[u]}), hi_u = std::max({a[u], b[u], c[u]});
    const int64_t lo_v = std::min({a[v], b[v], c[v]}), hi_v = std::max({a[v], b[v], c[v]});
    // Columns whose centre (i + 0.5) * 256 lies in the box.
    const int32_t i0 = int32_t(std::max<int64_t>(0, (lo_u - kSub / 2 + kSub - 1) / kSub));
    const int32_t i1 = int32_t(std::min<int64_t>(kSide - 1, (hi_u - kSub / 2) >= 0 ? (hi_u - kSub / 2) / kSub : -1));
    const int32_t j0 = int32_t(std::max<int64_t>(0, (lo_v - kSub / 2 + kSub - 1) / kSub));
    const int32_t j1 = int32_t(std::min<int64_t>(kSide - 1, (hi_v - kSub / 2) >= 0 ? (hi_v - kSub / 2) / kSub : -1));
    const bool own_ab = OwnsEdge(a, b, u, v), own_bc = OwnsEdge(b, c, u, v), own_ca = OwnsEdge(c, a, u, v);
    for (int32_t j = j0; j <= j1; ++j) {
      const int64_t pv = int64_t(j) * kSub + kSub / 2;
      for (int32_t i = i0; i <= i1; ++i) {
        const int64_t pu = int64_t(i) * kSub + kSub / 2;
        const int64_t w_c = Edge(a, b, pu, pv, u, v), w_a = Edge(b, c, pu, pv, u, v), w_b = Edge(c, a, pu, pv, u, v);
        if (w_c < 0 || w_a < 0 || w_b < 0) continue;
        if ((w_c == 0 && !own_ab) || (w_a == 0 && !own_bc) || (w_b == 0 && !own_ca)) continue;
        // Depth by barycentric weights (the corners in their swapped order).
        const float* fa = t.f[0];
        const float* fb = (b == t.q[1]) ? t.f[1] : t.f[2];
        const float* fc = (c == t.q[2]) ? t.f[2] : t.f[1];
        const double depth = (double(w_a) * fa[axis] + double(w_b) * fb[axis] + double(w_c) * fc[axis]) / double(area);
        hits[size_t(j) * kSide + size_t(i)].push_back({float(depth), t.colour});
      }
    }
  }
}

// Index of voxel (coordinate `along` on `axis`, column i on axis+1, j on axis+2).
size_t VoxelOn(int axis, int32_t along, int32_t i, int32_t j) {
  int32_t p[3];
  p[axis] = along, p[(axis + 1) % 3] = i, p[(axis + 2) % 3] = j;
  return Volume::Index(p[0], p[1], p[2]);
}

// Nearest marked point per voxel, spread by sweeping the volume forward and
// back: each voxel looks at the nearest points its already-swept neighbours
// know and keeps the closest.
struct Nearest {
  float point[3];
  uint32_t colour;
  bool known;
};

void SpreadNearest(std::vector<Nearest>& near) {
  auto consider = [&near](size_t to, size_t from, const float centre[3]) {
    const Nearest& n = near[from];
    if (!n.known) return;
    Nearest& t = near[to];
    auto dist = [centre](const float p[3]) {
      const float dx = p[0] - centre[0], dy = p[1] - centre[1], dz = p[2] - centre[2];
      return dx * dx + dy * dy + dz * dz;
    };
    if (!t.known || dist(n.point) < dist(t.point)) t = n;
  };
  for (int pass = 0; pass < 4; ++pass) {
    const int step = (pass % 2 == 0) ? 1 : -1;
    for (int32_t zz = 0; zz < kSide; ++zz) {
      const int32_t z = step > 0 ? zz : kSide - 1 - zz;
      for (int32_t yy = 0; yy < kSide; ++yy) {
        const int32_t y = step > 0 ? yy : kSide - 1 - yy;
        for (int32_t xx = 0; xx < kSide; ++xx) {
          const int32_t x = step > 0 ? xx : kSide - 1 - xx;
          const float centre[3] = {x + 0.5f, y + 0.5f, z + 0.5f};
          const size_t at = Volume::Index(x, y, z);
          // The 13 neighbours already swept in this direction.
          for (int dz = -1; dz <= 0; ++dz)
            for (int dy = -1; dy <= 1; ++dy)
              for (int dx = -1; dx <= 1; ++dx) {
                if (dz == 0 && (dy > 0 || (dy == 0 && dx >= 0))) continue;
                const int32_t nx = x + dx * step, ny = y + dy * step, nz = z + dz * step;
                if (Volume::Inside(nx, ny, nz)) consider(at, Volume::Index(nx, ny, nz), centre);
              }
        }
      }
    }
  }
}

}  // namespace

void VoxelizeTriangles(const std::vector<VoxelTriangle>& triangles, Volume* out) {
  out->Clear();
  float lo[3], hi[3];
  for (int d = 0; d < 3; ++d) lo[d] = std::numeric_limits<float>::max(), hi[d] = -std::numeric_limits<float>::max();
  std::vector<const VoxelTriangle*> usable;
  for (const VoxelTriangle& t : triangles) {
    bool finite = true;
    for (const auto& p : t.corner) finite = finite && std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    if (!finite) continue;
    usable.push_back(&t);
    for (const auto& p : t.corner)
      for (int d = 0; d < 3; ++d) lo[d] = std::min(lo[d], p[d]), hi[d] = std::max(hi[d], p[d]);
  }
  if (usable.empty()) return;
  const double extent = std::max({double(hi[0]) - lo[0], double(hi[1]) - lo[1], double(hi[2]) - lo[2]});
  if (!(extent > 0) || !std::isfinite(extent)) return;
  const double scale = kFitVoxels / extent;
  const double middle[3] = {(double(lo[0]) + hi[0]) / 2, (double(lo[1]) + hi[1]) / 2, (double(lo[2]) + hi[2]) / 2};
  const double flip[3] = {1, -1, -1};  // a half turn about x: the scene's up is the volume's -y

  std::vector<Snapped> tris;
  tris.reserve(usable.size());
  for (const VoxelTriangle* t : usable) {
    Snapped s;
    for (int k = 0; k < 3; ++k)
      for (int d = 0; d < 3; ++d) {
        const double volume_units = (double(t->corner[k][d]) - middle[d]) * scale * flip[d] + kSide / 2.0;
        s.q[k][d] = int64_t(std::llround(volume_units * kSub));
        s.f[k][d] = float(double(s.q[k][d]) / kSub);
      }
    s.colour = t->colour & 0xFFFFFFu;
    tris.push_back(s);
  }

  std::vector<std::vector<Hit>> hits;
  std::vector<Nearest> near(kVoxelCount, Nearest{{0, 0, 0}, 0, false});
  for (int axis = 2; axis >= 0; --axis) {
    CastRays(tris, axis, hits);
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;
    for (int32_t j = 0; j < kSide; ++j)
      for (int32_t i = 0; i < kSide; ++i) {
        std::vector<Hit>& column = hits[size_t(j) * kSide + size_t(i)];
        if (column.empty()) continue;
        // Every crossing marks the voxel it lies in with its face's colour.
        for (const Hit& h : column) {
          const int32_t along = std::clamp(int32_t(std::floor(h.depth)), 0, kSide - 1);
          Nearest& n = near[VoxelOn(axis, along, i, j)];
          float point[3];
          point[axis] = h.depth, point[u] = i + 0.5f, point[v] = j + 0.5f;
          n = {{point[0], point[1], point[2]}, h.colour, true};
        }
        if (axis != 2) continue;
        // The fill: voxel centres between the first and second crossing,
        // the third and fourth, and so on.
        std::sort(column.begin(), column.end(), [](const Hit& a, const Hit& b) { return a.depth < b.depth; });
        for (size_t k = 0; k + 1 < column.size(); k += 2) {
          const int32_t from = std::max(0, int32_t(std::ceil(column[k].depth - 0.5f)));
          const int32_t to = std::min(kSide - 1, int32_t(std::ceil(column[k + 1].depth - 0.5f)) - 1);
          for (int32_t z = from; z <= to; ++z) out->Data()[VoxelOn(axis, z, i, j)] = 0xFF000000u;
        }
      }
  }
  SpreadNearest(near);
  uint32_t* voxels = out->Data();
  for (size_t i = 0; i < kVoxelCount; ++i) {
    if (voxels[i]) voxels[i] |= near[i].colour;
  }
}

}  // namespace nimbo::wax
