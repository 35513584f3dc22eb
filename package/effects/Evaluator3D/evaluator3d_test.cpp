// Evaluator3D as a host runs it, through the package and the real engine:
// a drawn frame, the file commands, the inputs it asks for, its dynamic
// variables, and the formula editor refusing OK until a formula is mended.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bin_path.h"
#include "core/effect_base.h"
#include "e3d_file.h"
#include "formula_editor.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "render3d/export_3ds.h"
#include "test_host.h"

namespace {

namespace fs = std::filesystem;
using nimbo::testing::BinPathOverride;
using nimbo::testing::MessageCapture;
using nimbo::testing::TestHost;

constexpr uint32_t kBackground = 0xFF204060u;

class Evaluator3DTest : public ::testing::Test {
 protected:
  Evaluator3DTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("evaluator3d_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~Evaluator3DTest() override { fs::remove_all(dir); }

  std::unique_ptr<orrery::Effect> Start(TestHost& host) {
    auto effect = nimbo::testing::MakeEffect("Evaluator3D", &host);
    EXPECT_TRUE(effect);
    effect->UpdateConfig();
    return effect;
  }
  // Renders one frame over a plain background input; the output's pixels.
  std::vector<uint32_t> RenderFrame(orrery::Effect& effect, int32_t w, int32_t h) {
    std::vector<uint32_t> bg(size_t(w) * size_t(h), kBackground), pixels(bg.size());
    orrery::Screen background{w, h, bg.data()}, out{w, h, pixels.data()};
    rendered = nimbo::testing::RenderOnce(effect, {&background}, &out);
    return pixels;
  }
  std::string Run(orrery::Effect& effect, const char* action, const fs::path& path, int32_t* ok = nullptr) {
    std::string message;
    const int32_t result = orrery::RunEffectAction(&effect, action, path.c_str(), &message);
    if (ok) *ok = result;
    return message;
  }

  BinPathOverride bin;
  MessageCapture capture;
  fs::path dir;
  int32_t rendered = 0;
};

TEST_F(Evaluator3DTest, DrawsTheDefaultSurfaceAndExportsIt) {
  TestHost host(160, 120);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("bgtype", 1);  // the Background input
  auto effect = Start(host);
  // Before Initialize there is no engine and no mesh.
  EXPECT_EQ(Run(*effect, "save-3ds", dir / "early.3ds"), nimbo::kMessageRenderingDisabled);
  EXPECT_FALSE(fs::exists(dir / "early.3ds"));
  ASSERT_EQ(effect->Initialize(), 1);
  const std::vector<uint32_t> frame = RenderFrame(*effect, 160, 120);
  ASSERT_EQ(rendered, 1);
  const size_t drawn = size_t(std::count_if(frame.begin(), frame.end(),
                                            [](uint32_t p) { return (p & 0xFFFFFFu) != (kBackground & 0xFFFFFFu); }));
  EXPECT_GT(drawn, frame.size() / 10);  // the grid covers a good part of the picture
  EXPECT_LT(drawn, frame.size());       // and the background shows around it
  EXPECT_EQ(frame[0] & 0xFFFFFFu, kBackground & 0xFFFFFFu);

  int32_t ok = 0;
  EXPECT_EQ(Run(*effect, "save-3ds", dir / "grid.3ds", &ok), "");
  EXPECT_EQ(ok, 1);
  EXPECT_GT(fs::file_size(dir / "grid.3ds"), 100 * 12u);  // at least the vertices
  EXPECT_EQ(Run(*effect, "save-3ds", dir / "no_folder" / "grid.3ds"), nimbo::kMessageCannotCreate);
}

TEST_F(Evaluator3DTest, FileCommandsLoadAndSaveFormulaSets) {
  TestHost host(64, 48);
  auto effect = Start(host);
  nimbo::e3d::FormulaSet set;
  set.imax = 12;
  set.jmax = 5;
  set.text[nimbo::e3d::kY] = "sin(a*pi)*depth";
  ASSERT_EQ(nimbo::e3d::AddUserVariable(set, "Depth"), nimbo::e3d::AddVariable::kAdded);
  ASSERT_EQ(nimbo::e3d::SaveE3DFile((dir / "in.e3d").string(), set), "");

  int32_t ok = 1;
  EXPECT_EQ(Run(*effect, "load-e3d", dir / "missing.e3d", &ok), nimbo::e3d::kMessageCannotOpen);
  EXPECT_EQ(ok, 0);
  EXPECT_EQ(Run(*effect, "load-e3d", dir / "in.e3d", &ok), "");
  EXPECT_EQ(ok, 1);
  // The loaded set is what the effect now stores, asks for and declares.
  EXPECT_STREQ(host.store.GetString("expr_y", ""), "sin(a*pi)*depth");
  EXPECT_EQ(host.store.GetInt("rangei", 0), 12);
  EXPECT_EQ(effect->GetInputScreenRes(3, 640, 480), (orrery::Size{12, 5}));
  EXPECT_EQ(effect->GetInputScreenRes(3, -1, -1), (orrery::Size{-1, -1}));
  EXPECT_STREQ(effect->GetInputScreenName(1), "tex1");
  EXPECT_STREQ(effect->GetInputScreenName(2), "tex2");
  ASSERT_NE(host.FindDynVar("depth"), nullptr);
  std::vector<std::string> names;
  for (orrery::DynVar* v = host.dynvars; v; v = v->next)
    if (v->declared) names.push_back(v->name);
  ASSERT_GE(names.size(), 3u);
  EXPECT_EQ(names[0], "Evaluator time (1.0 = realtime)");
  EXPECT_EQ(names[1], "Insert FX: position x");
  EXPECT_EQ(names[5], "Disable visibility patterns");
  EXPECT_EQ(names.back(), "depth");

  EXPECT_EQ(Run(*effect, "save-e3d", dir / "out.e3d", &ok), "");
  nimbo::e3d::FormulaSet back;
  ASSERT_EQ(nimbo::e3d::LoadE3DFile((dir / "out.e3d").string(), back), "");
  EXPECT_EQ(back.text, set.text);
  EXPECT_EQ(Run(*effect, "save-e3d", dir / "none" / "out.e3d"), nimbo::e3d::kMessageCannotCreate);
}

// A set that fails to compile without the editor open (stored settings, an
// E3D file) is told once, naming the formula by name and index and the
// names it may use; the editor is not there to select it.
TEST_F(Evaluator3DTest, AFailingFormulaFromSettingsOrAFileIsTold) {
  TestHost host(64, 48);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetString("expr_x", "hmap*10");  // hmap while the height map is off
  auto effect = Start(host);
  ASSERT_EQ(capture.messages.size(), 1u);
  EXPECT_EQ(capture.messages[0].caption, "Evaluator3D");
  EXPECT_EQ(capture.messages[0].text.rfind("Formula x (0) uses \"hmap\", which it may not use: i, j, a-h ", 0), 0u)
      << capture.messages[0].text;
  effect->UpdateConfig();  // the same fault again: not told twice
  EXPECT_EQ(capture.messages.size(), 1u);

  nimbo::e3d::FormulaSet set;
  set.text[nimbo::e3d::kCy] = "i";  // a camera formula sees no grid position
  ASSERT_EQ(nimbo::e3d::SaveE3DFile((dir / "bad.e3d").string(), set), "");
  EXPECT_EQ(Run(*effect, "load-e3d", dir / "bad.e3d"), "");
  ASSERT_EQ(capture.messages.size(), 2u);
  EXPECT_EQ(capture.messages[1].text.rfind("Formula cy (10) uses \"i\"", 0), 0u) << capture.messages[1].text;

  nimbo::e3d::FormulaSet good;
  ASSERT_EQ(nimbo::e3d::SaveE3DFile((dir / "good.e3d").string(), good), "");
  EXPECT_EQ(Run(*effect, "load-e3d", dir / "good.e3d"), "");
  EXPECT_EQ(capture.messages.size(), 2u);
}

using EditorAnswers = nimbo::testing::DialogRounds;

TEST_F(Evaluator3DTest, TheEditorRefusesOkUntilTheFailingFormulaIsMended) {
  TestHost host(64, 48);
  auto effect = Start(host);
  EditorAnswers dialog([](int32_t round, const orrery::DialogModel& model) {
    auto text = [&](const char* label) { return &EditorAnswers::Text(model, label); };
    switch (round) {
      case 0:
        *text("a") = "b*2";  // a may not use b
        *text("cx") = "cos(t)*120";
        return 1;
      case 1:  // still failing: the user tries OK again
        return 1;
      case 2:
        *text("a") = "i/(imax-1)*2";
        *text("new variable") = "Wobble";
        EditorAnswers::Int(model, "Add variable") = 1;
        return 1;
      default:
        return 1;
    }
  });
  EXPECT_EQ(effect->SetupDialog(), 1);
  ASSERT_EQ(dialog.Rounds(), 4);
  EXPECT_NE(dialog.tops[1].find("Formula a (5)"), std::string::npos) << dialog.tops[1];
  EXPECT_NE(dialog.tops[2].find("Formula a (5)"), std::string::npos);
  EXPECT_EQ(dialog.tops[3], "All formulas compile.");
  EXPECT_STREQ(host.store.GetString("expr_a", ""), "i/(imax-1)*2");
  EXPECT_STREQ(host.store.GetString("expr_cx", ""), "cos(t)*120");
  EXPECT_NE(host.FindDynVar("wobble"), nullptr);
  EXPECT_EQ(host.notifications.size(), 2u);  // 259/1 and 259/0 around the re-initialisation

  // Cancel leaves everything as it was, even after a failing edit.
  EditorAnswers cancel([](int32_t round, const orrery::DialogModel& model) {
    EditorAnswers::Text(model, "x") = "nonsense";
    return round == 0 ? 1 : 0;
  });
  EXPECT_EQ(effect->SetupDialog(), 0);
  EXPECT_STREQ(host.store.GetString("expr_x", ""), "(a-0.5)*100");
}

TEST(Evaluator3DEditor, AServiceThatNeverMendsTheSetGivesUp) {
  nimbo::e3d::EvaluatorSettings settings;
  settings.set.text[nimbo::e3d::kCx] = "i";
  int32_t compiles = 0;
  nimbo::e3d::FormulaEditor editor(settings, {}, [&](const nimbo::e3d::FormulaSet& s) {
    ++compiles;
    return nimbo::e3d::Recompile(s);
  });
  EditorAnswers always_ok([](int32_t, const orrery::DialogModel&) { return 1; });
  EXPECT_FALSE(editor.Run(nullptr));
  EXPECT_EQ(always_ok.Rounds(), nimbo::e3d::FormulaEditor::kMaxRounds);
  EXPECT_EQ(editor.ErrorFormula(), nimbo::e3d::kCx);
  EXPECT_EQ(compiles, nimbo::e3d::FormulaEditor::kMaxRounds);
}

}  // namespace
