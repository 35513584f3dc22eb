// Keys with indices formatted in, through the built `nimbo` program and the
// real package: `--set` takes them once their count allows (set earlier on
// the command line, or by a preset), refuses them beyond it naming the count,
// checks their range, and `nimbo info` says what counts them. Also the
// matching of keys to their families, which presets lean on by the million.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "nimbo_run.h"
#include "runtime/indexed_keys.h"
#include "runtime/settings_edit.h"

namespace nimbo::host {
namespace {

TEST(IndexedKeys, KeysReadBackIntoTheirFamilyOnlyAsPercentIPrintsThem) {
  EXPECT_EQ(MatchPattern("alphamap_%i_x", "alphamap_12_x"), (std::vector<int32_t>{12}));
  EXPECT_EQ(MatchPattern("morph%iline%i_l1_p2_y", "morph3line0_l1_p2_y"), (std::vector<int32_t>{3, 0}));
  for (const char* key : {"alphamap_02_x", "alphamap_-1_x", "alphamap__x", "alphamap_1_xx", "alphamap_1_",
                          "alphamap_99999999999_x", "Alphamap_1_x"}) {
    EXPECT_FALSE(MatchPattern("alphamap_%i_x", key)) << key;
  }
  EXPECT_EQ(FormatPattern("morph%iline%i_l1_p1_x", {7}), "morph7line%i_l1_p1_x");

  IndexedKeyTable table;
  table.Describe({{"morph%in_lines", orrery::SettingType::kInt, 0, 1000, ""}, {{"n_morphs", 1000}}});
  table.Describe({{"morph%iline%i_l1_p1_x", orrery::SettingType::kFloat, 0, 0, ""},
                  {{"n_morphs", 1000}, {"morph%in_lines", 1000}}});
  table.Describe({{"morph%iline%i_l2_p1_x", orrery::SettingType::kFloat, 0, 0, ""},
                  {{"n_morphs", 1000}, {"morph%in_lines", 1000}}});
  // Same shape, told apart by the literal digits.
  const auto line = table.Find("morph10line4_l2_p1_x");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->family->setting.key, "morph%iline%i_l2_p1_x");
  EXPECT_EQ(line->indices, (std::vector<int32_t>{10, 4}));
  EXPECT_EQ(line->CountKey(0), "n_morphs");
  EXPECT_EQ(line->CountKey(1), "morph10n_lines");
  EXPECT_FALSE(table.Find("morph1line2_l3_p1_x"));
  EXPECT_FALSE(table.Find("n_morphs"));
  // The plain count is known as an int of the range the families read.
  ASSERT_TRUE(table.FindCount("n_morphs"));
  EXPECT_EQ(table.FindCount("n_morphs")->maximum, 1000);
  EXPECT_FALSE(table.FindCount("morph%in_lines"));
  // Described again (every UpdateConfig does): replaced, not added.
  table.Describe({{"morph%in_lines", orrery::SettingType::kInt, 0, 50, ""}, {{"n_morphs", 1000}}});
  EXPECT_EQ(table.Families().size(), 3u);
  EXPECT_EQ(table.Find("morph0n_lines")->family->setting.maximum, 50);
}

std::map<std::string, std::string> SavedSettings(const std::string& path) {
  std::map<std::string, std::string> saved;
  for (const SettingEntry& e : ReadSettingEntries(ReadFile(path))) saved.emplace(e.key, e.value);
  return saved;
}

TEST_F(NimboTest, SetTakesIndexedKeysWithinTheCountGivenEarlierAndRefusesTheRest) {
  WritePicture("in.png", Noise(8, 8));
  const std::string in = Path("in.png"), out = Path("out.png");
  RunResult r = Run({"render", "ChromaKeyPRO", "-i", in, "-i", in, "--set", "alphamaplen=3", "--set",
                     "alphamap_1_x=0.5", "--set", "alphamap_2_x=1", "--set", "alphamap_2_y=0.25", "--save-preset",
                     Path("k.xml"), "-o", out},
                    true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.err, "");
  // What the effect read and wrote back.
  std::map<std::string, std::string> saved = SavedSettings(Path("k.xml"));
  EXPECT_EQ(saved["alphamaplen"], "3");
  EXPECT_EQ(saved["alphamap_1_x"], "0.500000");
  EXPECT_EQ(saved["alphamap_2_x"], "1.000000");
  EXPECT_EQ(saved["alphamap_2_y"], "0.250000");

  r = Run({"render", "Distorter", "-i", in, "--set", "n_morphs=2", "--set", "morph1n_lines=1", "--set",
           "morph1name=Wave", "--set", "morph1line0_l2_p1_x=12.5", "--set", "morph1efrom=0.5", "--save-preset",
           Path("d.xml"), "-o", Path("d.png")},
          true);
  ASSERT_EQ(r.code, 0) << r.err;
  saved = SavedSettings(Path("d.xml"));
  EXPECT_EQ(saved["n_morphs"], "2");
  EXPECT_EQ(saved["morph1name"], "Wave");
  EXPECT_EQ(saved["morph1n_lines"], "1");
  EXPECT_EQ(saved["morph1line0_l2_p1_x"], "12.500000");
  EXPECT_EQ(saved["morph1efrom"], "0.500000");

  struct Case {
    std::vector<std::string> sets;
    const char* message;
    int lines = 1;  // the error, after any warning
  };
  const std::vector<Case> cases = {
      {{"alphamap_2_x=1"},
       "--set alphamap_2_x=1: index 2 of \"alphamap_2_x\" is at or beyond its count \"alphamaplen\" = 2"},
      // The count must come first, and a repeated count keeps its first value.
      {{"alphamap_2_x=1", "alphamaplen=3"}, "its count \"alphamaplen\" = 2"},
      {{"alphamaplen=3", "alphamaplen=5", "alphamap_4_y=1"}, "its count \"alphamaplen\" = 3", 2},
      {{"alphamaplen=1", "alphamap_1_x=0.5"}, "index 1 of \"alphamap_1_x\" is at or beyond its count \"alphamaplen\" = 1"},
      {{"alphamaplen=3", "alphamap_2_x=1.5"}, "--set alphamap_2_x=1.5: \"alphamap_2_x\" takes values in 0 .. 1"},
      {{"alphamaplen=3", "alphamap_2_y=nan"}, "\"alphamap_2_y\" takes values in 0 .. 1"},
      {{"alphamaplen=3", "alphamap_02_x=1"}, "has no setting \"alphamap_02_x\""},
      {{"n_morphs=2000"}, "\"n_morphs\" takes values in 0 .. 1000"},
      {{"morph0line0_l1_p1_x=3"}, "index 0 of \"morph0line0_l1_p1_x\" is at or beyond its count \"morph0n_lines\" = 0"},
      {{"morph1efrom=0.5"}, "index 1 of \"morph1efrom\" is at or beyond its count \"n_morphs\" = 1"},
      {{"n_morphs=3", "morph2line0_l1_p1_x=1"}, "its count \"morph2n_lines\" = 0"},
      {{"morph0n_lines=2", "morph0line1_l2_p2_y=inf"}, "\"morph0line1_l2_p2_y\" takes a finite number"},
      {{"morph0n_lines=1001"}, "\"morph0n_lines\" takes values in 0 .. 1000"},
      // A line count set after its line keys comes too late for them.
      {{"n_morphs=2", "morph1line0_l2_p1_x=4", "morph1n_lines=1"}, "its count \"morph1n_lines\" = 0"},
      {{"n_morphs=2", "morph1n_lines=2", "morph1line2_l1_p1_y=4"}, "index 2 of \"morph1line2_l1_p1_y\""},
  };
  for (const Case& c : cases) {
    const bool keyer = std::string(c.sets[0]).find("alphamap") != std::string::npos;
    std::vector<std::string> args{"render", keyer ? "ChromaKeyPRO" : "Distorter", "-i", in};
    if (keyer) args.insert(args.end(), {"-i", in});
    for (const std::string& set : c.sets) args.insert(args.end(), {"--set", set});
    args.insert(args.end(), {"-o", out});
    r = Run(args, true);
    EXPECT_EQ(r.code, 1) << c.message;
    EXPECT_NE(r.err.find("nimbo: error: --set"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.lines) << r.err;
  }
  EXPECT_EQ(Files(), (std::vector<std::string>{"d.png", "d.xml", "in.png", "k.xml", "out.png"}));
}

// A preset's count makes room just as an earlier --set does, and a preset's
// indexed values are checked against their family's range.
TEST_F(NimboTest, IndexedKeysCountedByAPresetAreTakenAndItsOutOfRangePointsMended) {
  WritePicture("in.png", Noise(8, 8));
  std::ofstream(Path("p.xml")) << "<Settings><ConfigData>"
                                  "<data name=\"alphamaplen\" type=\"int\">4</data>"
                                  "<data name=\"alphamap_0_x\" type=\"float\">0</data>"
                                  "<data name=\"alphamap_1_y\" type=\"float\">3</data>"
                                  "<data name=\"alphamap_3_x\" type=\"float\">1</data>"
                                  "</ConfigData></Settings>";
  const std::string in = Path("in.png");
  RunResult r = Run({"render", "ChromaKeyPRO", "-i", in, "-i", in, "--preset", Path("p.xml"), "--set",
                     "alphamap_3_y=0.75", "--save-preset", Path("s.xml"), "-o", Path("o.png")},
                    true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\"alphamap_1_y\" = \"3\" is outside 0 .. 1; using 1\n"), std::string::npos) << r.err;
  std::map<std::string, std::string> saved = SavedSettings(Path("s.xml"));
  EXPECT_EQ(saved["alphamaplen"], "4");
  EXPECT_EQ(saved["alphamap_1_y"], "1.000000");
  EXPECT_EQ(saved["alphamap_3_y"], "0.750000");

  r = Run({"render", "ChromaKeyPRO", "-i", in, "-i", in, "--preset", Path("p.xml"), "--set", "alphamap_4_x=1", "-o",
           Path("o2.png")},
          true);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("its count \"alphamaplen\" = 4"), std::string::npos) << r.err;
}

TEST_F(NimboTest, InfoSaysWhichKeysAreIndexedAndWhatCountsThem) {
  RunResult r = Run({"info", "ChromaKeyPRO"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("indexed settings"), std::string::npos) << r.out;
  for (const char* pattern : {"alphamap_%i_x", "alphamap_%i_y"}) {
    const size_t at = r.out.find(std::string("\n  ") + pattern + " ");
    ASSERT_NE(at, std::string::npos) << pattern << " in\n" << r.out;
    const std::string line = r.out.substr(at + 1, r.out.find('\n', at + 1) - at - 1);
    EXPECT_NE(line.find("float"), std::string::npos) << line;
    EXPECT_NE(line.find("counted by alphamaplen"), std::string::npos) << line;
    EXPECT_NE(line.find("[0 .. 1]"), std::string::npos) << line;
  }
  // The stored point keys say which family they belong to.
  EXPECT_NE(r.out.find("(alphamap_%i_x)"), std::string::npos) << r.out;
  // A count the effect keeps outside its table shows the range it is read in.
  r = Run({"info", "Distorter"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("\"1\"  [0 .. 1000]  count of the indexed keys morph%iname and 11 more"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("counted by n_morphs, morph%in_lines"), std::string::npos) << r.out;

  r = Run({"info", "Distorter", "--json"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("\"indexed_settings\": ["), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("{\"key\": \"morph%iline%i_l1_p1_x\", \"type\": \"float\", \"counts\": [{\"count_key\": "
                       "\"n_morphs\", \"limit\": 1000}, {\"count_key\": \"morph%in_lines\", \"limit\": 1000}]"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("{\"key\": \"morph%iefrom\", \"type\": \"float\", \"counts\": [{\"count_key\": \"n_morphs\", "
                       "\"limit\": 1000}], \"min\": 0, \"max\": 1"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("{\"key\": \"morph0efrom\", \"type\": \"float\", \"default\": 0.250000, \"indexed\": "
                       "\"morph%iefrom\"}"),
            std::string::npos)
      << r.out;
  // An effect without indexed keys lists none.
  r = Run({"info", "ColorTrafo", "--json"}, true);
  EXPECT_NE(r.out.find("\"indexed_settings\": []"), std::string::npos) << r.out;
}

// Evaluator3D's user variables are keys with their index ("dyn%i" and the
// rest, counted by "n_dynvars"): a variable set up from the command line is
// declared, moved by --dyn and used by the formulas.
TEST_F(NimboTest, Evaluator3DUserVariablesAreSetByTheirIndexedKeys) {
  RunResult r = Run({"render", "Evaluator3D", "--size", "32x32", "--set", "n_dynvars=1", "--set", "dyn0=Lift",
                     "--set", "dyn0max=10", "--set", "expr_y=lift", "--dyn", "lift=3", "--save-preset", Path("e.xml"),
                     "--action", "save-3ds=" + Path("e.3ds"), "-o", Path("e.png")},
                    true);
  ASSERT_EQ(r.code, 0) << r.err;
  std::map<std::string, std::string> saved = SavedSettings(Path("e.xml"));
  EXPECT_EQ(saved["n_dynvars"], "1");
  EXPECT_EQ(saved["dyn0"], "lift");
  EXPECT_EQ(saved["dyn0max"], "10.000000");
  r = Run({"scene", Path("e.3ds"), "--vertices", "--json"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("[-50, 3, -50]"), std::string::npos) << r.out;

  r = Run({"render", "Evaluator3D", "--size", "32x32", "--set", "dyn0=Lift", "-o", Path("f.png")}, true);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("its count \"n_dynvars\" = 0"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace nimbo::host
