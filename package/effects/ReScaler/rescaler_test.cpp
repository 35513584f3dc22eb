// ReScaler through the real engine: input size negotiation and its modes,
// the texture geometry, pixel-exact blocks, skipped frames, settings, and
// what happens without an engine library.
#include <gtest/gtest.h>

#include <string>

#include "bin_path.h"
#include "nb3d/nb3d.h"
#include "core/effect_base.h"
#include "render3d/engine_loader.h"
#include "test_host.h"

namespace {

using nimbo::testing::BinPathOverride;
using nimbo::testing::FillRandom;
using nimbo::testing::MessageCapture;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kReScaler[] = "ReScaler";

// Answers the setup dialog with OK and the given size mode and custom size.
class DialogAnswer final : public orrery::DialogService {
 public:
  DialogAnswer(int32_t mode, int32_t w = 0, int32_t h = 0) : mode_(mode), w_(w), h_(h) {
    orrery::SetDialogService(this);
  }
  ~DialogAnswer() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    help_page = model.help_page ? model.help_page : "";
    for (int32_t i = 0; i < model.count; ++i) {
      const orrery::DialogField& f = model.fields[i];
      if (f.type == orrery::DialogFieldType::kChoice) *static_cast<int32_t*>(f.value) = mode_;
      if (f.type == orrery::DialogFieldType::kInt && w_) *static_cast<int32_t*>(f.value) = i == 1 ? w_ : h_;
      // The number fields follow the radio group: enabled for custom only,
      // and they accept 2 .. 1024.
      if (f.type == orrery::DialogFieldType::kInt) {
        custom_only = custom_only && f.enabled_by == 0 && f.enabled_value == 3;
        sizes_2_to_1024 = sizes_2_to_1024 && f.minimum == 2 && f.maximum == 1024;
      }
    }
    return 1;
  }
  std::string help_page;
  bool custom_only = true;
  bool sizes_2_to_1024 = true;

 private:
  int32_t mode_, w_, h_;
};

class ReScalerTest : public ::testing::Test {
 protected:
  ReScalerTest() : bin(NIMBO_BIN_DIR) { nimbo::ForgetReportedEngineFailure(); }

  // Creates the effect the way a host does, up to Initialize.
  std::unique_ptr<orrery::Effect> Start(TestHost& host) {
    auto effect = nimbo::testing::MakeEffect(kReScaler, &host);
    effect->UpdateConfig();
    return effect;
  }
  static nb3D* EngineOf(orrery::Effect& effect) { return static_cast<nimbo::CEffectBase&>(effect).Engine(); }
  static orrery::Size TextureOf(orrery::Effect& effect) {
    orrery::Size size{0, 0};
    nb3D* engine = EngineOf(effect);
    if (engine) engine->GetTextureSize("maintex", &size.width, &size.height);
    return size;
  }

  BinPathOverride bin;
  MessageCapture capture;
};

TEST_F(ReScalerTest, SettingsAreStoredAndAZeroSizeTakesTheProposal) {
  TestHost host(640, 480);
  auto effect = Start(host);
  EXPECT_EQ(host.store.GetInt("!", 0), 1);
  EXPECT_EQ(host.store.GetInt("in_w", -1), 0);
  EXPECT_EQ(host.store.GetInt("in_h", -1), 0);

  EXPECT_EQ(effect->GetInputScreenRes(0, -1, -1), (orrery::Size{-1, -1}));
  // in_w = 0: the host's proposal becomes the input size.
  EXPECT_EQ(effect->GetInputScreenRes(0, 640, 480), (orrery::Size{640, 480}));
  EXPECT_EQ(TextureOf(*effect), (orrery::Size{1024, 512}));
  int32_t memory = effect->GetMemoryUsage();
  EXPECT_GT(memory, 0);
  EXPECT_EQ(effect->Initialize(), 1);
  EXPECT_EQ(effect->GetMemoryUsage(), memory) << "the texture is not counted";
  // Custom mode keeps its size whatever the host proposes.
  EXPECT_EQ(effect->GetInputScreenRes(0, 320, 200), (orrery::Size{640, 480}));
  EXPECT_TRUE(capture.messages.empty());
}

TEST_F(ReScalerTest, SavedZeroWidthTakesTheOutputWidthAtInitialize) {
  TestHost host(200, 100);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("in_w", 0);
  host.store.SetInt("in_h", 50);
  auto effect = Start(host);
  ASSERT_EQ(effect->Initialize(), 1);
  EXPECT_EQ(effect->GetInputScreenRes(0, 999, 999), (orrery::Size{200, 50}));
  EXPECT_EQ(TextureOf(*effect), (orrery::Size{256, 64}));
}

TEST_F(ReScalerTest, HalfModeOn640x480UsesA512x256TextureAndExact2x2Blocks) {
  TestHost host(640, 480);
  auto effect = Start(host);
  effect->GetInputScreenRes(0, 640, 480);
  {
    DialogAnswer half(0);
    ASSERT_EQ(effect->SetupDialog(), 1);
    EXPECT_EQ(half.help_page, "helpfile/Effects/Misc/ReScaler/ReScaler.htm");
    EXPECT_TRUE(half.custom_only);
    EXPECT_TRUE(half.sizes_2_to_1024);
  }
  ASSERT_EQ(host.notifications.size(), 2u);
  EXPECT_EQ(host.notifications[0], std::make_pair(259, 1));
  EXPECT_EQ(host.notifications[1], std::make_pair(259, 0));
  EXPECT_EQ(effect->GetInputScreenRes(0, 640, 480), (orrery::Size{320, 240}));
  EXPECT_EQ(TextureOf(*effect), (orrery::Size{512, 256}));

  // Texture coordinates 320/512 = 0.625 and 240/256 = 0.9375 show exactly
  // the uploaded corner: every input pixel becomes one 2x2 block.
  OwnedScreen in(320, 240);
  FillRandom(in, 3);
  OwnedScreen out(640, 480);
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
  int wrong = 0;
  for (int y = 0; y < 480; ++y) {
    for (int x = 0; x < 640; ++x) wrong += out.At(x, y) != in.At(x / 2, y / 2);
  }
  EXPECT_EQ(wrong, 0);
}

TEST_F(ReScalerTest, DoubleModeClampsEachSideTo1024AndReinitialisesEveryTime) {
  TestHost host(1024, 768);
  auto effect = Start(host);
  effect->GetInputScreenRes(0, 1024, 768);
  DialogAnswer twice(2);
  ASSERT_EQ(effect->SetupDialog(), 1);
  EXPECT_EQ(TextureOf(*effect), (orrery::Size{1024, 1024}));
  for (int i = 0; i < 3; ++i) {
    // A mark in the engine's report: a new engine object starts without it.
    ASSERT_NE(EngineOf(*effect), nullptr);
    EngineOf(*effect)->ErrorReport("mark");
    EXPECT_EQ(effect->GetInputScreenRes(0, 1024, 768), (orrery::Size{1024, 1024}));
    ASSERT_NE(EngineOf(*effect), nullptr);
    EXPECT_EQ(EngineOf(*effect)->GetErrorCount(), 0) << "2048x1536 never equals the stored size";
  }
  // Quarter mode follows the proposal down.
  DialogAnswer quarter(1);
  ASSERT_EQ(effect->SetupDialog(), 1);
  EXPECT_EQ(effect->GetInputScreenRes(0, 1024, 768), (orrery::Size{256, 192}));
  EXPECT_EQ(TextureOf(*effect), (orrery::Size{256, 256}));
}

TEST_F(ReScalerTest, SmallInputGivesExact10x10BlocksAndWrongSizesAreSkipped) {
  TestHost host(640, 480);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("in_w", 64);
  host.store.SetInt("in_h", 48);
  auto effect = Start(host);
  EXPECT_EQ(effect->GetInputScreenRes(0, 640, 480), (orrery::Size{64, 48}));
  ASSERT_EQ(effect->Initialize(), 1);

  OwnedScreen in(64, 48);
  FillRandom(in, 11);
  OwnedScreen out(640, 480);
  for (int frame = 0; frame < 2; ++frame) {
    ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
    int wrong = 0;
    for (int y = 0; y < 480; ++y) {
      for (int x = 0; x < 640; ++x) wrong += out.At(x, y) != in.At(x / 10, y / 10);
    }
    EXPECT_EQ(wrong, 0) << "frame " << frame;
    FillRandom(in, 12);  // the next frame shows the next input
  }

  // Inputs of another size, or none, leave the output as it was.
  OwnedScreen marked(640, 480, 0x12345678u);
  OwnedScreen too_big(65, 48);
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {&too_big.screen}, &marked.screen), 0);
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {}, &marked.screen), 0);
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {nullptr}, &marked.screen), 0);
  EXPECT_EQ(marked.At(0, 0), 0x12345678u);
  EXPECT_EQ(marked.At(639, 479), 0x12345678u);
  // ...and the engine can still draw the next right frame.
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
  EXPECT_EQ(out.At(639, 479), in.At(63, 47));
}

TEST_F(ReScalerTest, WithoutTheEngineLibraryTheUserIsToldOnceAndNothingIsDrawn) {
  BinPathOverride nowhere("/nonexistent-nimbo-bin");
  TestHost host(64, 48);
  auto effect = Start(host);
  // The host's order: negotiation (which initialises), then Initialize.
  EXPECT_EQ(effect->GetInputScreenRes(0, 64, 48), (orrery::Size{64, 48}));
  EXPECT_EQ(effect->Initialize(), 0);
  EXPECT_EQ(EngineOf(*effect), nullptr);
  OwnedScreen in(64, 48, 0xFFFFFFFFu);
  OwnedScreen out(64, 48, 0xFF000001u);
  for (int frame = 0; frame < 3; ++frame) {
    EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 0);
  }
  EXPECT_EQ(out.At(10, 10), 0xFF000001u);
  EXPECT_EQ(effect->SendEffectMessage(1, 2), 0);
  ASSERT_EQ(capture.messages.size(), 1u);
  EXPECT_EQ(capture.messages[0].text.rfind("The nb3D.DLL couldn't be loaded. Reason:\r\nnb3D.DLL not found\r\nCode ", 0),
            0u);
}

}  // namespace
