// 3DSViewer's scenes from the command line: the scene `nimbo demo`
// generates, and a render that takes its size and length from the scene
// it loads.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "cli/demo_scene.h"
#include "media/media_input.h"
#include "nimbo_run.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::host {
namespace {

class NimboViewer : public NimboTest {
 protected:
  std::string WriteDemoScene() const {
    const std::vector<uint8_t> bytes = DemoScene3DS();
    const std::string path = Path("demo.3ds");
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return path;
  }
};

TEST_F(NimboViewer, TheDemoSceneIsAnAnimatedSceneThatLoops) {
  const std::vector<uint8_t> bytes = DemoScene3DS();
  C3DSScene scene;
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "demo")) << C3DSScene::GetErrorText(scene.GetError());
  EXPECT_EQ(scene.StartFrame(), 0);
  EXPECT_EQ(scene.EndFrame(), 89);
  ASSERT_EQ(scene.Meshes().size(), 3u);
  EXPECT_EQ(scene.Lights().size(), 2u);
  EXPECT_EQ(scene.Cameras().size(), 1u);
  for (const auto& mesh : scene.Meshes()) EXPECT_EQ(mesh.texcoords.size(), mesh.face_count * 6) << mesh.name;
  // The moon rides on the turning box: its world place moves with the box
  // and is back where it started after a round.
  const auto& moon = scene.Meshes()[1];
  ASSERT_EQ(moon.name, "Moon");
  auto place = [&](float frame) {
    scene.SetFrame(frame);
    return std::vector<float>{moon.pose.world.m[0][3], moon.pose.world.m[1][3], moon.pose.world.m[2][3]};
  };
  const std::vector<float> start = place(0), third = place(30), end = place(89);
  EXPECT_GT(std::abs(third[0] - start[0]) + std::abs(third[2] - start[2]), 20.0f);
  for (int d = 0; d < 3; ++d) EXPECT_NEAR(end[size_t(d)], start[size_t(d)], 1e-3f);
}

TEST_F(NimboViewer, ASceneRunTakesItsSizeAndLengthFromTheScene) {
  const std::string scene = WriteDemoScene();
  const RunResult r = Run({"render", "3DSViewer", "--action", "load-3ds=" + scene, "-o", Path("out.mp4")}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  const auto video = OpenMedia(Path("out.mp4"));
  EXPECT_EQ(video->Width(), 640);
  EXPECT_EQ(video->Height(), 480);
  EXPECT_EQ(video->FrameCountHint(), 75) << "90 keyframes at 30 a second, at 25 frames a second";

  const RunResult missing =
      Run({"render", "3DSViewer", "--action", "load-3ds=" + Path("gone.3ds"), "-o", Path("gone.mp4")}, true);
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("couldn't open 3ds-file!"), std::string::npos) << missing.err;
  EXPECT_EQ(Files(), (std::vector<std::string>{"demo.3ds", "out.mp4"})) << "nothing half-written";
}

}  // namespace
}  // namespace nimbo::host
