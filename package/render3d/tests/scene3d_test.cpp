// The 3D scaffolding every 3D effect draws through: the camera controls'
// geometry, the clock, the three background types and Insert FX through the
// real engine (Mesa's software renderer where there is no GPU), material
// meshes and the one "Save as 3DS..." command.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "bin_path.h"
#include "render3d/engine_loader.h"
#include "render3d/export_3ds.h"
#include "render3d/material.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"
#include "test_host.h"

namespace nimbo {
namespace {

using testing::BinPathOverride;
using testing::TestHost;

constexpr int32_t kW = 64, kH = 48;

// Sets a declared float variable the way a host does.
void SetVar(const DynVarList& list, const char* name, float value) {
  orrery::DynVar* v = list.Find(name);
  ASSERT_NE(v, nullptr) << name;
  v->value = value;
}

TEST(SceneCamera, ControlsMoveTheCameraAboutItsTarget) {
  Scene3D scene;
  SceneCamera own;
  own.position[0] = 10, own.position[1] = 20, own.position[2] = 130;  // 100 in front of the target
  own.target[0] = 10, own.target[1] = 20, own.target[2] = 30;
  // Without the variables the effect's own camera stands.
  SceneCamera c = scene.ControlledCamera(own);
  EXPECT_EQ(c.position[2], 130.0f);

  DynVarList list;
  scene.DeclareCameraVars(list);
  c = scene.ControlledCamera(own);
  for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(c.position[i], own.position[i]) << "the start values move nothing";
  SetVar(list, "Camera: orbit angle", 90);
  SetVar(list, "Camera: distance", 2);
  SetVar(list, "Camera: height", 5);
  SetVar(list, "Camera: roll", 180);
  SetVar(list, "Camera: zoom", 3);
  c = scene.ControlledCamera(own);
  // A quarter turn about the vertical through the target, twice as far.
  EXPECT_NEAR(c.position[0], 10 - 200, 1e-3);
  EXPECT_NEAR(c.position[1], 25, 1e-3);
  EXPECT_NEAR(c.position[2], 30, 1e-3);
  EXPECT_EQ(c.target[0], 10.0f);
  EXPECT_NEAR(c.roll, float(M_PI), 1e-6);
  EXPECT_FLOAT_EQ(c.zoom, 3);
  // Values a host should not send are held to the variable's range.
  SetVar(list, "Camera: distance", NAN);
  SetVar(list, "Camera: zoom", 1e9f);
  c = scene.ControlledCamera(own);
  EXPECT_TRUE(std::isfinite(c.position[0]));
  EXPECT_FLOAT_EQ(c.zoom, 10);
}

TEST(SceneClock, TimeFollowsTheHostClockTimesTheSpeedAndRestartsOnASeek) {
  TestHost host;
  Scene3D scene;
  host.time_ms = 5000;
  EXPECT_EQ(scene.Advance(&host, 1.0f), 0.0f) << "t counts from the first frame";
  host.time_ms = 6000;
  EXPECT_FLOAT_EQ(scene.Advance(&host, 1.0f), 1.0f);
  host.time_ms = 7000;
  EXPECT_FLOAT_EQ(scene.Advance(&host, 0.5f), 1.5f) << "a new speed applies from now on, without a jump";
  host.time_ms = 8000;
  EXPECT_FLOAT_EQ(scene.Advance(&host, -1.0f), 0.5f) << "time can run backwards";
  host.time_ms = 100;
  EXPECT_EQ(scene.Advance(&host, 1.0f), 0.0f) << "the host went back: start again";
  scene.ResetClock();
  host.time_ms = 900;
  EXPECT_EQ(scene.Advance(&host, 1.0f), 0.0f);
}

class SceneDrawTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine_ = CreateEngineObject(nullptr);
    ASSERT_NE(engine_, nullptr);
  }
  void TearDown() override {
    if (engine_) engine_->Release();
  }
  // One frame: background, the default camera looking at the origin, an
  // optional Insert FX, then `draw`.
  template <class Draw>
  std::vector<uint32_t> Frame(Scene3D& scene, const orrery::InputList& inputs, Draw draw) {
    std::vector<uint32_t> pixels(size_t(kW) * kH, 0x12345678u);
    orrery::Screen out{kW, kH, pixels.data()};
    EXPECT_TRUE(scene.BeginFrame(engine_, inputs, kW, kH));
    scene.SetCamera(engine_, scene.ControlledCamera(SceneCamera{}));
    scene.DrawInsertFx(engine_, inputs);
    draw();
    EXPECT_EQ(scene.EndFrame(engine_, &out), 1);
    return pixels;
  }
  BinPathOverride bin_{NIMBO_BIN_DIR};
  nb3D* engine_ = nullptr;
};

TEST_F(SceneDrawTest, BackgroundIsAColourTheInputOrTransparent) {
  // A 3 x 2 input: left column red, the rest blue.
  std::vector<uint32_t> picture = {0xFFFF0000u, 0xFF0000FFu, 0xFF0000FFu, 0xFFFF0000u, 0xFF0000FFu, 0xFF0000FFu};
  orrery::Screen input{3, 2, picture.data()};
  const orrery::Screen* screens[] = {&input};
  const orrery::InputList inputs{screens, 1};
  Scene3D scene;
  scene.Settings().bgcolor = 0x204060;
  auto pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(pixels[0], 0xFF204060u);
  EXPECT_EQ(pixels[size_t(kW) * kH - 1], 0xFF204060u);

  scene.Settings().bgtype = kBackgroundInput;
  pixels = Frame(scene, inputs, [] {});
  // Stretched over the whole output: the left third red, the rest blue.
  EXPECT_EQ(pixels[size_t(kH / 2) * kW + 2] & 0xFFFFFFu, 0xFF0000u);
  EXPECT_EQ(pixels[size_t(kH / 2) * kW + kW - 3] & 0xFFFFFFu, 0x0000FFu);
  EXPECT_EQ(pixels[0] >> 24, 0xFFu) << "the input is drawn opaque";
  // Without the input the colour of a black background.
  const orrery::InputList none{nullptr, 0};
  pixels = Frame(scene, none, [] {});
  EXPECT_EQ(pixels[0], 0xFF000000u);

  scene.Settings().bgtype = kBackgroundTransparent;
  pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(pixels[0], 0u) << "nothing drawn: transparent for the host to layer";
}

TEST_F(SceneDrawTest, InsertFxShowsTheInputInsideTheSceneAtItsPositionAndSize) {
  std::vector<uint32_t> picture(16, 0xFF00FF00u);
  orrery::Screen input{4, 4, picture.data()};
  const orrery::Screen* screens[] = {&input};
  const orrery::InputList inputs{screens, 1};
  Scene3D scene;
  DynVarList list;
  scene.DeclareInsertFxVars(list);
  auto centre = [](const std::vector<uint32_t>& p, int dx) { return p[size_t(kH / 2) * kW + kW / 2 + dx]; };

  auto pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(centre(pixels, 0), 0xFF000000u) << "off until the setting is on";
  scene.Settings().insertfx = 1;
  pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(centre(pixels, 0) & 0xFFFFFFu, 0x00FF00u);
  // 50 units wide at distance 100 with a 60 degree view: about 37% of the
  // height, so the edge of the output stays black.
  EXPECT_EQ(pixels[size_t(kH / 2) * kW], 0xFF000000u);
  // Moved to the right, the centre is free again; grown, it covers all.
  SetVar(list, "Insert FX: position x", 60);
  pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(centre(pixels, 0), 0xFF000000u);
  SetVar(list, "Insert FX: position x", 0);
  SetVar(list, "Insert FX: size", 400);
  pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(pixels[0] & 0xFFFFFFu, 0x00FF00u);
  SetVar(list, "Insert FX: size", 0);
  pixels = Frame(scene, inputs, [] {});
  EXPECT_EQ(centre(pixels, 0), 0xFF000000u) << "size 0 draws nothing";
}

TEST_F(SceneDrawTest, MaterialMeshesUseTheLayersTexturesFlagsAndScale) {
  // One material whose first layer is an input screen bound to slot 0: the
  // manager copies the screen into the top-left of a power-of-two texture,
  // and the mesh's 0..1 coordinates must land on the picture, not beyond it.
  nbMatManager materials(1, "");
  materials.SetEngine(engine_);
  materials.SetOutputSize(kW, kH);
  Material m = DefaultMaterial();
  m.tex[0].texmode = kTexModeInput;
  m.tex[0].w = 3, m.tex[0].h = 3;  // a 4 x 4 texture, scale 0.75
  m.tex[0].base_clr = 0x808080, m.tex[0].diff_clr = 0, m.tex[0].spec_clr = 0;  // lit unchanged
  ASSERT_EQ(materials.LoadMaterial(0, m), 1);
  std::vector<uint32_t> picture(9, 0xFFFFFF00u);
  orrery::Screen input{3, 3, picture.data()};
  const orrery::Screen* screens[] = {nullptr, &input};
  const orrery::InputList inputs{screens, 2};
  materials.UpdateInputTextures(inputs, 1);

  // A square facing the camera, filling the view.
  const nb3D::Vertex v[4] = {{-200, 200, 0, 0, 0, 1, 0, 0, 0, 0},
                             {-200, -200, 0, 0, 0, 1, 0, 1, 0, 1},
                             {200, -200, 0, 0, 0, 1, 1, 1, 1, 1},
                             {200, 200, 0, 0, 0, 1, 1, 0, 1, 0}};
  const uint32_t indices[6] = {0, 1, 2, 0, 2, 3};
  Scene3D scene;
  const auto pixels = Frame(scene, inputs, [&] { EXPECT_EQ(DrawMaterialMesh(engine_, materials, 0, v, indices), 1); });
  // Every pixel shows the yellow picture; unscaled coordinates would show
  // the texture's black margin in the last quarter.
  EXPECT_EQ(pixels[0] & 0xFFFFFFu, 0xFFFF00u);
  EXPECT_EQ(pixels[size_t(kW) * kH - 1] & 0xFFFFFFu, 0xFFFF00u);
  materials.FreeAll();
}

TEST(SceneExport, SaveAs3DSNeedsRenderingAndAFileItCanCreate) {
  const Material m = DefaultMaterial();
  ExportMesh mesh;
  mesh.name = "grid";
  mesh.positions = {0, 0, 0, 1, 0, 0, 0, 0, 1};
  mesh.triangles = {0, 1, 2};
  const ExportMesh meshes[] = {mesh};
  const SceneCamera camera;
  const std::string dir = ::testing::TempDir() + "scene_export/";
  std::filesystem::create_directories(dir);
  EXPECT_EQ(ExportScene3DS((dir + "a.3ds").c_str(), false, "ev3dmat", m, meshes, camera), "Rendering must be enabled");
  EXPECT_FALSE(std::filesystem::exists(dir + "a.3ds"));
  EXPECT_EQ(ExportScene3DS((dir + "no/such/a.3ds").c_str(), true, "ev3dmat", m, meshes, camera),
            "Couldn't create file");
  EXPECT_EQ(ExportScene3DS((dir + "a.3ds").c_str(), true, "ev3dmat", m, meshes, camera), "");
  std::ifstream in(dir + "a.3ds", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  ASSERT_GE(bytes.size(), 6u);
  EXPECT_EQ(bytes.substr(0, 2), "MM");
  EXPECT_NE(bytes.find("ev3dmat"), std::string::npos);
  EXPECT_NE(bytes.find("grid"), std::string::npos);
  EXPECT_NE(bytes.find("Camera1"), std::string::npos);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace nimbo
