#include "grid_mesh.h"

#include <algorithm>
#include <cmath>

namespace nimbo::e3d {
namespace {

struct Vec3 {
  float x = 0, y = 0, z = 0;
};
Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
float Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3 Cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
// Unit length, or `fallback` when `a` has none (or is not finite).
Vec3 Normalized(Vec3 a, Vec3 fallback) {
  const float length = std::sqrt(Dot(a, a));
  if (!(length > 1e-20f) || !std::isfinite(length)) return fallback;
  return a * (1.0f / length);
}
constexpr Vec3 kUp{0, 1, 0};

Vec3 At(const std::vector<float>& v, size_t k) { return {v[3 * k], v[3 * k + 1], v[3 * k + 2]}; }

// The camera's axes in world space: right, up and the viewing direction,
// turned by the roll about the viewing direction.
struct ViewBasis {
  Vec3 eye, right, up, forward;
};

ViewBasis BasisOf(const CameraValues& camera) {
  ViewBasis b;
  b.eye = {camera.position[0], camera.position[1], camera.position[2]};
  const Vec3 target{camera.target[0], camera.target[1], camera.target[2]};
  b.forward = Normalized(target - b.eye, {0, 0, -1});
  // Straight up or down the world's up axis gives no right vector: then z
  // serves as the up reference.
  Vec3 right = Cross(b.forward, kUp);
  if (Dot(right, right) < 1e-12f) right = Cross(b.forward, {0, 0, -1});
  right = Normalized(right, {1, 0, 0});
  const Vec3 up = Cross(right, b.forward);
  const float c = std::cos(camera.roll), s = std::sin(camera.roll);
  b.right = right * c + up * s;
  b.up = up * c - right * s;
  return b;
}

// Sphere-map coordinates of a vertex at `p` with unit normal `n`: v grows
// downward like the rows of a texture.
void SphereMap(const ViewBasis& view, Vec3 p, Vec3 n, float& u, float& v) {
  const Vec3 ray = Normalized(p - view.eye, view.forward);
  const Vec3 r = ray - n * (2.0f * Dot(n, ray));
  // In camera coordinates, z toward the viewer.
  const float rx = Dot(r, view.right), ry = Dot(r, view.up), rz = -Dot(r, view.forward);
  const float m = 2.0f * std::sqrt(rx * rx + ry * ry + (rz + 1.0f) * (rz + 1.0f));
  if (!(m > 1e-12f)) {
    u = v = 0.5f;
    return;
  }
  u = 0.5f + rx / m;
  v = 0.5f - ry / m;
}

// Texture coordinates of set 1 or 2 for every vertex by its mode.
void FillSet(int32_t mode, int32_t set_index, const GridValues& grid, const GridNormals& normals, const ViewBasis& view,
             std::vector<nb3D::Vertex>& vertices) {
  const size_t imax = size_t(grid.imax), jmax = size_t(grid.jmax), n = imax * jmax;
  const bool second = set_index == 2;
  auto store = [&](size_t k, float u, float v) {
    if (second)
      vertices[k].u2 = u, vertices[k].v2 = v;
    else
      vertices[k].u = u, vertices[k].v = v;
  };
  if (mode == kUvFormulas) {
    const std::vector<float>& us = second ? grid.u2 : grid.u;
    const std::vector<float>& vs = second ? grid.v2 : grid.v;
    for (size_t k = 0; k < n; ++k) store(k, us[k], vs[k]);
    return;
  }
  for (size_t k = 0; k < n; ++k) {
    const size_t i = k % imax, j = k / imax;
    const Vec3 p{grid.x[k], grid.y[k], grid.z[k]};
    Vec3 normal = At(normals.vertex, k);
    if (mode == kUvEnvFaces && imax > 1 && jmax > 1) {
      const size_t cell = std::min(j, jmax - 2) * (imax - 1) + std::min(i, imax - 2);
      normal = Normalized(At(normals.face, cell), normal);
    } else if (mode == kUvEnvFormulas) {
      const std::vector<float>& nx = second ? grid.nx2 : grid.nx;
      const std::vector<float>& ny = second ? grid.ny2 : grid.ny;
      const std::vector<float>& nz = second ? grid.nz2 : grid.nz;
      const Vec3 tangent = Normalized(Vec3{grid.sx[k], grid.sy[k], grid.sz[k]} - p, {});
      const Vec3 given{nx[k], ny[k], nz[k]};
      // The formula normal made square to the surface along j.
      normal = Normalized(given - tangent * Dot(given, tangent), normal);
    }
    float u, v;
    SphereMap(view, p, normal, u, v);
    store(k, u, v);
  }
}

}  // namespace

bool CellVisible(std::string_view ipattern, std::string_view jpattern, int32_t i, int32_t j) {
  if (ipattern.empty() || jpattern.empty()) return true;
  return ipattern[size_t(i) % ipattern.size()] == jpattern[size_t(j) % jpattern.size()];
}

void BuildTriangles(const FormulaSet& set, bool patterns_on, std::vector<uint32_t>& indices) {
  indices.clear();
  if (set.imax < 2 || set.jmax < 2 || (!set.front && !set.back)) return;
  const uint32_t imax = uint32_t(set.imax);
  for (int32_t j = 0; j + 1 < set.jmax; ++j) {
    for (int32_t i = 0; i + 1 < set.imax; ++i) {
      if (patterns_on && !CellVisible(set.ipattern, set.jpattern, i, j)) continue;
      const uint32_t v00 = uint32_t(j) * imax + uint32_t(i), v10 = v00 + 1, v01 = v00 + imax, v11 = v01 + 1;
      if (set.front) indices.insert(indices.end(), {v00, v01, v11, v00, v11, v10});
      if (set.back) indices.insert(indices.end(), {v00, v11, v01, v00, v10, v11});
    }
  }
}

void ComputeNormals(const GridValues& grid, bool loopi, bool loopj, GridNormals& out) {
  const size_t imax = size_t(grid.imax), jmax = size_t(grid.jmax);
  const size_t cells = imax > 1 && jmax > 1 ? (imax - 1) * (jmax - 1) : 0;
  out.face.assign(3 * cells, 0.0f);
  out.vertex.assign(3 * imax * jmax, 0.0f);
  auto pos = [&](size_t i, size_t j) {
    const size_t k = j * imax + i;
    return Vec3{grid.x[k], grid.y[k], grid.z[k]};
  };
  auto add = [&](std::vector<float>& to, size_t k, Vec3 v) {
    to[3 * k] += v.x;
    to[3 * k + 1] += v.y;
    to[3 * k + 2] += v.z;
  };
  for (size_t j = 0; j + 1 < jmax; ++j) {
    for (size_t i = 0; i + 1 < imax; ++i) {
      const Vec3 p00 = pos(i, j), p10 = pos(i + 1, j), p01 = pos(i, j + 1), p11 = pos(i + 1, j + 1);
      Vec3 n = Cross(p01 - p00, p11 - p00) + Cross(p11 - p00, p10 - p00);
      if (!std::isfinite(n.x) || !std::isfinite(n.y) || !std::isfinite(n.z)) n = {};
      add(out.face, j * (imax - 1) + i, n);
      for (size_t k : {j * imax + i, j * imax + i + 1, (j + 1) * imax + i, (j + 1) * imax + i + 1})
        add(out.vertex, k, n);
    }
  }
  // The closing column and row are the first ones again: share the sums.
  auto join = [&](size_t a, size_t b) {
    const Vec3 sum = At(out.vertex, a) + At(out.vertex, b);
    for (size_t k : {a, b})
      for (int c = 0; c < 3; ++c) out.vertex[3 * k + size_t(c)] = c == 0 ? sum.x : c == 1 ? sum.y : sum.z;
  };
  if (loopi && imax > 1)
    for (size_t j = 0; j < jmax; ++j) join(j * imax, j * imax + imax - 1);
  if (loopj && jmax > 1)
    for (size_t i = 0; i < imax; ++i) join(i, (jmax - 1) * imax + i);
  for (size_t k = 0; k < imax * jmax; ++k) {
    const Vec3 n = Normalized(At(out.vertex, k), kUp);
    out.vertex[3 * k] = n.x;
    out.vertex[3 * k + 1] = n.y;
    out.vertex[3 * k + 2] = n.z;
  }
}

void AssembleVertices(const FormulaSet& set, const GridValues& grid, const GridNormals& normals,
                      const CameraValues& camera, std::vector<nb3D::Vertex>& vertices) {
  const size_t n = size_t(grid.imax) * size_t(grid.jmax);
  vertices.resize(n);
  for (size_t k = 0; k < n; ++k) {
    nb3D::Vertex& v = vertices[k];
    v.x = grid.x[k];
    v.y = grid.y[k];
    v.z = grid.z[k];
    v.nx = normals.vertex[3 * k];
    v.ny = normals.vertex[3 * k + 1];
    v.nz = normals.vertex[3 * k + 2];
  }
  const ViewBasis view = BasisOf(camera);
  FillSet(set.uvmode1, 1, grid, normals, view, vertices);
  FillSet(set.uvmode2, 2, grid, normals, view, vertices);
}

}  // namespace nimbo::e3d
