// 3DSViewer's arithmetic apart from the engine: the playback frame, posed
// batches against the reader's own poses and the keys, the scene lights
// through the engine's one light, and where pictures are found.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "viewer_lights.h"
#include "viewer_materials.h"
#include "viewer_scene.h"
#include "viewer_test_scenes.h"

namespace {

namespace fs = std::filesystem;
namespace vt = nimbo::viewer3ds::testing;
using nimbo::viewer3ds::PlaybackFrame;

TEST(ViewerPlayback, FramesFollowTheClockLoopOrHold) {
  struct Case {
    int32_t start, end;
    double seconds;
    bool loop;
    float frame;
  } cases[] = {
      {0, 100, 0.0, true, 0.0f},      {0, 100, 1.0, true, 30.0f},     {0, 100, 101 / 30.0, true, 0.0f},
      {0, 100, 102 / 30.0, true, 1.0f}, {0, 100, -1 / 30.0, true, 100.0f}, {10, 20, 0.5, true, 14.0f},
      {0, 100, 10.0, false, 100.0f},  {0, 100, -3.0, false, 0.0f},    {5, 5, 7.3, true, 5.0f},
      {0, 100, NAN, true, 0.0f},      {20, 10, 1.0, false, 20.0f},
  };
  for (const Case& c : cases)
    EXPECT_NEAR(PlaybackFrame(c.start, c.end, c.seconds, c.loop), c.frame, 1e-3f)
        << c.start << ".." << c.end << " at " << c.seconds << " s, loop " << c.loop;
}

class ViewerSceneTest : public ::testing::Test {
 protected:
  ViewerSceneTest() {
    dir = fs::temp_directory_path() / ("viewer_scene_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~ViewerSceneTest() override { fs::remove_all(dir); }
  // The mean of a batch's corners.
  static void Centroid(const nimbo::viewer3ds::DrawBatch& b, float out[3]) {
    out[0] = out[1] = out[2] = 0;
    for (const nb3D::Vertex& v : b.vertices) out[0] += v.x, out[1] += v.y, out[2] += v.z;
    for (int d = 0; d < 3; ++d) out[d] /= float(b.vertices.size());
  }
  fs::path dir;
};

TEST_F(ViewerSceneTest, BatchesArePosedAsTheReaderPosesAtEveryFrame) {
  // A parent moving along the file's x, a child riding on it 10 above (file
  // z), a hidden third cube.
  nimbo::C3DSWriter w;
  vt::AddColorMaterial(w, "a", 0xFF0000);
  vt::AddColorMaterial(w, "b", 0x0000FF);
  const float origin[3] = {0, 0, 0};
  vt::AddCube(w, "Parent", origin, 1, "a");
  vt::AddCube(w, "Child", origin, 1, "b");
  vt::AddCube(w, "Hidden", origin, 1, "b");
  vt::SetSegment(w, 0, 40);
  vt::AddObjectNode(w, 100, "Parent", 0xFFFF, {{0, 0, 0, 0}, {20, 8, 0, 0}, {40, 8, 6, 0}});
  vt::AddObjectNode(w, 101, "Child", 100, {{0, 0, 0, 10}, {40, 0, 0, 4}});
  vt::AddObjectNode(w, 102, "Hidden", 0xFFFF, {{0, 50, 50, 50}}, 0x4800);
  const fs::path file = dir / "family.3ds";
  ASSERT_TRUE(vt::Save(w, file.string()));

  nimbo::viewer3ds::ViewerScene viewer;
  ASSERT_EQ(viewer.Load(file.string()), 0);
  nimbo::C3DSScene reader;
  ASSERT_TRUE(reader.Load(file.string()));
  std::vector<nimbo::viewer3ds::DrawBatch> batches;
  for (float frame : {0.0f, 7.5f, 20.0f, 33.0f, 40.0f}) {
    viewer.Pose(frame);
    viewer.BuildBatches(&batches);
    reader.SetFrame(frame);
    ASSERT_EQ(batches.size(), 2u) << "the hidden cube is left out";
    for (size_t m = 0; m < 2; ++m) {
      ASSERT_EQ(batches[m].material, int32_t(m + 1));
      ASSERT_EQ(batches[m].vertices.size(), 36u) << "one batch per material, the hidden cube's faces dropped";
      float c[3];
      Centroid(batches[m], c);
      const auto& world = reader.Meshes()[m].pose.world.m;
      const float engine[3] = {world[0][3], world[1][3], -world[2][3]};  // the reader's (x, z, y) turned y-up
      for (int d = 0; d < 3; ++d) EXPECT_NEAR(c[d], engine[d], 1e-4f) << "frame " << frame << " mesh " << m;
    }
  }
  // At key frames the keys themselves, turned from the file's z-up to the
  // engine's y-up as (x, z, -y): the child is the parent's position plus its
  // own.
  viewer.Pose(40);
  viewer.BuildBatches(&batches);
  float parent[3], child[3];
  Centroid(batches[0], parent);
  Centroid(batches[1], child);
  EXPECT_NEAR(parent[0], 8, 1e-4f);
  EXPECT_NEAR(parent[1], 0, 1e-4f);
  EXPECT_NEAR(parent[2], -6, 1e-4f);
  EXPECT_NEAR(child[0], 8, 1e-4f);
  EXPECT_NEAR(child[1], 4, 1e-4f);
  EXPECT_NEAR(child[2], -6, 1e-4f);
  // Every face's normal points away from its cube's centre.
  for (size_t i = 0; i < batches[0].vertices.size(); i += 3) {
    const nb3D::Vertex& v = batches[0].vertices[i];
    const float out = (v.x - parent[0]) * v.nx + (v.y - parent[1]) * v.ny + (v.z - parent[2]) * v.nz;
    EXPECT_GT(out, 0.5f) << "face " << i / 3;
  }
}

TEST(ViewerLights, SceneLightReachesTheEngineThroughTheNormal) {
  nimbo::viewer3ds::PointLight above{};
  above.position[1] = 10, above.brightness = 1;
  nimbo::viewer3ds::PointLight spot = above;
  spot.position[0] = 10, spot.position[1] = 0;
  spot.spot = true, spot.direction[0] = -1;  // shining along -x
  spot.cos_hotspot = std::cos(0.2f), spot.cos_falloff = std::cos(0.4f);
  const float p[3] = {0, 0, 0}, up[3] = {0, 1, 0}, down[3] = {0, -1, 0}, right[3] = {1, 0, 0};
  EXPECT_NEAR(nimbo::viewer3ds::DiffuseAt({above}, p, up), 1.0f, 1e-6f);
  EXPECT_EQ(nimbo::viewer3ds::DiffuseAt({above}, p, down), 0.0f);
  EXPECT_NEAR(nimbo::viewer3ds::DiffuseAt({spot}, p, right), 1.0f, 1e-6f) << "on the spot's axis";
  const float off_axis[3] = {0, 3, 0};  // atan(3/10) = 0.29 rad: half way through the fade
  const float lit = nimbo::viewer3ds::DiffuseAt({spot}, off_axis, right);
  EXPECT_GT(lit, 0.2f);
  EXPECT_LT(lit, 0.8f);
  const float outside[3] = {0, 6, 0};
  EXPECT_EQ(nimbo::viewer3ds::DiffuseAt({spot}, outside, right), 0.0f);

  const float to_camera[3] = {0.6f, 0, 0.8f};
  std::vector<nb3D::Vertex> v(3);
  v[0].ny = 1, v[1].ny = -1, v[2].nx = 1, v[2].y = 3;
  const float want[3] = {nimbo::viewer3ds::DiffuseAt({above, spot}, p, up), 0.0f,
                         nimbo::viewer3ds::DiffuseAt({above, spot}, off_axis, right)};
  nimbo::viewer3ds::EncodeSceneLight({above, spot}, to_camera, v.data(), v.size());
  for (size_t i = 0; i < 3; ++i) {
    const float length = std::sqrt(v[i].nx * v[i].nx + v[i].ny * v[i].ny + v[i].nz * v[i].nz);
    EXPECT_NEAR(length, 1.0f, 1e-5f);
    EXPECT_NEAR(v[i].nx * to_camera[0] + v[i].ny * to_camera[1] + v[i].nz * to_camera[2], want[i], 1e-5f) << i;
  }
}

TEST(ViewerLights, TwoSidedFacesSeenFromBehindAreLitAsTheirBack) {
  // Two triangles in the plane z = 0, one facing +z, one -z; the eye on +z.
  std::vector<nb3D::Vertex> v(6);
  for (int i = 0; i < 3; ++i) v[size_t(i)].nz = 1, v[size_t(i) + 3].nz = -1;
  v[1].x = v[4].x = 1;
  const float eye[3] = {0, 0, 10};
  nimbo::viewer3ds::NormalsTowards(eye, v.data(), v.size());
  for (const nb3D::Vertex& corner : v) EXPECT_EQ(corner.nz, 1.0f);
}

TEST_F(ViewerSceneTest, PicturesAreFoundBesideTheSceneWhateverTheirCase) {
  std::ofstream(dir / "bricks.png") << "x";
  const std::string scene = (dir / "house.3ds").string();
  EXPECT_EQ(nimbo::viewer3ds::ResolvePicture(scene, "C:\\maps\\BRICKS.PNG"), (dir / "bricks.png").string());
  EXPECT_EQ(nimbo::viewer3ds::ResolvePicture(scene, (dir / "bricks.png").string()), (dir / "bricks.png").string());
  EXPECT_EQ(nimbo::viewer3ds::ResolvePicture(scene, "stone.png"), "");
  EXPECT_EQ(nimbo::viewer3ds::ResolvePicture(scene, ""), "");
  // Material k goes with input ((k - 1) mod 8) + 1; "default" with input 1.
  const int32_t inputs[][2] = {{0, 1}, {1, 1}, {2, 2}, {8, 8}, {9, 1}, {17, 1}, {20, 4}};
  for (const auto& [k, input] : inputs) EXPECT_EQ(nimbo::viewer3ds::InputFor(k), input) << k;
}

}  // namespace
