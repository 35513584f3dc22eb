// The reader on well-formed files built chunk by chunk: what each chunk
// kind gives, the intended readings other readers do not share, the error
// codes, and the poses SetFrame gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "c3ds_files.h"
#include "c3ds_math.h"
#include "c3ds_tracks.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {
namespace {

using testing::ChunkBuilder;
using testing::MeshSpec;
using testing::TrackKey;

void ExpectVec(Vec3 v, float x, float y, float z, float tolerance = 1e-6f) {
  EXPECT_NEAR(v.x, x, tolerance);
  EXPECT_NEAR(v.y, y, tolerance);
  EXPECT_NEAR(v.z, z, tolerance);
}

void ExpectQuat(Quat a, Quat b, float tolerance = 1e-5f) {
  // q and -q are one orientation.
  const float sign = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z < 0 ? -1.0f : 1.0f;
  EXPECT_NEAR(a.w, sign * b.w, tolerance);
  EXPECT_NEAR(a.x, sign * b.x, tolerance);
  EXPECT_NEAR(a.y, sign * b.y, tolerance);
  EXPECT_NEAR(a.z, sign * b.z, tolerance);
}

class SampleSceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bytes_ = testing::SampleScene();
    ASSERT_TRUE(scene_.LoadFromMemory(bytes_.data(), bytes_.size(), "sample.3ds")) << scene_.GetError();
  }
  const Mesh& MeshNamed(const std::string& name) {
    for (const Mesh& m : scene_.Meshes())
      if (m.name == name) return m;
    ADD_FAILURE() << "no mesh " << name;
    return scene_.Meshes().front();
  }
  std::vector<uint8_t> bytes_;
  C3DSScene scene_;
};

TEST_F(SampleSceneTest, MaterialsTakeTwentyFourBitColoursOnlyAfterTheDefault) {
  const auto& m = scene_.Materials();
  ASSERT_EQ(m.size(), 3u);
  EXPECT_EQ(m[0].name, "default");
  EXPECT_EQ(m[0].color, 0xF0F0F0u);
  ExpectVec(m[0].diffuse, 1, 1, 1);
  EXPECT_EQ(m[0].flags, 0u);

  const Material& red = m[1];
  EXPECT_EQ(red.name, "red plastic");
  EXPECT_EQ(red.index, 1);
  EXPECT_EQ(red.color, 0u);
  ExpectVec(red.ambient, 51 / 255.0f, 0, 0);
  ExpectVec(red.diffuse, 1, 0, 0);
  ExpectVec(red.specular, 1, 1, 1);
  EXPECT_FLOAT_EQ(red.shininess, 0.4f);
  EXPECT_FLOAT_EQ(red.shin_strength, 0.25f);  // a float percentage
  EXPECT_FLOAT_EQ(red.transparency, 0.5f);
  EXPECT_FLOAT_EQ(red.falloff, 0.1f);
  EXPECT_FLOAT_EQ(red.refblur, 0.2f);
  EXPECT_EQ(red.flags, 0x1FFu);  // two-sided, phong soft, wire, additive and all five maps
  EXPECT_EQ(red.texture_map, "bricks.png");
  EXPECT_EQ(red.specular_map, "spec.png");
  EXPECT_EQ(red.opacity_map, "opac.png");
  EXPECT_EQ(red.reflection_map, "refl.png");
  EXPECT_EQ(red.bump_map, "bump.png");

  // COLOR_F is not a material colour: the material keeps black.
  EXPECT_EQ(m[2].name, "float colours");
  ExpectVec(m[2].ambient, 0, 0, 0);
  ExpectVec(m[2].diffuse, 0, 0, 0);
}

TEST_F(SampleSceneTest, MeshesAreReadInTheEngineAxes) {
  ASSERT_EQ(scene_.Meshes().size(), 4u);
  EXPECT_EQ(scene_.Vertices().size(), 32u);
  EXPECT_EQ(scene_.Faces().size(), 48u);
  const Mesh& box = MeshNamed("Box");
  EXPECT_EQ(box.index, 3);  // after "default" and the two materials
  EXPECT_EQ(box.first_vertex, 0u);
  // Vertex 6 of the cube is (0, 1, 1) in the file, stored (x, z, y).
  ExpectVec(scene_.Vertices()[6].position, 0, 1, 1);
  ExpectVec(scene_.Vertices()[2].position, 0, 0, 1);
  EXPECT_TRUE(scene_.Vertices()[2].used);

  const Face& f = scene_.Faces()[box.first_face + 1];
  EXPECT_EQ(f.v[0], 0);
  EXPECT_EQ(f.v[1], 3);
  EXPECT_EQ(f.v[2], 2);
  EXPECT_EQ(f.flags, 7);
  EXPECT_EQ(scene_.Faces()[box.first_face + 3].material, 1);
  EXPECT_EQ(scene_.Faces()[box.first_face + 4].material, 2);
  EXPECT_EQ(scene_.Faces()[box.first_face + 5].material, 0);  // no group: default

  // Texture coordinates per face corner: (u, 1 - v) of the corner's vertex.
  ASSERT_EQ(box.texcoords.size(), 12u * 6);
  EXPECT_FLOAT_EQ(box.texcoords[2], 1.0f);  // face 0, corner 1 = vertex 1: (1, 0)
  EXPECT_FLOAT_EQ(box.texcoords[3], 1.0f);
  EXPECT_FLOAT_EQ(box.texcoords[4], 1.0f);  // corner 2 = vertex 3: (1, 1)
  EXPECT_FLOAT_EQ(box.texcoords[5], 0.0f);

  // TEX_VERTS after FACE_ARRAY gives nothing.
  EXPECT_TRUE(MeshNamed("Lid").texcoords.empty());
  EXPECT_EQ(MeshNamed("Lid").first_vertex, 8u);
  EXPECT_EQ(MeshNamed("Lid").first_face, 12u);
}

TEST_F(SampleSceneTest, MeshMatrixColumnsAreTheAxesAndMirroredXIsTurned) {
  const Mesh& box = MeshNamed("Box");
  const Mat4 identity;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) EXPECT_EQ(box.matrix.m[r][c], identity.m[r][c]);

  // x axis (-1, 0, 0), origin (4, 5, 6): a negative determinant.
  const Mesh& mirror = MeshNamed("Mirror");
  EXPECT_FLOAT_EQ(mirror.matrix.m[0][0], 1.0f);
  EXPECT_FLOAT_EQ(mirror.matrix.m[0][3], -4.0f);
  EXPECT_FLOAT_EQ(mirror.matrix.m[1][3], 6.0f);  // origin swapped like points
  EXPECT_FLOAT_EQ(mirror.matrix.m[2][3], 5.0f);
  EXPECT_FLOAT_EQ(mirror.inverse.m[0][3], 4.0f);
  EXPECT_FLOAT_EQ(mirror.inverse.m[1][3], -6.0f);
}

TEST_F(SampleSceneTest, LightsCamerasAndAmbient) {
  // Any ambient chunk gives 10 in each channel, whatever it holds.
  ExpectVec(scene_.Ambient(), 10, 10, 10);

  ASSERT_EQ(scene_.Lights().size(), 1u);
  const Light& light = scene_.Lights()[0];
  EXPECT_EQ(light.name, "Spot01");
  EXPECT_EQ(light.index, 7);
  ExpectVec(light.position, 1, 3, 2);
  ExpectVec(light.color, 1.0f, 0.5f, 0.25f);  // lights take COLOR_F
  EXPECT_TRUE(light.spot);
  ExpectVec(light.target, 4, 6, 5);

  ASSERT_EQ(scene_.Cameras().size(), 1u);
  const Camera& camera = scene_.Cameras()[0];
  EXPECT_EQ(camera.index, 8);
  ExpectVec(camera.position, 10, 30, 20);
  EXPECT_FLOAT_EQ(camera.bank, 45 * 3.1415927f / 180);
  EXPECT_FLOAT_EQ(camera.lens, 35.0f);
  EXPECT_FLOAT_EQ(camera.near_range, 1.5f);
  EXPECT_FLOAT_EQ(camera.far_range, 1000.0f);
  EXPECT_EQ(scene_.Version(), 3);
  EXPECT_EQ(scene_.FrameRate(), 30.0f);
}

TEST_F(SampleSceneTest, KeyframerBuildsTheHierarchyAndTracks) {
  EXPECT_EQ(scene_.StartFrame(), 0);
  EXPECT_EQ(scene_.EndFrame(), 120);  // raised from 100 by the lid's last key
  EXPECT_EQ(scene_.FrameCount(), 121);
  ASSERT_EQ(scene_.Dummies().size(), 1u);
  EXPECT_EQ(scene_.Dummies()[0].name, "Group");

  const Mesh& lid = MeshNamed("Lid");
  EXPECT_TRUE(lid.hidden());  // NODE_HDR flag 0x800
  EXPECT_FALSE(MeshNamed("Box").hidden());
  EXPECT_EQ(lid.node_id, 2);
  const Node& lid_node = scene_.Nodes()[size_t(lid.node)];
  ASSERT_GE(lid_node.parent, 0);
  EXPECT_EQ(scene_.Nodes()[size_t(lid_node.parent)].type, NodeType::kDummy);
  const Node& mirror_node = scene_.Nodes()[size_t(MeshNamed("Mirror").node)];
  EXPECT_EQ(mirror_node.parent, lid.node);
  EXPECT_EQ(scene_.Nodes()[size_t(lid.node)].first_child, MeshNamed("Mirror").node);
  ExpectVec(MeshNamed("Box").pivot, 0.5f, 0.5f, 0.5f);

  const Tracks& t = MeshNamed("Box").tracks;
  EXPECT_EQ(t.position.keys.size(), 3u);
  EXPECT_FLOAT_EQ(t.position.keys[1].spline.tension, 0.5f);
  EXPECT_FLOAT_EQ(t.position.keys[1].spline.ease_from, 0.5f);
  ExpectVec(t.position.keys[1].value, 10, 30, 20);
  EXPECT_EQ(t.scale.keys.size(), 2u);
  ASSERT_EQ(t.morph.keys.size(), 2u);
  EXPECT_EQ(t.morph.keys[1].target, "BoxMorph");
  EXPECT_EQ(t.morph.keys[1].mesh, 3);
  ASSERT_EQ(t.hide.keys.size(), 3u);
  EXPECT_TRUE(t.hide.keys[0].hidden);
  EXPECT_FALSE(t.hide.keys[1].hidden);
  EXPECT_TRUE(t.hide.keys[2].hidden);

  // Two rotation keys become three: the middle one at the integer half way
  // frame with half the turn, both halves about the nudged axis.
  const auto& rot = t.rotation.keys;
  ASSERT_EQ(rot.size(), 3u);
  EXPECT_EQ(rot[1].spline.frame, 30);
  EXPECT_FLOAT_EQ(rot[1].angle, 1.5707964f);
  EXPECT_FLOAT_EQ(rot[2].angle, 1.5707964f);
  ExpectVec(rot[1].axis, 0, -0.00041f, 1.00041f);
  ExpectVec(rot[2].axis, 0, -0.00041f, 1.00041f);
  EXPECT_FLOAT_EQ(rot[2].angle_sum, 3.1415928f);
  // The running orientation at the end is the whole half turn, about the
  // file's z axis, which is the engine's y.
  const Vec3 axis{0, 1.00041f, -0.00041f};
  const float length = std::sqrt(axis.y * axis.y + axis.z * axis.z);
  ExpectQuat(rot[2].rotation, Quat{std::cos(3.1415928f / 2), 0, axis.y / length, axis.z / length});
}

TEST(C3dsRotationTrack, RelativeKeysRunAndSumTheirTurns) {
  // Three quarter turns about the file's x, then y, then z.
  const float q = 1.5707964f;
  std::vector<ChunkBuilder> kf;
  kf.push_back(testing::ObjectNode(
      0, "Box", 0xFFFF, {testing::Track(0xB021, {{0, {}, {q, 1, 0, 0}}, {10, {}, {q, 0, 1, 0}}, {20, {}, {q, 0, 0, 1}}})}));
  MeshSpec box;
  box.name = "Box";
  const std::vector<uint8_t> bytes = testing::SceneFile({testing::MeshObject(box)}, std::move(kf)).Bytes();
  C3DSScene scene;
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "rot.3ds"));
  const auto& keys = scene.Meshes()[0].tracks.rotation.keys;
  ASSERT_EQ(keys.size(), 3u);
  EXPECT_FLOAT_EQ(keys[2].angle_sum, 3 * q);
  const float h = std::sqrt(0.5f);
  // Engine axes: file x -> x, file y -> z, file z -> y.
  const Quat kx{h, h, 0, 0}, ky{h, 0, 0, h}, kz{h, 0, h, 0};
  ExpectQuat(keys[0].rotation, kx);
  ExpectQuat(keys[1].rotation, ky * kx);
  ExpectQuat(keys[2].rotation, kz * (ky * kx));
}

TEST_F(SampleSceneTest, AtAKeysFrameThePoseIsTheKey) {
  const Mesh& box = MeshNamed("Box");
  const Tracks& t = box.tracks;
  for (const VectorKey& key : t.position.keys) {
    scene_.SetFrame(float(key.spline.frame));
    ExpectVec(MeshNamed("Box").pose.position, key.value.x, key.value.y, key.value.z, 1e-5f);
  }
  for (const RotationKey& key : t.rotation.keys) {
    scene_.SetFrame(float(key.spline.frame));
    ExpectQuat(MeshNamed("Box").pose.rotation, key.rotation);
  }
  for (const VectorKey& key : t.scale.keys) {
    scene_.SetFrame(float(key.spline.frame));
    ExpectVec(MeshNamed("Box").pose.scale, key.value.x, key.value.y, key.value.z, 1e-5f);
  }
  scene_.SetFrame(-5);  // before the first key: the first key
  ExpectVec(MeshNamed("Box").pose.position, 0, 0, 0);
  scene_.SetFrame(500);  // after the last: the last
  ExpectVec(MeshNamed("Box").pose.scale, 2, 2, 2);
  EXPECT_EQ(scene_.CurrentTime(), 500.0f);

  // In between, the curve passes through neither neighbour and stays a
  // rotation.
  scene_.SetFrame(45);
  const Quat mid = MeshNamed("Box").pose.rotation;
  EXPECT_NEAR(mid.w * mid.w + mid.x * mid.x + mid.y * mid.y + mid.z * mid.z, 1.0f, 1e-5f);
  EXPECT_GT(std::fabs(mid.w - t.rotation.keys[1].rotation.w), 1e-3f);
  EXPECT_GT(std::fabs(mid.w - t.rotation.keys[2].rotation.w), 1e-3f);
}

TEST_F(SampleSceneTest, HideAndMorphStepAtTheirKeys) {
  const auto hidden_at = [&](float frame) {
    scene_.SetFrame(frame);
    return MeshNamed("Box").pose.hidden;
  };
  EXPECT_FALSE(hidden_at(10));  // before the first key: the node's own flag
  EXPECT_TRUE(hidden_at(20));
  EXPECT_TRUE(hidden_at(29.5f));
  EXPECT_FALSE(hidden_at(30));
  EXPECT_TRUE(hidden_at(70));
  scene_.SetFrame(10);
  EXPECT_TRUE(MeshNamed("Lid").pose.hidden);  // no hide track: its flag

  scene_.SetFrame(39);
  EXPECT_EQ(MeshNamed("Box").pose.morph, 0);
  scene_.SetFrame(40);
  EXPECT_EQ(MeshNamed("Box").pose.morph, 3);
}

TEST_F(SampleSceneTest, WorldMatricesFollowTheHierarchy) {
  scene_.SetFrame(0);
  // Mirror (no tracks) under Lid (at (0, 0, 2) in the file, (0, 2, 0) here)
  // under the dummy at (1, 2, 3) -> (1, 3, 2).
  const Mat4& world = MeshNamed("Mirror").pose.world;
  EXPECT_NEAR(world.m[0][3], 1.0f, 1e-5f);
  EXPECT_NEAR(world.m[1][3], 5.0f, 1e-5f);
  EXPECT_NEAR(world.m[2][3], 2.0f, 1e-5f);
  // The box's points are placed relative to its pivot.
  const Mat4& box = MeshNamed("Box").pose.world;
  EXPECT_NEAR(box.m[0][3], -0.5f, 1e-5f);
}

TEST(C3dsEase, KeepsTheEndsAndSlowsNearThem) {
  EXPECT_FLOAT_EQ(Ease(0.3f, 0, 0), 0.3f);
  for (float a : {0.0f, 0.25f, 1.0f, 5.0f})
    for (float b : {0.0f, 0.5f, 1.0f}) {
      EXPECT_NEAR(Ease(0, a, b), 0.0f, 1e-6f);
      EXPECT_NEAR(Ease(1, a, b), 1.0f, 1e-6f);
      float last = 0;
      for (int k = 1; k <= 20; ++k) {
        const float u = Ease(k / 20.0f, a, b);
        EXPECT_GE(u, last);
        last = u;
      }
    }
  EXPECT_LT(Ease(0.1f, 0.5f, 0), 0.1f);  // easing from: slow at the start
  EXPECT_GT(Ease(0.9f, 0, 0.5f), 0.9f);  // easing to: slow at the end
}

TEST(C3dsErrors, CodesAndTexts) {
  EXPECT_STREQ(C3DSScene::GetErrorText(0), "0 : no error");
  EXPECT_STREQ(C3DSScene::GetErrorText(6), "6 : wrong format version");
  EXPECT_STREQ(C3DSScene::GetErrorText(10), "10: keyframe read error");
  EXPECT_STREQ(C3DSScene::GetErrorText(11), "11: illegal error code");
  EXPECT_STREQ(C3DSScene::GetErrorText(-1), "11: illegal error code");

  C3DSScene scene;
  EXPECT_FALSE(scene.Load("/nonexistent/scene.3ds"));
  EXPECT_EQ(scene.GetError(), kFileNotFound);

  // An empty file: false, and the code stays what it was.
  const std::filesystem::path empty = std::filesystem::temp_directory_path() / "nimbo_c3ds_empty.3ds";
  std::ofstream(empty).close();
  EXPECT_FALSE(scene.Load(empty.string()));
  EXPECT_EQ(scene.GetError(), kFileNotFound);
  std::filesystem::remove(empty);

  EXPECT_FALSE(scene.LoadFromMemory(nullptr, 10, "null"));
  EXPECT_EQ(scene.GetError(), kNullPointer);

  std::vector<uint8_t> bytes = testing::SampleScene();
  bytes[0] = 'X';
  EXPECT_FALSE(scene.LoadFromMemory(bytes.data(), bytes.size(), "x"));
  EXPECT_EQ(scene.GetError(), kWrongFormat);
  bytes[0] = 'M';
  bytes[28] = 0;
  EXPECT_FALSE(scene.LoadFromMemory(bytes.data(), bytes.size(), "v0"));
  EXPECT_EQ(scene.GetError(), kWrongVersion);
  EXPECT_TRUE(scene.Meshes().empty());

  // The version is the byte at offset 28, whatever chunk holds it.
  bytes[28] = 7;
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "v7"));
  EXPECT_EQ(scene.Version(), 7);
  EXPECT_EQ(scene.GetError(), kNoError);

  // Loading from a file gives what loading from memory gives.
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "nimbo_c3ds_sample.3ds";
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  C3DSScene from_file;
  ASSERT_TRUE(from_file.Load(file.string()));
  EXPECT_EQ(from_file.FileName(), file.string());
  EXPECT_EQ(from_file.Faces().size(), scene.Faces().size());
  std::filesystem::remove(file);
  from_file.Free();
  EXPECT_TRUE(from_file.Meshes().empty());
  EXPECT_TRUE(from_file.Materials().empty());
}

TEST(C3dsScene, FaceNormalsOnRequest) {
  MeshSpec tri;
  tri.name = "Tri";
  tri.points = {0, 0, 0, 1, 0, 0, 0, 1, 0};  // in the file's xy plane
  tri.faces = {0, 1, 2};
  const std::vector<uint8_t> bytes = testing::SceneFile({testing::MeshObject(tri)}, {}).Bytes();
  C3DSScene scene;
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "tri"));
  ExpectVec(scene.Faces()[0].normal, 0, 0, 0);
  scene.SetOptions(kOptionFaceNormals);
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "tri"));
  // The file's +z is the engine's y; the axis swap mirrors the winding.
  ExpectVec(scene.Faces()[0].normal, 0, -1, 0);
  EXPECT_EQ(scene.EndFrame(), 0);  // no keyframer
  EXPECT_EQ(scene.FrameCount(), 1);
}

}  // namespace
}  // namespace nimbo::scene3ds
