#include "donkey_shapes.h"

#include <algorithm>
#include <cmath>

namespace nimbo::donkey {
namespace {

constexpr float kPi = 3.14159265358979f;

void Add(ShapeMesh& m, float x, float y, float z, float nx, float ny, float nz, float u, float v) {
  m.vertices.push_back({x, y, z, nx, ny, nz, u, v, u, v});
}

// Two triangles over the quad a b c d (counter-clockwise as seen).
void Quad(ShapeMesh& m, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  m.triangles.insert(m.triangles.end(), {a, b, c, a, c, d});
}

void Cube(ShapeMesh& m) {
  const float h = kShapeSize / 2;
  // Per face: the outward axis, and the two axes along which u and v run
  // (u to the right and v down as seen from outside).
  struct Face {
    int n, u, v;
    float sn, su, sv;
  };
  const Face faces[6] = {{2, 0, 1, 1, 1, -1},  {2, 0, 1, -1, -1, -1}, {0, 2, 1, 1, -1, -1},
                         {0, 2, 1, -1, 1, -1}, {1, 0, 2, 1, 1, 1},    {1, 0, 2, -1, 1, -1}};
  for (const Face& f : faces) {
    const uint32_t first = uint32_t(m.vertices.size());
    const float corner[4][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};  // (u, v): counter-clockwise seen from outside
    for (const auto& c : corner) {
      float p[3] = {0, 0, 0}, n[3] = {0, 0, 0};
      p[f.n] = f.sn * h;
      n[f.n] = f.sn;
      p[f.u] = f.su * (c[0] * 2 - 1) * h;
      p[f.v] = f.sv * (c[1] * 2 - 1) * h;
      Add(m, p[0], p[1], p[2], n[0], n[1], n[2], c[0], c[1]);
    }
    Quad(m, first, first + 1, first + 2, first + 3);
  }
}

// A grid of (around + 1) x (along + 1) vertices from `point(s, t)` with s,
// t in 0..1 (the seam column repeated so the texture wraps cleanly); quads
// wound so that `outward` normals face the viewer.
template <class Point>
void Grid(ShapeMesh& m, int32_t around, int32_t along, float v_repeats, bool flip, Point point) {
  const uint32_t first = uint32_t(m.vertices.size());
  for (int32_t j = 0; j <= along; ++j) {
    for (int32_t i = 0; i <= around; ++i) {
      const float s = float(i) / float(around), t = float(j) / float(along);
      float p[3], n[3];
      point(s, t, p, n);
      Add(m, p[0], p[1], p[2], n[0], n[1], n[2], s, t * v_repeats);
    }
  }
  const uint32_t row = uint32_t(around + 1);
  for (int32_t j = 0; j < along; ++j) {
    for (int32_t i = 0; i < around; ++i) {
      const uint32_t a = first + uint32_t(j) * row + uint32_t(i);
      if (flip) Quad(m, a, a + 1, a + row + 1, a + row);
      else Quad(m, a, a + row, a + row + 1, a + 1);
    }
  }
}

void Sphere(ShapeMesh& m, int32_t detail) {
  const float r = kShapeSize / 2;
  Grid(m, detail, detail / 2, 1.0f, false, [r](float s, float t, float* p, float* n) {
    const float lon = s * 2 * kPi, lat = t * kPi;  // lat 0 at the top
    n[0] = std::sin(lat) * std::sin(lon), n[1] = std::cos(lat), n[2] = std::sin(lat) * std::cos(lon);
    for (int d = 0; d < 3; ++d) p[d] = r * n[d];
  });
  // The rows at the poles have zero-width quads: drop their empty halves.
  std::vector<uint32_t> kept;
  for (size_t k = 0; k < m.triangles.size(); k += 3) {
    const nb3D::Vertex* v[3] = {&m.vertices[m.triangles[k]], &m.vertices[m.triangles[k + 1]],
                                &m.vertices[m.triangles[k + 2]]};
    auto same = [](const nb3D::Vertex* a, const nb3D::Vertex* b) {
      return std::fabs(a->x - b->x) < 1e-4f && std::fabs(a->y - b->y) < 1e-4f && std::fabs(a->z - b->z) < 1e-4f;
    };
    if (same(v[0], v[1]) || same(v[1], v[2]) || same(v[0], v[2])) continue;
    kept.insert(kept.end(), m.triangles.begin() + long(k), m.triangles.begin() + long(k) + 3);
  }
  m.triangles.swap(kept);
}

void Torus(ShapeMesh& m, int32_t detail) {
  const float ring = kShapeSize * 0.35f, tube = kShapeSize * 0.15f;
  Grid(m, detail, std::max(kMinDetail, detail / 2), 1.0f, true, [ring, tube](float s, float t, float* p, float* n) {
    const float a = s * 2 * kPi, b = t * 2 * kPi;
    // Around the ring in the x-z plane, and around the tube from its
    // outer equator over the top.
    const float cx = std::sin(a), cz = std::cos(a);
    n[0] = std::cos(b) * cx, n[1] = std::sin(b), n[2] = std::cos(b) * cz;
    p[0] = ring * cx + tube * n[0], p[1] = tube * n[1], p[2] = ring * cz + tube * n[2];
  });
}

void Cylinder(ShapeMesh& m, int32_t detail, bool inside) {
  const float r = inside ? kTunnelRadius : kShapeSize / 2;
  const float top = inside ? 0.0f : kShapeSize / 2, bottom = inside ? -kTunnelLength : -kShapeSize / 2;
  const float v_repeats = inside ? kTunnelRepeats : 1.0f;
  // The side: along y for the closed cylinder, along -z for the tunnel.
  // The tube runs along z where the closed cylinder runs along y: the same
  // parameters turn the other way round, which faces the tube inward.
  Grid(m, detail, inside ? detail : 1, v_repeats, false, [=](float s, float t, float* p, float* n) {
    const float a = s * 2 * kPi;
    const float along = top + (bottom - top) * t;
    if (inside) {
      p[0] = r * std::sin(a), p[1] = r * std::cos(a), p[2] = along;
      n[0] = -std::sin(a), n[1] = -std::cos(a), n[2] = 0;
    } else {
      p[0] = r * std::sin(a), p[1] = along, p[2] = r * std::cos(a);
      n[0] = std::sin(a), n[1] = 0, n[2] = std::cos(a);
    }
  });
  if (inside) return;
  // Caps: a centre and a ring of their own (flat normals), texture as a
  // disc in the square.
  for (int cap = 0; cap < 2; ++cap) {
    const float y = cap == 0 ? top : bottom, ny = cap == 0 ? 1.0f : -1.0f;
    const uint32_t centre = uint32_t(m.vertices.size());
    Add(m, 0, y, 0, 0, ny, 0, 0.5f, 0.5f);
    for (int32_t i = 0; i < detail; ++i) {
      const float a = float(i) / float(detail) * 2 * kPi;
      Add(m, r * std::sin(a), y, r * std::cos(a), 0, ny, 0, 0.5f + 0.5f * std::sin(a), 0.5f - 0.5f * std::cos(a));
    }
    for (int32_t i = 0; i < detail; ++i) {
      const uint32_t a = centre + 1 + uint32_t(i), b = centre + 1 + uint32_t((i + 1) % detail);
      if (cap == 0)
        m.triangles.insert(m.triangles.end(), {centre, a, b});
      else
        m.triangles.insert(m.triangles.end(), {centre, b, a});
    }
  }
}

}  // namespace

ShapeMesh MakeShape(int32_t shape, int32_t detail) {
  detail = std::clamp(detail, kMinDetail, kMaxDetail);
  ShapeMesh m;
  switch (shape) {
    case kSphere: Sphere(m, detail); break;
    case kTorus: Torus(m, detail); break;
    case kCylinder: Cylinder(m, detail, false); break;
    case kTunnel: Cylinder(m, detail, true); break;
    default: Cube(m); break;
  }
  return m;
}

}  // namespace nimbo::donkey
