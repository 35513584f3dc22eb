// The isosurface extractor: closed fields give closed, consistently wound
// surfaces of the right topology (Euler characteristic 2 for a sphere, 0 for
// a torus), whatever the field, and the border closes what meets it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "render3d/isosurface.h"

namespace nimbo {
namespace {

struct Field {
  int32_t n;
  std::vector<float> values;
  explicit Field(int32_t side) : n(side), values(size_t(side) * side * side) {}
  template <class F>
  void Fill(F f) {
    for (int32_t z = 0; z < n; ++z)
      for (int32_t y = 0; y < n; ++y)
        for (int32_t x = 0; x < n; ++x) values[(size_t(z) * n + y) * n + x] = f(float(x), float(y), float(z));
  }
  IsoMesh Extract(float level, bool close_border) const {
    IsoGrid grid;
    grid.values = values.data();
    grid.nx = grid.ny = grid.nz = n;
    IsoMesh mesh;
    ExtractIsosurface(grid, level, close_border, &mesh);
    return mesh;
  }
};

// Checks the surface is a closed 2-manifold with consistent winding: every
// edge is used by exactly two triangles, once in each direction, and no
// triangle repeats a vertex. Answers the Euler characteristic V - E + F.
int64_t CheckClosed(const IsoMesh& mesh) {
  std::map<std::pair<uint32_t, uint32_t>, int> directed;
  for (size_t t = 0; t < mesh.TriangleCount(); ++t) {
    const uint32_t* v = &mesh.triangles[3 * t];
    EXPECT_TRUE(v[0] != v[1] && v[1] != v[2] && v[0] != v[2]) << "triangle " << t;
    for (int k = 0; k < 3; ++k) ++directed[{v[k], v[(k + 1) % 3]}];
  }
  int64_t edges = 0;
  int bad = 0;
  for (const auto& [edge, count] : directed) {
    const auto back = directed.find({edge.second, edge.first});
    if (count != 1 || back == directed.end() || back->second != 1) ++bad;
    if (edge.first < edge.second) ++edges;
  }
  EXPECT_EQ(bad, 0) << "edges not shared by exactly two oppositely wound triangles";
  return int64_t(mesh.VertexCount()) - edges + int64_t(mesh.TriangleCount());
}

TEST(IsosurfaceTable, EveryCaseCutsExactlyItsCrossedEdges) {
  for (int c = 0; c < 256; ++c) {
    std::vector<bool> used(12, false);
    for (uint8_t e : IsoCaseTriangles(c)) used[e] = true;
    for (int e = 0; e < 12; ++e) {
      const int axis = e / 4, k = e % 4;
      const int o1 = (axis + 1) % 3, o2 = (axis + 2) % 3;
      const int low = std::min(o1, o2), high = std::max(o1, o2);
      const int a = ((k & 1) << low) | ((k >> 1) << high), b = a | 1 << axis;
      EXPECT_EQ(used[e], ((c >> a) & 1) != ((c >> b) & 1)) << "case " << c << " edge " << e;
    }
  }
  EXPECT_TRUE(IsoCaseTriangles(0).empty());
  EXPECT_EQ(IsoCaseTriangles(1).size(), 3u) << "one corner: one triangle";
  EXPECT_EQ(IsoCaseTriangles(0x0F).size(), 6u) << "half the cube: a quad";
}

TEST(Isosurface, SphereIsClosedOutwardAndOnItsRadius) {
  Field f(24);
  const float c = 11.3f, r = 8.0f;
  f.Fill([&](float x, float y, float z) { return r - std::sqrt((x - c) * (x - c) + (y - c) * (y - c) + (z - c) * (z - c)); });
  const IsoMesh mesh = f.Extract(0.0f, false);
  ASSERT_GT(mesh.TriangleCount(), 500u);
  EXPECT_EQ(CheckClosed(mesh), 2);
  for (size_t v = 0; v < mesh.VertexCount(); ++v) {
    const float* p = &mesh.positions[3 * v];
    const float* n = &mesh.normals[3 * v];
    const float d[3] = {p[0] - c, p[1] - c, p[2] - c};
    const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    ASSERT_NEAR(length, r, 0.05f);
    ASSERT_GT((d[0] * n[0] + d[1] * n[1] + d[2] * n[2]) / length, 0.99f) << "normals point out";
  }
  // Counter-clockwise seen from outside: each face's normal points away
  // from the centre.
  for (size_t t = 0; t < mesh.TriangleCount(); ++t) {
    const float* a = &mesh.positions[3 * mesh.triangles[3 * t]];
    const float* b = &mesh.positions[3 * mesh.triangles[3 * t + 1]];
    const float* e = &mesh.positions[3 * mesh.triangles[3 * t + 2]];
    const float u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, w[3] = {e[0] - a[0], e[1] - a[1], e[2] - a[2]};
    const float n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2], u[0] * w[1] - u[1] * w[0]};
    ASSERT_GT(n[0] * (a[0] - c) + n[1] * (a[1] - c) + n[2] * (a[2] - c), 0.0f) << "triangle " << t;
  }
}

TEST(Isosurface, TorusAndTouchingBlobsHaveTheirTopology) {
  Field torus(40);
  torus.Fill([](float x, float y, float z) {
    const float px = x - 19.5f, py = y - 19.5f, pz = z - 19.5f;
    const float ring = std::sqrt(px * px + py * py) - 12.0f;
    return 5.0f - std::sqrt(ring * ring + pz * pz);
  });
  EXPECT_EQ(CheckClosed(torus.Extract(0.0f, false)), 0);

  // Two metaballs close enough to merge into one body, and apart: two.
  for (const auto& [gap, euler] : {std::pair{7.0f, 2}, std::pair{24.0f, 4}}) {
    Field blobs(40);
    blobs.Fill([gap](float x, float y, float z) {
      auto ball = [&](float cx) {
        const float d2 = (x - cx) * (x - cx) + (y - 19.5f) * (y - 19.5f) + (z - 19.5f) * (z - 19.5f);
        return 36.0f / (d2 + 1e-3f);
      };
      return ball(19.5f - gap / 2) + ball(19.5f + gap / 2);
    });
    EXPECT_EQ(CheckClosed(blobs.Extract(1.0f, false)), euler) << "gap " << gap;
  }
}

TEST(Isosurface, TheBorderClosesWhatReachesIt) {
  // A solid that fills the whole grid: without closing there is no surface,
  // with it a box just outside the grid.
  Field full(6);
  full.Fill([](float, float, float) { return 1.0f; });
  EXPECT_EQ(full.Extract(0.0f, false).TriangleCount(), 0u);
  const IsoMesh box = full.Extract(0.0f, true);
  EXPECT_EQ(CheckClosed(box), 2);
  for (float p : box.positions) {
    EXPECT_GT(p, -0.51f);
    EXPECT_LT(p, 5.51f);
  }
  // A ball cut by the grid's side: closed with a flat cap.
  Field cut(16);
  cut.Fill([](float x, float y, float z) { return 6.0f - std::sqrt(x * x + (y - 8) * (y - 8) + (z - 8) * (z - 8)); });
  EXPECT_EQ(CheckClosed(cut.Extract(0.0f, true)), 2);
}

TEST(Isosurface, AnyFieldGivesAClosedSurfaceWithinAClosedBorder) {
  // Noise makes every corner configuration, ambiguous faces included, next
  // to every other: the cut of a shared face must agree between its cells.
  for (uint32_t seed : {1u, 7u, 1234u}) {
    Field noise(14);
    uint32_t s = seed;
    noise.Fill([&s](float, float, float) {
      s = s * 1664525u + 1013904223u;
      return float(s >> 8) / float(1 << 24) - 0.5f;
    });
    const IsoMesh mesh = noise.Extract(0.0f, true);
    EXPECT_GT(mesh.TriangleCount(), 1000u);
    CheckClosed(mesh);
  }
  // Non-finite samples count as outside; a degenerate grid is empty.
  Field odd(4);
  odd.Fill([](float x, float, float) { return x == 1 ? NAN : x == 2 ? INFINITY : 1.0f; });
  CheckClosed(odd.Extract(0.0f, true));
  IsoGrid empty;
  IsoMesh mesh;
  mesh.triangles = {1, 2, 3};
  ExtractIsosurface(empty, 0.0f, true, &mesh);
  EXPECT_EQ(mesh.TriangleCount(), 0u);
}

}  // namespace
}  // namespace nimbo
