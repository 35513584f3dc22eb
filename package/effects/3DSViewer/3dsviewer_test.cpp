// 3DSViewer as a host runs it, through the real engine: scenes built on the
// package's writer are loaded, drawn through their camera and played back;
// missing and damaged files give the user's messages; texture inputs reach
// the surfaces.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bin_path.h"
#include "orrery/picture.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "test_host.h"
#include "viewer_test_scenes.h"

namespace {

namespace fs = std::filesystem;
namespace vt = nimbo::viewer3ds::testing;
using nimbo::testing::BinPathOverride;
using nimbo::testing::MessageCapture;
using nimbo::testing::TestHost;

constexpr int32_t kW = 96, kH = 72;
constexpr uint32_t kBlack = 0xFF000000u;

// Where the pixels of one colour sit in a frame.
struct Spot {
  size_t count = 0;
  double x = 0, y = 0;  // centroid, in pixels from the top-left
};
Spot Find(const std::vector<uint32_t>& pixels, bool (*match)(uint32_t)) {
  Spot s;
  for (int32_t y = 0; y < kH; ++y)
    for (int32_t x = 0; x < kW; ++x)
      if (match(pixels[size_t(y) * kW + size_t(x)])) ++s.count, s.x += x, s.y += y;
  if (s.count) s.x /= double(s.count), s.y /= double(s.count);
  return s;
}
uint32_t R(uint32_t p) { return (p >> 16) & 255; }
uint32_t G(uint32_t p) { return (p >> 8) & 255; }
uint32_t B(uint32_t p) { return p & 255; }
bool Reddish(uint32_t p) { return R(p) > 100 && G(p) < 60 && B(p) < 60; }
bool Greenish(uint32_t p) { return G(p) > 100 && R(p) < 60 && B(p) < 60; }
bool Bluish(uint32_t p) { return B(p) > 100 && R(p) < 60 && G(p) < 60; }

class ViewerTest : public ::testing::Test {
 protected:
  ViewerTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("3dsviewer_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~ViewerTest() override { fs::remove_all(dir); }

  // A fresh effect on flat colours (no lighting), one-sided faces, with
  // `extra` settings.
  std::unique_ptr<orrery::Effect> Make(std::vector<std::pair<const char*, int32_t>> extra = {}) {
    host.store.BeginWriting();
    host.store.SetInt("!", 1);
    host.store.SetInt("lighting", 0);
    host.store.SetInt("twosided", 0);
    for (const auto& [key, value] : extra) host.store.SetInt(key, value);
    auto effect = nimbo::testing::MakeEffect("3DSViewer", &host);
    if (!effect) return effect;
    effect->UpdateConfig();
    EXPECT_EQ(effect->Initialize(), 1);
    return effect;
  }
  std::vector<uint32_t> Frame(orrery::Effect& effect, int64_t ms, const std::vector<uint32_t>* texture = nullptr) {
    host.time_ms = ms;
    std::vector<uint32_t> pixels(size_t(kW) * kH), background(pixels.size(), kBlack);
    orrery::Screen out{kW, kH, pixels.data()}, back{kW, kH, background.data()};
    orrery::Screen tex{16, 16, const_cast<uint32_t*>(texture ? texture->data() : nullptr)};
    std::vector<const orrery::Screen*> inputs{&back};
    if (texture) inputs.push_back(&tex);
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, inputs, &out), 1);
    return pixels;
  }
  std::string Load(orrery::Effect& effect, const fs::path& file) {
    std::string message;
    if (orrery::RunEffectAction(&effect, "load-3ds", file.c_str(), &message)) return "";
    return message.empty() ? "failed" : message;
  }
  // Two cubes: red on the file's +x, green on its +z (up), the camera on its
  // -y looking at the origin: 3D Studio's front view. (The writer takes the
  // engine's y-up axes and writes (x, z, y).)
  fs::path TwoCubes() {
    nimbo::C3DSWriter w;
    vt::AddColorMaterial(w, "red", 0xFF0000);
    vt::AddColorMaterial(w, "green", 0x00FF00);
    const float right[3] = {25, 0, 0}, up[3] = {0, 0, 18};
    vt::AddCube(w, "Right", right, 6, "red");
    vt::AddCube(w, "Up", up, 6, "green");
    const float position[3] = {0, 0, -100}, target[3] = {0, 0, 0};  // the file's (0, -100, 0)
    w.AddCamera(position, target, 0, 60);
    const fs::path file = dir / "cubes.3ds";
    EXPECT_TRUE(vt::Save(w, file.string()));
    return file;
  }

  BinPathOverride bin;
  TestHost host{kW, kH};
  fs::path dir;
};

TEST_F(ViewerTest, DrawsTheMeshesWhereTheSceneCameraSeesThem) {
  auto effect = Make();
  ASSERT_TRUE(effect);
  ASSERT_EQ(Load(*effect, TwoCubes()), "");
  const std::vector<uint32_t> frame = Frame(*effect, 0);
  const Spot red = Find(frame, Reddish), green = Find(frame, Greenish);
  ASSERT_GT(red.count, 20u);
  ASSERT_GT(green.count, 20u);
  // The file's +x is the picture's right, its +z (up) the picture's top:
  // not mirrored.
  EXPECT_GT(red.x, kW * 0.6);
  EXPECT_NEAR(red.y, kH / 2.0, 3.0);
  EXPECT_NEAR(green.x, kW / 2.0, 3.0);
  EXPECT_LT(green.y, kH * 0.4);

  // The stored path names the scene, so a preset brings it back.
  EXPECT_EQ(host.store.GetPath("path", "", nullptr), fs::absolute(dir / "cubes.3ds").lexically_normal().string());
  auto again = nimbo::testing::MakeEffect("3DSViewer", &host);
  again->UpdateConfig();
  ASSERT_EQ(again->Initialize(), 1);
  EXPECT_EQ(Frame(*again, 0), frame);

  // The own camera frames the scene: both cubes stay in the picture.
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("lighting", 0);
  host.store.SetInt("scenecam", 0);
  host.store.SetPath("path", (dir / "cubes.3ds").c_str());
  auto own = nimbo::testing::MakeEffect("3DSViewer", &host);
  own->UpdateConfig();
  ASSERT_EQ(own->Initialize(), 1);
  const std::vector<uint32_t> framed = Frame(*own, 0);
  EXPECT_GT(Find(framed, Reddish).count, 10u);
  EXPECT_GT(Find(framed, Greenish).count, 10u);
  EXPECT_NE(framed, frame);
}

TEST_F(ViewerTest, PlaysTheKeyframesAtThirtyFramesASecondWithLoopAndSpeed) {
  nimbo::C3DSWriter w;
  vt::AddColorMaterial(w, "red", 0xFF0000);
  const float origin[3] = {0, 0, 0};
  vt::AddCube(w, "Mover", origin, 5, "red");
  vt::SetSegment(w, 0, 30);
  vt::AddObjectNode(w, 100, "Mover", 0xFFFF, {{0, -30, 0, 0}, {30, 30, 0, 0}});
  const float position[3] = {0, 0, -100}, target[3] = {0, 0, 0};  // the file's (0, -100, 0)
  w.AddCamera(position, target, 0, 60);
  const fs::path file = dir / "mover.3ds";
  ASSERT_TRUE(vt::Save(w, file.string()));

  auto effect = Make();
  ASSERT_TRUE(effect);
  ASSERT_EQ(Load(*effect, file), "");
  const Spot start = Find(Frame(*effect, 0), Reddish);
  const Spot half = Find(Frame(*effect, 500), Reddish);   // frame 15: the middle
  const Spot end = Find(Frame(*effect, 1000), Reddish);   // frame 30: the last key
  ASSERT_GT(start.count, 10u);
  EXPECT_LT(start.x, kW * 0.3);
  EXPECT_NEAR(half.x, kW / 2.0, 3.0);
  EXPECT_GT(end.x, kW * 0.7);
  // 31 frames a round: 1.05 s is frame 31.5, half a frame into the next round.
  EXPECT_LT(Find(Frame(*effect, 1050), Reddish).x, kW * 0.3);

  // Without loop the last frame holds; at speed 0.5 one second is frame 15.
  auto held = Make({{"loop", 0}});
  ASSERT_EQ(Load(*held, file), "");
  Frame(*held, 0);
  EXPECT_GT(Find(Frame(*held, 5000), Reddish).x, kW * 0.7);
  auto slow = Make();
  ASSERT_EQ(Load(*slow, file), "");
  host.FindDynVar("Playback speed")->value = 0.5f;
  Frame(*slow, 0);
  EXPECT_NEAR(Find(Frame(*slow, 1000), Reddish).x, kW / 2.0, 3.0);
}

TEST_F(ViewerTest, MissingAndDamagedFilesGiveTheMessagesAndKeepTheScene) {
  MessageCapture messages;
  auto effect = Make();
  ASSERT_TRUE(effect);
  const fs::path good = TwoCubes();
  ASSERT_EQ(Load(*effect, good), "");
  const std::vector<uint32_t> before = Frame(*effect, 0);

  std::ifstream in(good, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  const fs::path damaged = dir / "damaged.3ds", junk = dir / "junk.3ds";
  std::ofstream(damaged, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  std::ofstream(junk, std::ios::binary) << "this is no scene at all";
  EXPECT_EQ(Load(*effect, dir / "missing.3ds"), "couldn't open 3ds-file!");
  EXPECT_EQ(Load(*effect, damaged), "couldn't open 3ds-file!");
  EXPECT_EQ(Load(*effect, junk), "couldn't open 3ds-file!");
  EXPECT_EQ(Frame(*effect, 0), before) << "a failed load keeps the scene shown";
  EXPECT_TRUE(messages.messages.empty()) << "the command reports through its failure text";

  // A stored path that no longer holds a scene asks the user to relocate it
  // (the test's dialogs answer Cancel: the effect goes on without a scene).
  for (const fs::path& stored : {dir / "gone.3ds", damaged}) {
    messages.messages.clear();
    host.store.BeginWriting();
    host.store.SetInt("!", 1);
    host.store.SetPath("path", stored.c_str());
    auto reloaded = nimbo::testing::MakeEffect("3DSViewer", &host);
    reloaded->UpdateConfig();
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0].text,
              "Couldn't find .3ds-file '" + stored.string() + "' or illegal file.\nRelocate file manually?");
    ASSERT_EQ(reloaded->Initialize(), 1);
    const std::vector<uint32_t> empty = Frame(*reloaded, 0);
    EXPECT_EQ(Find(empty, Reddish).count + Find(empty, Greenish).count, 0u);
  }

  // A preset made on another machine: the scene is found by its name in the
  // host's last-used folder, and stored with its new path.
  messages.messages.clear();
  bin.SetRecentPath(dir.string());
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetPath("path", "/elsewhere/cubes.3ds");
  auto moved = nimbo::testing::MakeEffect("3DSViewer", &host);
  moved->UpdateConfig();
  EXPECT_TRUE(messages.messages.empty());
  EXPECT_EQ(host.store.GetPath("path", "", nullptr), fs::absolute(good).lexically_normal().string());
}

TEST_F(ViewerTest, TextureInputsReachTheSurfaces) {
  nimbo::C3DSWriter w;
  vt::AddColorMaterial(w, "red", 0xFF0000);
  const float origin[3] = {0, 0, 0};
  vt::AddCube(w, "Box", origin, 12, "red");
  const float position[3] = {0, 0, -100}, target[3] = {0, 0, 0};  // the file's (0, -100, 0)
  w.AddCamera(position, target, 0, 60);
  const fs::path file = dir / "box.3ds";
  ASSERT_TRUE(vt::Save(w, file.string()));
  const std::vector<uint32_t> blue(16 * 16, 0xFF0000FFu);

  auto own_colour = Make();
  ASSERT_EQ(Load(*own_colour, file), "");
  const std::vector<uint32_t> red_frame = Frame(*own_colour, 0, &blue);
  EXPECT_GT(Find(red_frame, Reddish).count, 100u);
  EXPECT_EQ(Find(red_frame, Bluish).count, 0u);

  auto textured = Make({{"texinputs", 1}});
  ASSERT_EQ(Load(*textured, file), "");
  const std::vector<uint32_t> blue_frame = Frame(*textured, 0, &blue);
  EXPECT_EQ(Find(blue_frame, Reddish).count, 0u);
  EXPECT_EQ(Find(blue_frame, Bluish).count, Find(red_frame, Reddish).count) << "the same faces, the input's colour";

  // Lit from the camera: faces wound the wrong way would face away from
  // the light and show at the engine's floor of 20%.
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("lighting", 1);
  host.store.SetPath("path", file.c_str());
  auto lit = nimbo::testing::MakeEffect("3DSViewer", &host);
  lit->UpdateConfig();
  ASSERT_EQ(lit->Initialize(), 1);
  const std::vector<uint32_t> lit_frame = Frame(*lit, 0);
  EXPECT_GT(Find(lit_frame, Reddish).count, 100u) << "the camera's light falls straight on the front face";
}

// Decodes every file whose name ends in "green.png" as a green picture.
class GreenPictures final : public orrery::PictureDecoder {
 public:
  GreenPictures() { orrery::SetPictureDecoder(this); }
  ~GreenPictures() { orrery::SetPictureDecoder(nullptr); }
  bool Decode(const char* path, int32_t* width, int32_t* height, std::vector<uint32_t>* pixels) override {
    const std::string p = path;
    if (p.size() < 9 || p.substr(p.size() - 9) != "green.png") return false;
    *width = *height = 8;
    pixels->assign(64, 0xFF00FF00u);
    return true;
  }
};

TEST_F(ViewerTest, TextureMapsAreFoundBesideTheSceneAndLoadedByTheHost) {
  GreenPictures decoder;
  nimbo::C3DSWriter w;
  vt::AddColorMaterial(w, "painted", 0xFF0000, "C:\\MAPS\\GREEN.PNG");  // as old files name them
  const float origin[3] = {0, 0, 0};
  vt::AddCube(w, "Box", origin, 12, "painted");
  const float position[3] = {0, 0, -100}, target[3] = {0, 0, 0};
  w.AddCamera(position, target, 0, 60);
  const fs::path file = dir / "painted.3ds";
  ASSERT_TRUE(vt::Save(w, file.string()));

  auto effect = Make();
  ASSERT_EQ(Load(*effect, file), "");
  const std::vector<uint32_t> without = Frame(*effect, 0);
  EXPECT_GT(Find(without, Reddish).count, 100u) << "no picture anywhere: the material's colour";

  std::ofstream(dir / "green.png") << "decoded by the test's loader";
  auto painted = Make();
  ASSERT_EQ(Load(*painted, file), "");
  const std::vector<uint32_t> with = Frame(*painted, 0);
  EXPECT_EQ(Find(with, Reddish).count, 0u);
  EXPECT_EQ(Find(with, Greenish).count, Find(without, Reddish).count);
}

TEST_F(ViewerTest, DeclaresItsSettingsVariablesAndLoadCommand) {
  auto effect = nimbo::testing::MakeEffect("3DSViewer", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  for (const char* name : {"Playback speed", "Insert FX: size", "Camera: orbit angle"})
    EXPECT_NE(host.FindDynVar(name), nullptr) << name;
  for (const char* key : {"path", "scenecam", "loop", "lighting", "texinputs", "texsize", "twosided", "bgtype"})
    EXPECT_NE(host.store.GetString(key, nullptr), nullptr) << key;
  EXPECT_EQ(effect->GetInputCount(), 9);
  EXPECT_STREQ(effect->GetInputTypeName(8), "RGB Texture");
  std::string message;
  EXPECT_EQ(orrery::RunEffectAction(effect.get(), "load-3ds", (dir / "nothing.3ds").c_str(), &message), 0);
  EXPECT_EQ(message, "couldn't open 3ds-file!");
}

}  // namespace
