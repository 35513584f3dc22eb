// Blob 3D's and Donkey's settings through the `nimbo` program: every
// setting, the scene's and a material's set away from its default survive a
// preset written by --save-preset and read back by --preset; values out of
// range are refused on the command line and mended (clamped) from a preset,
// malformed ones refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "nimbo_run.h"
#include "runtime/settings_edit.h"

namespace nimbo::host {
namespace {

using Values = std::map<std::string, std::string>;

class NimboSettings : public NimboTest {
 protected:
  Values Saved(const std::string& name) const {
    Values saved;
    for (const SettingEntry& e : ReadSettingEntries(ReadFile(Path(name)))) saved.emplace(e.key, e.value);
    return saved;
  }
  RunResult Render(const std::string& effect, const std::vector<std::string>& options) const {
    std::vector<std::string> args{"render", effect, "--size", "48x32", "--frames", "1", "-o", Path("out.png")};
    args.insert(args.end(), options.begin(), options.end());
    return Run(args, true);
  }
};

struct Effect {
  const char* name;
  Values set;  // key = value as given to --set ... and as the preset stores it
};

const Effect kEffects[] = {
    {"Blob 3D",
     {{"count", "3"}, {"radius", "0.500000"}, {"strength", "2.500000"}, {"threshold", "0.700000"}, {"grid", "32"},
      {"envmap", "0"}, {"bgtype", "2"}, {"bgcolor", "1193046"}, {"insertfx", "1"}, {"mat0mattex0base_clr", "255"},
      {"mat0matwire", "1"}}},
    {"Donkey",
     {{"shape", "2"}, {"copies", "4"}, {"formation", "2"}, {"detail", "12"}, {"bgtype", "1"}, {"bgcolor", "65280"},
      {"insertfx", "1"}, {"mat0mattex0blur", "0.250000"}, {"mat0mattwosided", "1"}}},
};

TEST_F(NimboSettings, EverySettingSurvivesASavedPresetReadBack) {
  for (const Effect& effect : kEffects) {
    std::vector<std::string> options;
    for (const auto& [key, value] : effect.set) options.insert(options.end(), {"--set", key + "=" + value});
    options.insert(options.end(), {"--save-preset", Path("a.xml")});
    RunResult r = Render(effect.name, options);
    ASSERT_EQ(r.code, 0) << effect.name << ": " << r.err;
    const Values first = Saved("a.xml");
    for (const auto& [key, value] : effect.set) EXPECT_EQ(first.count(key) ? first.at(key) : "(none)", value) << key;

    r = Render(effect.name, {"--preset", Path("a.xml"), "--save-preset", Path("b.xml")});
    ASSERT_EQ(r.code, 0) << effect.name << ": " << r.err;
    EXPECT_EQ(r.err, "") << effect.name;
    EXPECT_EQ(Saved("b.xml"), first) << effect.name;
  }
}

TEST_F(NimboSettings, OutOfRangeIsRefusedOnTheCommandLineAndClampedFromAPreset) {
  struct Case {
    const char* effect;
    const char* key;
    const char* too_big;
    const char* range;  // as the messages write it
    const char* clamped;
  };
  const Case cases[] = {
      {"Blob 3D", "count", "17", "1 .. 16", "16"},
      {"Blob 3D", "radius", "5", "0.05 .. 1", "1.000000"},
      {"Blob 3D", "grid", "1000", "16 .. 96", "96"},
      {"Donkey", "shape", "9", "0 .. 4", "4"},
      {"Donkey", "copies", "10", "1 .. 9", "9"},
      {"Donkey", "detail", "500", "4 .. 128", "128"},
  };
  for (const Case& c : cases) {
    const std::string key = c.key;
    RunResult r = Render(c.effect, {"--set", key + "=" + c.too_big});
    EXPECT_EQ(r.code, 1) << key;
    EXPECT_NE(r.err.find("\"" + key + "\" takes values in " + c.range), std::string::npos) << r.err;
    r = Render(c.effect, {"--set", key + "=many"});
    EXPECT_EQ(r.code, 1) << key;
    EXPECT_NE(r.err.find("nimbo: error: --set " + key + "=many"), std::string::npos) << r.err;

    std::ofstream(Path("p.xml")) << "<Settings><ConfigData><data name=\"" << key << "\" type=\""
                                 << (std::string(c.clamped).find('.') != std::string::npos ? "float" : "int") << "\">"
                                 << c.too_big << "</data></ConfigData></Settings>";
    r = Render(c.effect, {"--preset", Path("p.xml"), "--save-preset", Path("s.xml")});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("is outside " + std::string(c.range)), std::string::npos) << r.err;
    EXPECT_EQ(Saved("s.xml")[key], c.clamped) << key;
  }
}

}  // namespace
}  // namespace nimbo::host
