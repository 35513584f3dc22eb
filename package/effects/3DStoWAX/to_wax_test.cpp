// 3DStoWAX: a cube and a sphere written as .3ds files fill their analytic
// volumes within 2%; two boxes of different materials keep their colours;
// the effect reads its file by path and through load-3ds, and a file it
// cannot read is an error with the reader's text, never a crash.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "render3d/c3ds_writer.h"
#include "render3d/wax_volume.h"
#include "test_host.h"
#include "voxelize.h"

namespace {

namespace fs = std::filesystem;
using nimbo::wax::kScreenSide;
using nimbo::wax::Volume;

struct Mesh {
  std::vector<float> positions;
  std::vector<uint32_t> triangles;
};

// An axis-aligned box from lo to hi.
Mesh Box(const float lo[3], const float hi[3]) {
  Mesh m;
  for (int k = 0; k < 8; ++k) m.positions.insert(m.positions.end(), {k & 1 ? hi[0] : lo[0], k & 2 ? hi[1] : lo[1], k & 4 ? hi[2] : lo[2]});
  const uint32_t quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (const auto& q : quads) m.triangles.insert(m.triangles.end(), {q[0], q[1], q[2], q[0], q[2], q[3]});
  return m;
}

// A sphere of radius r as rings x segments, poles included.
Mesh Sphere(float r, int rings, int segments) {
  Mesh m;
  m.positions.insert(m.positions.end(), {0, r, 0});
  for (int i = 1; i < rings; ++i) {
    const double theta = M_PI * i / rings;
    for (int j = 0; j < segments; ++j) {
      const double phi = 2 * M_PI * j / segments;
      m.positions.insert(m.positions.end(), {float(r * std::sin(theta) * std::cos(phi)), float(r * std::cos(theta)),
                                             float(r * std::sin(theta) * std::sin(phi))});
    }
  }
  m.positions.insert(m.positions.end(), {0, -r, 0});
  const uint32_t bottom = uint32_t(m.positions.size() / 3 - 1);
  auto at = [segments](int ring, int j) { return uint32_t(1 + (ring - 1) * segments + (j % segments)); };
  for (int j = 0; j < segments; ++j) {
    m.triangles.insert(m.triangles.end(), {0, at(1, j + 1), at(1, j)});
    m.triangles.insert(m.triangles.end(), {bottom, at(rings - 1, j), at(rings - 1, j + 1)});
    for (int i = 1; i + 1 < rings; ++i) {
      m.triangles.insert(m.triangles.end(), {at(i, j), at(i, j + 1), at(i + 1, j + 1)});
      m.triangles.insert(m.triangles.end(), {at(i, j), at(i + 1, j + 1), at(i + 1, j)});
    }
  }
  return m;
}

class ToWaxTest : public ::testing::Test {
 protected:
  ToWaxTest() {
    dir = fs::temp_directory_path() / ("to_wax_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~ToWaxTest() override { fs::remove_all(dir); }

  // Writes meshes, each with its own material of diffuse colour `colours[i]`.
  std::string Write(const char* name, const std::vector<Mesh>& meshes, const std::vector<int32_t>& colours) {
    nimbo::C3DSWriter writer;
    for (size_t i = 0; i < meshes.size(); ++i) {
      nimbo::Material material = nimbo::DefaultMaterial();
      material.tex[0].diff_clr = colours[i];
      const std::string mat = "mat" + std::to_string(i), object = "obj" + std::to_string(i);
      writer.AddMaterial(mat.c_str(), material);
      EXPECT_GT(writer.AddMesh(meshes[i].positions.data(), int32_t(meshes[i].positions.size() / 3), nullptr,
                               meshes[i].triangles.data(), int32_t(meshes[i].triangles.size() / 3), object.c_str(),
                               nullptr, mat.c_str()),
                0);
    }
    const std::string path = (dir / name).string();
    EXPECT_TRUE(writer.Save(path.c_str()));
    return path;
  }

  // The volume 3DStoWAX makes of `path` (set as its path setting), or an
  // empty one when it draws nothing.
  Volume Voxelise(const std::string& path, int32_t* result = nullptr) {
    nimbo::testing::TestHost host(kScreenSide, kScreenSide);
    host.store.BeginWriting();
    host.store.SetInt("!", 1);
    host.store.SetPath("path", path.c_str());
    auto effect = nimbo::testing::MakeEffect("3DStoWAX", &host);
    effect->UpdateConfig();
    effect->Initialize();
    std::vector<uint32_t> pixels(size_t(kScreenSide) * kScreenSide, 0xDEADBEEFu);
    orrery::Screen out{kScreenSide, kScreenSide, pixels.data()};
    const int32_t r = nimbo::testing::RenderOnce(*effect, {}, &out);
    if (result) *result = r;
    Volume v;
    v.ReadFrom(&out);
    return v;
  }

  fs::path dir;
};

TEST_F(ToWaxTest, CubeAndSphereFillTheirAnalyticVolumes) {
  const float lo[3] = {-3, -1, 2}, hi[3] = {5, 7, 10};  // a cube of side 8, off centre
  nimbo::testing::MessageCapture messages;
  const Volume cube = Voxelise(Write("cube.3ds", {Box(lo, hi)}, {0xFF0000}));
  const double side = nimbo::wax::kFitVoxels;
  EXPECT_NEAR(double(cube.CountAtLeast(255)), side * side * side, side * side * side * 0.02);
  EXPECT_EQ(cube.CountAtLeast(1), cube.CountAtLeast(255)) << "solid or empty";
  EXPECT_EQ(cube.At(32, 32, 32), 0xFFFF0000u) << "coloured with its material's diffuse colour";
  EXPECT_EQ(cube.At(0, 32, 32), 0u) << "one empty voxel at the border";

  const Volume sphere = Voxelise(Write("sphere.3ds", {Sphere(10, 48, 96)}, {0x00FF00}));
  const double radius = side / 2;
  const double expected = 4.0 / 3.0 * M_PI * radius * radius * radius;
  EXPECT_NEAR(double(sphere.CountAtLeast(255)), expected, expected * 0.02);
  EXPECT_EQ(sphere.At(32, 32, 32), 0xFF00FF00u);
  EXPECT_EQ(sphere.At(2, 2, 2), 0u) << "the corner of the box stays empty";
  EXPECT_TRUE(messages.messages.empty());
}

TEST_F(ToWaxTest, EachPartTakesTheColourOfItsNearestFace) {
  // Two boxes side by side along x, red and blue; up is the volume's -y.
  const float lo_a[3] = {0, 0, 0}, hi_a[3] = {4, 2, 2}, lo_b[3] = {4, 0, 0}, hi_b[3] = {8, 6, 2};
  const Volume v = Voxelise(Write("two.3ds", {Box(lo_a, hi_a), Box(lo_b, hi_b)}, {0xFF0000, 0x0000FF}));
  // x 0..8 spans voxels 1..63 (7.75 voxels per unit); y 0..6 maps to 55.25 .. 8.75.
  EXPECT_EQ(v.At(10, 50, 32), 0xFFFF0000u);
  EXPECT_EQ(v.At(50, 50, 32), 0xFF0000FFu);
  EXPECT_EQ(v.At(50, 15, 32), 0xFF0000FFu) << "the blue box's upper part";
  EXPECT_EQ(v.At(10, 15, 32), 0u) << "above the red box is empty";
}

TEST_F(ToWaxTest, UnreadableFilesAreErrorsWithTheReadersText) {
  nimbo::testing::MessageCapture messages;
  const std::string junk = (dir / "junk.3ds").string();
  std::ofstream(junk, std::ios::binary) << "this is no 3ds file at all, just words";
  int32_t result = -1;
  EXPECT_TRUE(Voxelise(junk, &result).Empty());
  EXPECT_EQ(result, 1);
  ASSERT_EQ(messages.messages.size(), 1u);
  EXPECT_EQ(messages.messages[0].text, "Couldn't read the .3ds-file '" + junk + "': 5 : wrong file format");

  // load-3ds keeps the previous file when the new one fails.
  nimbo::testing::TestHost host(kScreenSide, kScreenSide);
  auto effect = nimbo::testing::MakeEffect("3DStoWAX", &host);
  effect->UpdateConfig();
  effect->Initialize();
  const float lo[3] = {0, 0, 0}, hi[3] = {1, 1, 1};
  const std::string good = Write("good.3ds", {Box(lo, hi)}, {0x808080});
  std::string message;
  ASSERT_EQ(orrery::RunEffectAction(effect.get(), "load-3ds", good.c_str(), &message), 1) << message;
  EXPECT_EQ(orrery::RunEffectAction(effect.get(), "load-3ds", (dir / "missing.3ds").c_str(), &message), 0);
  EXPECT_EQ(message, "Couldn't read the .3ds-file '" + (dir / "missing.3ds").string() + "': 4 : file not found");
  std::vector<uint32_t> pixels(size_t(kScreenSide) * kScreenSide);
  orrery::Screen out{kScreenSide, kScreenSide, pixels.data()};
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {}, &out), 1);
  Volume v;
  v.ReadFrom(&out);
  EXPECT_EQ(v.CountAtLeast(255), size_t(62) * 62 * 62);
  EXPECT_STREQ(host.store.GetString("path", ""), good.c_str());
  // An output that is no WAX screen is left alone.
  std::vector<uint32_t> small(40 * 30, 7u);
  orrery::Screen small_out{40, 30, small.data()};
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {}, &small_out), 0);
  EXPECT_EQ(small, std::vector<uint32_t>(40 * 30, 7u));
}

}  // namespace
