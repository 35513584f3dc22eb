// The editors of the 3D effects that compile a source (Evaluator3D's formula
// editor, ImplicitBeast's program editor) as a host runs them through
// SetupDialog, round after round:
//   - OK keeps every edit (the editor's, the scene's, the material's) in the
//     effect's settings and tells the host around the re-initialisation;
//   - Cancel, even after rounds with edits, leaves the settings as they were;
//   - a source that does not compile is named at the top, and the next round
//     shows everything the user had typed, the faulty text included;
//   - the file buttons work on the file the round names, a file that cannot
//     be read is reported (caption "Error"), an empty or one-too-many user
//     variable is explained (caption "Info"), and nothing typed is lost.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "bin_path.h"
#include "orrery/services.h"
#include "test_host.h"

namespace {

namespace fs = std::filesystem;
using nimbo::testing::MessageCapture;
using Rounds = nimbo::testing::DialogRounds;
using nimbo::testing::TestHost;

constexpr std::pair<int32_t, int32_t> kReinitialising{259, 1};
constexpr std::pair<int32_t, int32_t> kReinitialised{259, 0};

class RoundDialogTest : public ::testing::Test {
 protected:
  RoundDialogTest() : bin_(NIMBO_BIN_DIR) {
    dir_ = fs::temp_directory_path() / ("round_dialog_test_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  ~RoundDialogTest() override { fs::remove_all(dir_); }

  std::unique_ptr<orrery::Effect> Start(const char* name) {
    auto effect = nimbo::testing::MakeEffect(name, &host_);
    EXPECT_TRUE(effect) << name;
    if (effect) effect->UpdateConfig();
    return effect;
  }
  bool Said(const char* caption, const std::string& text) const {
    for (const auto& m : capture_.messages)
      if (m.caption == caption && m.text == text) return true;
    return false;
  }

  nimbo::testing::BinPathOverride bin_;
  TestHost host_{64, 48};
  MessageCapture capture_;
  fs::path dir_;
};

TEST_F(RoundDialogTest, ProgramEditorOkKeepsEveryEditCancelKeepsNoneAFailureKeepsTheRound) {
  auto effect = Start("ImplicitBeast");
  ASSERT_TRUE(effect);
  const std::string before = host_.store.Text();
  const std::string bad = "A=X*X\nB=A+\nFUN=B";
  const std::string mended = "A=X*X+Y*Y\nFUN=A+Z*Z-1";

  {  // Cancel after a round of edits that was refused
    Rounds cancel([&](int32_t round, const orrery::DialogModel& m) {
      Rounds::Text(m, "FUN program") = bad;
      Rounds::Int(m, "Grid") = 20;
      return round == 0 ? 1 : 0;
    });
    EXPECT_EQ(effect->SetupDialog(), 0);
    EXPECT_EQ(cancel.titles.size(), 2u);
  }
  EXPECT_EQ(host_.store.Text(), before) << "Cancel stores nothing";
  EXPECT_TRUE(host_.notifications.empty()) << "Cancel re-initialises nothing";

  std::string shown_program;
  int32_t shown_grid = 0, shown_colour = 0;
  Rounds ok([&](int32_t round, const orrery::DialogModel& m) {
    switch (round) {
      case 0:
        Rounds::Text(m, "FUN program") = bad;
        Rounds::Int(m, "Grid") = 20;
        Rounds::Int(m, "Background colour") = 0x112233;
        return 1;
      case 1:  // refused: the round shows what was typed
        shown_program = Rounds::Text(m, "FUN program");
        shown_grid = Rounds::Int(m, "Grid");
        shown_colour = Rounds::Int(m, "Background colour");
        Rounds::Text(m, "FUN program") = mended;
        return 1;
      case 2:  // the material editor follows
        Rounds::Text(m, "name") = "beast skin";
        return 1;
      default:
        ADD_FAILURE() << "round " << round;
        return 0;
    }
  });
  EXPECT_EQ(effect->SetupDialog(), 1);
  ASSERT_EQ(ok.titles.size(), 3u);
  EXPECT_EQ(ok.tops[1], "The FUN program does not compile: error in line 1 (counted from 0).");
  EXPECT_EQ(shown_program, bad);
  EXPECT_EQ(shown_grid, 20);
  EXPECT_EQ(shown_colour, 0x112233);
  EXPECT_EQ(ok.titles[2], "Material");
  EXPECT_STREQ(host_.store.GetString("program", ""), mended.c_str());
  EXPECT_EQ(host_.store.GetInt("grid", 0), 20);
  EXPECT_EQ(host_.store.GetInt("bgcolor", 0), 0x112233);
  EXPECT_STREQ(host_.store.GetString("mat0matname", ""), "beast skin");
  const std::vector<std::pair<int32_t, int32_t>> around{kReinitialising, kReinitialised};
  EXPECT_EQ(host_.notifications, around);

  // The programs are taken even when the material editor is cancelled; the
  // material stays as it was.
  host_.notifications.clear();
  Rounds material_cancelled([&](int32_t round, const orrery::DialogModel& m) {
    if (round == 0) {
      Rounds::Int(m, "Grid") = 24;
      return 1;
    }
    Rounds::Text(m, "name") = "not taken";
    return 0;
  });
  EXPECT_EQ(effect->SetupDialog(), 1);
  EXPECT_EQ(host_.store.GetInt("grid", 0), 24);
  EXPECT_STREQ(host_.store.GetString("mat0matname", ""), "beast skin");
  EXPECT_EQ(host_.notifications, around);
}

TEST_F(RoundDialogTest, FileAndVariableButtonsReportTroubleAndKeepTheRound) {
  auto effect = Start("Evaluator3D");
  ASSERT_TRUE(effect);
  const std::string missing = (dir_ / "missing.e3d").string();
  const std::string saved = (dir_ / "saved.e3d").string();
  const std::string formula = "i/(imax-1)*3";
  std::string shown_formula, shown_file;
  Rounds rounds([&](int32_t round, const orrery::DialogModel& m) {
    switch (round) {
      case 0:
        Rounds::Text(m, "a") = formula;
        Rounds::Text(m, "E3D file") = missing;
        Rounds::Int(m, "Load E3D...") = 1;
        return 1;
      case 1:
        shown_formula = Rounds::Text(m, "a");
        shown_file = Rounds::Text(m, "E3D file");
        Rounds::Int(m, "Add variable") = 1;  // with no name typed
        return 1;
      case 2:
        Rounds::Text(m, "E3D file") = saved;
        Rounds::Int(m, "Save E3D...") = 1;
        return 1;
      default:
        return 1;
    }
  });
  EXPECT_EQ(effect->SetupDialog(), 1);
  EXPECT_EQ(rounds.titles.size(), 4u) << "each button opens the dialog again";
  EXPECT_TRUE(Said("Error", "Couldn't open file"));
  EXPECT_EQ(shown_formula, formula) << "a failed load keeps what was typed";
  EXPECT_EQ(shown_file, missing);
  EXPECT_TRUE(Said("Info",
                   "Enter the name of the new variable in the\nfield below the add button, then click the\nadd button "
                   "again."));
  std::ifstream in(saved, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_NE(text.str().find(formula), std::string::npos) << "the set is saved to the file the round names";
  EXPECT_STREQ(host_.store.GetString("expr_a", ""), formula.c_str());

  // A file holding 255 user variables fills the list: one more is explained
  // and refused, and Cancel then takes nothing of the loaded file.
  std::string full = "@nvars";
  full += '\0';
  full += "255";
  full += '\0';
  for (int k = 0; k < 255; ++k) {
    full += "@dynvar" + std::to_string(k);
    full += '\0';
    full += "uv" + std::to_string(k);
    full += '\0';
  }
  const std::string full_path = (dir_ / "full.e3d").string();
  std::ofstream(full_path, std::ios::binary) << full << text.str();
  capture_.messages.clear();
  host_.notifications.clear();
  const std::string stored = host_.store.Text();
  size_t names_shown = 0;
  Rounds too_many([&](int32_t round, const orrery::DialogModel& m) {
    if (round == 0) {
      Rounds::Text(m, "E3D file") = full_path;
      Rounds::Int(m, "Load E3D...") = 1;
      return 1;
    }
    if (round == 1) {
      for (int32_t k = 0; k < m.count; ++k)
        if (m.fields[k].label == std::string("variable") && m.fields[k].choices)
          names_shown =
              size_t(std::count(m.fields[k].choices, m.fields[k].choices + std::strlen(m.fields[k].choices), '|'));
      Rounds::Text(m, "new variable") = "extra";
      Rounds::Int(m, "Add variable") = 1;
      return 1;
    }
    return 0;
  });
  EXPECT_EQ(effect->SetupDialog(), 0);
  EXPECT_EQ(too_many.titles.size(), 3u);
  EXPECT_EQ(names_shown, 254u) << "the 255 loaded variables are listed";
  EXPECT_TRUE(Said("Info", "A formula set holds at most 255 user variables."));
  EXPECT_EQ(host_.store.Text(), stored);
  EXPECT_TRUE(host_.notifications.empty());
}

}  // namespace
