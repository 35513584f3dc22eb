// The base of the 3D effects and the round-based editor frame, through a
// small effect and a small editor of their own: the order of the stored keys
// and of the dynamic variables, the order of a frame's hooks through the
// real engine, "Save as 3DS...", and the editor's rounds and variable list.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "bin_path.h"
#include "render3d/round_dialog.h"
#include "render3d/scene_effect.h"
#include "test_host.h"

namespace nimbo {
namespace {

using testing::BinPathOverride;
using testing::TestHost;

struct ToySettings {
  int32_t size;
};
constexpr SettingRow<ToySettings> kToyRows[] = {{"size", &ToySettings::size, 7, nullptr, 1, 9, "Size", "size"}};
constexpr orrery::InputDesc kToyInputs[] = {{-1, -1, "Background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kToyInfo = {
    kToyInputs, 3, {-1, -1}, "output", "toy", kAuthor, "Effect,3D,", 1, orrery::kEffectVersion};
constexpr SceneVar kToyVar = {"Toy speed", -1.0f, 1.0f, 0.5f};

// One triangle in front of the default camera; every hook leaves its name.
class ToyEffect final : public CTableSceneEffect<ToySettings> {
 public:
  explicit ToyEffect(bool names_inputs)
      : CTableSceneEffect(kToyInfo, 0, "toy.htm", sizeof(ToyEffect), Layout(names_inputs), kToyRows, "Toy") {
    materials_.LoadMaterial(0, LightMapMaterial("toymat"));
    RegisterSave3DS("Save as 3DS...: the toy");
  }
  std::vector<std::string> calls;
  using CSceneEffect::Export3DS;

 protected:
  static SceneEffectLayout Layout(bool names_inputs) {
    return {.material_names_inputs = names_inputs, .render_error = "Toy::Render Error", .material_name = "toymat",
            .mesh_name = "Toy"};
  }
  void DeclareDynVars() override {
    DeclareVar(kToyVar);
    CSceneEffect::DeclareDynVars();
  }
  void PrepareFrame() override { calls.push_back("prepare"); }
  float TimeSpeed() override {
    calls.push_back("speed");
    return 1.0f;
  }
  SceneCamera OwnCamera(float t) override {
    calls.push_back("camera");
    return CSceneEffect::OwnCamera(t);
  }
  void BuildFrame(float, const orrery::InputList&) override {
    calls.push_back("build");
    vertices_.assign(3, nb3D::Vertex{});
    vertices_[1].x = 40, vertices_[2].y = 40;
    triangles_ = {0, 1, 2};
    mesh_built_ = true;
  }
  void DrawFrame() override {
    calls.push_back("draw");
    CSceneEffect::DrawFrame();
  }
};

TEST(SceneEffect, KeysAndVariablesComeOwnThenSceneThenMaterials) {
  TestHost host;
  ToyEffect effect(true);
  effect.SetHostContext(&host);
  effect.UpdateConfig();
  const std::string& text = host.store.Text();
  const size_t own = text.find("\"size\""), scene = text.find("\"bgtype\""), mat = text.find("\"mat0");
  ASSERT_NE(own, std::string::npos);
  ASSERT_NE(mat, std::string::npos);
  EXPECT_LT(own, scene);
  EXPECT_LT(scene, text.find("\"insertfx\""));
  EXPECT_LT(text.find("\"insertfx\""), mat);

  std::vector<std::string> names;
  for (const orrery::DynVar* v = host.dynvars; v; v = v->next) names.push_back(v->name);
  ASSERT_GE(names.size(), 2u);
  EXPECT_EQ(names[0], "Toy speed");
  EXPECT_EQ(names[1], "Insert FX: position x");
  EXPECT_EQ(names.back().rfind("Camera: ", 0), 0u) << "the camera set comes last";

  // The texture inputs answer with the material's names only where the
  // layout says so.
  EXPECT_STRNE(effect.GetInputScreenName(1), "UNKNOWN");
  ToyEffect plain(false);
  EXPECT_STREQ(plain.GetInputScreenName(1), "UNKNOWN");
  EXPECT_STREQ(plain.GetInputScreenName(0), "Background");
}

TEST(SceneEffect, AFrameRunsItsHooksInOrderAndExportsWhatItDrew) {
  BinPathOverride bin{NIMBO_BIN_DIR};
  TestHost host(32, 24);
  ToyEffect effect(true);
  effect.SetHostContext(&host);
  effect.UpdateConfig();
  std::vector<uint32_t> pixels(32 * 24, 0);
  orrery::Screen out{32, 24, pixels.data()};
  const orrery::InputList none{nullptr, 0};
  EXPECT_EQ(effect.Render(none, &out), 0) << "nothing before Initialize";
  EXPECT_TRUE(effect.calls.empty());

  ASSERT_EQ(effect.Initialize(), 1);
  const std::string path = (std::filesystem::temp_directory_path() / "scene_effect_test.3ds").string();
  EXPECT_EQ(effect.Export3DS(path), kMessageRenderingDisabled) << "nothing drawn yet";
  ASSERT_EQ(effect.Render(none, &out), 1);
  EXPECT_EQ(effect.calls, (std::vector<std::string>{"prepare", "speed", "camera", "build", "draw"}));
  EXPECT_EQ(pixels[0], 0xFF000000u) << "the default background colour";
  EXPECT_EQ(effect.Export3DS(path), "");
  EXPECT_GT(std::filesystem::file_size(path), 0u);
  std::filesystem::remove(path);

  // A new engine object forgets the mesh until the next frame.
  ASSERT_EQ(effect.Initialize(), 1);
  EXPECT_EQ(effect.Export3DS(path), kMessageRenderingDisabled);
}

// ---- the editor frame ----------------------------------------------------------
enum class ToyAdd { kAdded, kEmpty, kRefused, kDuplicate, kFull };

class ToyEditor final : public RoundDialog {
 public:
  std::vector<std::string> vars;
  int32_t mends_needed = 0;  // rounds that fail before one is accepted
  bool Run() { return RunRounds("Toy editor", nullptr); }
  bool AfterOk() override {
    const bool pressed = AnyButtonPressed();
    if (add_pressed_) {
      ToyAdd result = ToyAdd::kAdded;
      if (new_variable_.empty()) result = ToyAdd::kEmpty;
      else if (new_variable_.size() < 2) result = ToyAdd::kRefused;
      else vars.push_back(new_variable_);
      AfterAddVariable(result, vars.size(), "full");
    }
    if (delete_pressed_) DeleteShownVariable(vars);
    ClearButtons();
    return !pressed && mends_needed-- <= 0 && !SelectionMoved();
  }

 private:
  void BuildFields() override {
    AddNewVariableFields("a name");
    if (AddVariableChoice(vars)) AddDeleteVariableButton();
    AddFileFields("toy file", "", "Load...", "Save...");
  }
};

// Answers each round through `answer` (1 = OK); counts the rounds.
class Answers final : public orrery::DialogService {
 public:
  explicit Answers(std::function<int32_t(const orrery::DialogModel&)> answer) : answer_(std::move(answer)) {
    orrery::SetDialogService(this);
  }
  ~Answers() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    ++rounds;
    return answer_(model);
  }
  static void* Field(const orrery::DialogModel& model, const std::string& label) {
    for (int32_t i = 0; i < model.count; ++i)
      if (model.fields[i].label == label) return model.fields[i].value;
    return nullptr;
  }
  int32_t rounds = 0;

 private:
  std::function<int32_t(const orrery::DialogModel&)> answer_;
};

TEST(RoundDialog, ButtonsAndFailuresOpenAnotherRoundUntilOkOrCancel) {
  testing::MessageCapture messages;
  ToyEditor editor;
  // Round 1 adds "ab", round 2 presses Add with nothing typed (a warning),
  // round 3 deletes "ab", round 4 is a plain OK.
  Answers script([&](const orrery::DialogModel& model) {
    auto* name = static_cast<std::string*>(Answers::Field(model, "new variable"));
    if (script.rounds == 1) *name = "ab";
    if (script.rounds <= 2) *static_cast<int32_t*>(Answers::Field(model, "Add variable")) = 1;
    if (script.rounds == 3) *static_cast<int32_t*>(Answers::Field(model, "Delete variable")) = 1;
    return 1;
  });
  EXPECT_TRUE(editor.Run());
  EXPECT_EQ(script.rounds, 4);
  EXPECT_TRUE(editor.vars.empty());
  ASSERT_EQ(messages.messages.size(), 1u);
  EXPECT_EQ(messages.messages[0].caption, "Info");

  // OK that never mends gives up after kMaxRounds; Cancel ends at once.
  ToyEditor stubborn;
  stubborn.mends_needed = RoundDialog::kMaxRounds;
  Answers always_ok([](const orrery::DialogModel&) { return 1; });
  EXPECT_FALSE(stubborn.Run());
  EXPECT_EQ(always_ok.rounds, RoundDialog::kMaxRounds);
  Answers cancel([](const orrery::DialogModel&) { return 0; });
  EXPECT_FALSE(stubborn.Run());
  EXPECT_EQ(cancel.rounds, 1);
}

}  // namespace
}  // namespace nimbo
