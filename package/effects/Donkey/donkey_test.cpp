// Donkey: the shapes' geometry (closed shapes closed, faces wound the way
// their normals point, normals out (in for the tunnel), texture coordinates
// covering 0..1) and the effect drawing its video-textured shapes through
// the real engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <vector>

#include "bin_path.h"
#include "donkey_shapes.h"
#include "render3d/engine_loader.h"
#include "test_host.h"

namespace {

using nimbo::donkey::MakeShape;
using nimbo::donkey::ShapeMesh;
using nimbo::testing::BinPathOverride;
using nimbo::testing::TestHost;

// Vertices welded by position (the seams and the cube's corners repeat
// positions with other normals or texture coordinates).
std::vector<uint32_t> Welded(const ShapeMesh& m) {
  std::map<std::tuple<long, long, long>, uint32_t> ids;
  std::vector<uint32_t> welded;
  for (const nb3D::Vertex& v : m.vertices) {
    const auto key = std::make_tuple(std::lround(v.x * 1000), std::lround(v.y * 1000), std::lround(v.z * 1000));
    welded.push_back(ids.emplace(key, uint32_t(ids.size())).first->second);
  }
  return welded;
}

// Every welded edge used exactly once in each direction.
bool Closed(const ShapeMesh& m) {
  const std::vector<uint32_t> id = Welded(m);
  std::map<std::pair<uint32_t, uint32_t>, int> edges;
  for (size_t k = 0; k < m.triangles.size(); k += 3) {
    for (int e = 0; e < 3; ++e) ++edges[{id[m.triangles[k + e]], id[m.triangles[k + (e + 1) % 3]]}];
  }
  for (const auto& [edge, count] : edges) {
    const auto back = edges.find({edge.second, edge.first});
    if (count != 1 || back == edges.end() || back->second != 1) return false;
  }
  return true;
}

TEST(DonkeyShapes, ClosedShapesAreClosedAndWoundOutward) {
  for (int shape : {nimbo::donkey::kCube, nimbo::donkey::kSphere, nimbo::donkey::kTorus, nimbo::donkey::kCylinder}) {
    SCOPED_TRACE(shape);
    const ShapeMesh m = MakeShape(shape, 24);
    ASSERT_FALSE(m.triangles.empty());
    EXPECT_TRUE(Closed(m));
    float u_lo = 1, u_hi = 0, v_lo = 1, v_hi = 0;
    for (size_t k = 0; k < m.triangles.size(); k += 3) {
      const nb3D::Vertex& a = m.vertices[m.triangles[k]];
      const nb3D::Vertex& b = m.vertices[m.triangles[k + 1]];
      const nb3D::Vertex& c = m.vertices[m.triangles[k + 2]];
      const float e1[3] = {b.x - a.x, b.y - a.y, b.z - a.z}, e2[3] = {c.x - a.x, c.y - a.y, c.z - a.z};
      const float n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
      // Counter-clockwise seen from where the normals point, and (for these
      // shapes, convex or a ring about the y axis) away from the inside.
      ASSERT_GT(n[0] * a.nx + n[1] * a.ny + n[2] * a.nz, 0.0f) << "triangle " << k / 3;
    }
    for (const nb3D::Vertex& v : m.vertices) {
      EXPECT_NEAR(v.nx * v.nx + v.ny * v.ny + v.nz * v.nz, 1.0f, 1e-4f);
      // Out: away from the centre, or for the torus from its ring's centre line.
      float cx = 0, cz = 0;
      if (shape == nimbo::donkey::kTorus) {
        const float l = std::sqrt(v.x * v.x + v.z * v.z);
        cx = v.x / l * nimbo::donkey::kShapeSize * 0.35f, cz = v.z / l * nimbo::donkey::kShapeSize * 0.35f;
      }
      EXPECT_GT((v.x - cx) * v.nx + v.y * v.ny + (v.z - cz) * v.nz, 0.0f);
      u_lo = std::min(u_lo, v.u), u_hi = std::max(u_hi, v.u), v_lo = std::min(v_lo, v.v), v_hi = std::max(v_hi, v.v);
    }
    EXPECT_EQ(u_lo, 0.0f);
    EXPECT_EQ(u_hi, 1.0f);
    EXPECT_EQ(v_lo, 0.0f);
    EXPECT_EQ(v_hi, 1.0f);
  }
}

TEST(DonkeyShapes, TheTunnelIsSeenFromInside) {
  const ShapeMesh m = MakeShape(nimbo::donkey::kTunnel, 16);
  EXPECT_FALSE(Closed(m)) << "a tube open at both ends";
  for (size_t k = 0; k < m.triangles.size(); k += 3) {
    const nb3D::Vertex& a = m.vertices[m.triangles[k]];
    const nb3D::Vertex& b = m.vertices[m.triangles[k + 1]];
    const nb3D::Vertex& c = m.vertices[m.triangles[k + 2]];
    const float e1[3] = {b.x - a.x, b.y - a.y, b.z - a.z}, e2[3] = {c.x - a.x, c.y - a.y, c.z - a.z};
    const float n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
    ASSERT_LT(n[0] * a.x + n[1] * a.y, 0.0f) << "faces the axis";
    ASSERT_LT(a.nx * a.x + a.ny * a.y, 0.0f) << "normals point in";
  }
  float v_hi = 0;
  for (const nb3D::Vertex& v : m.vertices) v_hi = std::max(v_hi, v.v);
  EXPECT_EQ(v_hi, nimbo::donkey::kTunnelRepeats);
  // Out-of-range detail is held to its range.
  EXPECT_EQ(MakeShape(nimbo::donkey::kSphere, 100000).vertices.size(), MakeShape(nimbo::donkey::kSphere, 128).vertices.size());
  EXPECT_FALSE(MakeShape(nimbo::donkey::kTorus, -5).triangles.empty());
}

class DonkeyTest : public ::testing::Test {
 protected:
  DonkeyTest() : bin(NIMBO_BIN_DIR) { nimbo::ForgetReportedEngineFailure(); }
  std::vector<uint32_t> Frame(orrery::Effect& effect, int64_t ms) {
    host.time_ms = ms;
    std::vector<uint32_t> pixels(size_t(kW) * kH), blue(pixels.size(), kBlue), checker(64 * 64);
    for (size_t i = 0; i < checker.size(); ++i) checker[i] = ((i / 8 + i / 64 / 8) & 1) ? 0xFFFFFFFFu : 0xFFFF0000u;
    orrery::Screen out{kW, kH, pixels.data()}, background{kW, kH, blue.data()}, texture{64, 64, checker.data()};
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, {&background, &texture}, &out), 1);
    return pixels;
  }
  static constexpr int32_t kW = 96, kH = 72;
  static constexpr uint32_t kBlue = 0xFF0000FFu;
  BinPathOverride bin;
  TestHost host{kW, kH};
};

TEST_F(DonkeyTest, EveryShapeDrawsTheVideoAndMoves) {
  for (int shape = 0; shape < nimbo::donkey::kShapeCount; ++shape) {
    SCOPED_TRACE(shape);
    host.store.BeginWriting();
    host.store.SetInt("!", 1);
    host.store.SetInt("bgtype", 1);
    host.store.SetInt("shape", shape);
    auto effect = nimbo::testing::MakeEffect("Donkey", &host);
    ASSERT_TRUE(effect);
    effect->UpdateConfig();
    host.FindDynVar("Distance")->value = 70;  // close enough to fill a good part of the picture
    ASSERT_EQ(effect->Initialize(), 1);
    const std::vector<uint32_t> first = Frame(*effect, 0);
    // The texture's red squares, brightened by the light map: red well
    // above green (the white squares and the blue background are not).
    const size_t red = size_t(std::count_if(first.begin(), first.end(), [](uint32_t p) {
      return int((p >> 16) & 0xFF) - int((p >> 8) & 0xFF) > 64;
    }));
    EXPECT_GT(red, first.size() / 50) << "the texture input shows on the shape";
    EXPECT_NE(Frame(*effect, 700), first) << "it moves with the clock";
  }
}

}  // namespace
