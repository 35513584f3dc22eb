// WAXViewer: the surface of a volume is closed and lies at the threshold,
// the points show the visible voxels in their colours, and the effect as a
// host runs it through the real engine (a drawn frame, a volume of the wrong
// size that shows nothing, "Save as 3DS..." with waxmat).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "bin_path.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "render3d/wax_volume.h"
#include "test_host.h"
#include "wax_mesh.h"

namespace {

namespace fs = std::filesystem;
using nimbo::wax::kScreenSide;
using nimbo::wax::Volume;

// A ball of radius r voxels about (cx, cy, cz), density falling off over
// its last voxel, in `colour`.
Volume Ball(float cx, float cy, float cz, float r, uint32_t colour) {
  Volume v;
  for (int32_t z = 0; z < 64; ++z)
    for (int32_t y = 0; y < 64; ++y)
      for (int32_t x = 0; x < 64; ++x) {
        const float d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy) + (z - cz) * (z - cz));
        const float a = std::clamp(r - d + 0.5f, 0.0f, 1.0f);
        if (a > 0) v.Set(x, y, z, uint32_t(std::lround(a * 255)) << 24 | colour);
      }
  return v;
}

TEST(WaxMesh, SurfaceIsClosedAtTheThresholdAndWearsTheVoxelColours) {
  // A ball that pokes out of the volume on +x: the border closes it.
  const Volume ball = Ball(50, 31.5f, 31.5f, 20, 0xFF8000);
  std::vector<float> field;
  nimbo::IsoMesh surface;
  std::vector<nb3D::Vertex> vertices;
  std::vector<uint32_t> triangles;
  nimbo::wax::SurfaceMesh(ball, 128, field, surface, vertices, triangles);
  ASSERT_GT(triangles.size(), 300u);
  std::map<std::pair<uint32_t, uint32_t>, int> edges;
  for (size_t t = 0; t < triangles.size(); t += 3)
    for (int k = 0; k < 3; ++k) {
      const uint32_t a = triangles[t + k], b = triangles[t + (k + 1) % 3];
      ++edges[{std::min(a, b), std::max(a, b)}];
    }
  for (const auto& [edge, count] : edges) ASSERT_EQ(count, 2) << "edge " << edge.first << "-" << edge.second;
  float u, v;
  nimbo::wax::PaletteCoordinates(0xFF8800, &u, &v);
  const std::vector<uint32_t> palette = nimbo::wax::PalettePixels();
  EXPECT_EQ(palette[size_t(v * 64) * 64 + size_t(u * 64)], 0xFFFF8800u);
  const float unit = nimbo::wax::kModelSide / 64;
  for (const nb3D::Vertex& p : vertices) {
    // Inside the volume, on the ball's surface: the model's x is the volume's.
    const float d = std::sqrt((p.x / unit + 31.5f - 50) * (p.x / unit + 31.5f - 50) + p.y * p.y / unit / unit +
                              p.z * p.z / unit / unit);
    if (p.x / unit + 31.5f < 62.9f) {
      ASSERT_NEAR(d, 20.0f, 0.75f);
    }
    ASSERT_EQ(p.u, u);
  }
}

TEST(WaxMesh, PointsShowOnlyTheVisibleVoxels) {
  Volume cube;
  for (int32_t z = 10; z < 20; ++z)
    for (int32_t y = 10; y < 20; ++y)
      for (int32_t x = 10; x < 20; ++x) cube.Set(x, y, z, 0xFF00FF00u);
  const float right[3] = {1, 0, 0}, up[3] = {0, 1, 0}, forward[3] = {0, 0, -1};
  std::vector<nb3D::Vertex> vertices;
  std::vector<uint32_t> triangles;
  nimbo::wax::PointMesh(cube, 128, 1.0f, right, up, forward, 100000, vertices, triangles);
  EXPECT_EQ(vertices.size(), size_t(10 * 10 * 10 - 8 * 8 * 8) * 4);
  EXPECT_EQ(triangles.size(), vertices.size() / 4 * 6);
  nimbo::wax::PointMesh(cube, 128, 1.0f, right, up, forward, 100, vertices, triangles);
    EXPECT_EQ(vertices.size(), 100u * 4);
}

// A ball red on its -x half and blue on its +x half.
Volume TwoColourBall() {
  Volume ball = Ball(31.5f, 31.5f, 31.5f, 22, 0);
  for (int32_t z = 0; z < 64; ++z)
    for (int32_t y = 0; y < 64; ++y)
      for (int32_t x = 0; x < 64; ++x) {
        const uint32_t voxel = ball.At(x, y, z);
        if (voxel) ball.Set(x, y, z, voxel | (x < 32 ? 0xFF0000u : 0x0000FFu));
      }
  return ball;
}

TEST(WaxMesh, ColourSeamsGetTheirOwnVerticesInOneColour) {
  std::vector<float> field;
  nimbo::IsoMesh surface;
  std::vector<nb3D::Vertex> vertices, seamless;
  std::vector<uint32_t> triangles, seamless_triangles;
  nimbo::wax::SurfaceMesh(TwoColourBall(), 128, field, surface, vertices, triangles);
  nimbo::wax::SeparateColourSeams(vertices, triangles, seamless, seamless_triangles);
  ASSERT_EQ(seamless_triangles.size(), triangles.size());
  size_t separated = 0;
  for (size_t t = 0; t < triangles.size(); t += 3) {
    const nb3D::Vertex* c[3] = {&seamless[seamless_triangles[t]], &seamless[seamless_triangles[t + 1]],
                                &seamless[seamless_triangles[t + 2]]};
    for (int k = 0; k < 3; ++k) {
      ASSERT_EQ(c[k]->u, c[0]->u) << "triangle " << t / 3;
      ASSERT_EQ(c[k]->v, c[0]->v) << "triangle " << t / 3;
      ASSERT_EQ(c[k]->x, vertices[triangles[t + size_t(k)]].x);  // same corners, same places
    }
    if (seamless_triangles[t] != triangles[t]) ++separated;
  }
  // Only the band where the halves meet is separated.
  EXPECT_GT(separated, 0u);
  EXPECT_LT(separated * 10, triangles.size() / 3);
}

class WaxViewerTest : public ::testing::Test {
 protected:
  WaxViewerTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("wax_viewer_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~WaxViewerTest() override { fs::remove_all(dir); }
  std::vector<uint32_t> Frame(orrery::Effect& effect, const orrery::Screen* wax) {
    std::vector<uint32_t> pixels(size_t(kW) * kH), blue(pixels.size(), kBlue);
    orrery::Screen out{kW, kH, pixels.data()}, background{kW, kH, blue.data()};
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, {&background, wax}, &out), 1);
    return pixels;
  }
  static size_t Drawn(const std::vector<uint32_t>& p) {
    return size_t(std::count_if(p.begin(), p.end(), [](uint32_t c) { return c != kBlue; }));
  }
  static constexpr uint32_t kBlue = 0xFF0000FFu;
  static constexpr int32_t kW = 96, kH = 72;
  nimbo::testing::BinPathOverride bin;
  nimbo::testing::TestHost host{kW, kH};
  fs::path dir;
};

TEST_F(WaxViewerTest, DrawsTheVolumeAndExportsItsSurface) {
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("bgtype", 1);
  auto effect = nimbo::testing::MakeEffect("WAXViewer", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  EXPECT_EQ(effect->GetInputScreenRes(1, kW, kH), (orrery::Size{kScreenSide, kScreenSide}));
  EXPECT_EQ(effect->GetInputScreenRes(0, kW, kH), (orrery::Size{-1, -1}));
  for (const char* name : {"Rotation x", "Rotation y", "Rotation z", "Spin speed", "Camera: zoom"})
    EXPECT_NE(host.FindDynVar(name), nullptr) << name;
  ASSERT_EQ(effect->Initialize(), 1);

  std::vector<uint32_t> wax_pixels(size_t(kScreenSide) * kScreenSide);
  orrery::Screen wax{kScreenSide, kScreenSide, wax_pixels.data()};
  Ball(31.5f, 31.5f, 31.5f, 22, 0xFF2020).WriteTo(&wax);
  const std::vector<uint32_t> frame = Frame(*effect, &wax);
  EXPECT_GT(Drawn(frame), frame.size() / 20);
  EXPECT_LT(Drawn(frame), frame.size());
  const size_t reddish = size_t(std::count_if(frame.begin(), frame.end(), [](uint32_t c) {
    return ((c >> 16) & 0xFF) > 2 * (c & 0xFF) && ((c >> 16) & 0xFF) > 60;
  }));
  EXPECT_GT(reddish, frame.size() / 20) << "the voxels' red shows";

  std::string message;
  ASSERT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", (dir / "wax.3ds").c_str(), &message), 1) << message;
  std::ifstream in(dir / "wax.3ds", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(bytes.substr(0, 2), "MM");
  EXPECT_NE(bytes.find("waxmat"), std::string::npos);

  // Points, then a screen that is no volume: only the background.
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("bgtype", 1);
  host.store.SetInt("display", 1);
  effect->UpdateConfig();
  EXPECT_GT(Drawn(Frame(*effect, &wax)), frame.size() / 20);
  std::vector<uint32_t> junk(size_t(kW) * kH, 0xFFFFFFFFu);
  orrery::Screen wrong{kW, kH, junk.data()};
  EXPECT_EQ(Drawn(Frame(*effect, &wrong)), 0u);
  EXPECT_EQ(Drawn(Frame(*effect, nullptr)), 0u);
}

}  // namespace
