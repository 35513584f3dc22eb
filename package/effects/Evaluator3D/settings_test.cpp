// Evaluator3D's stored keys: their order, a round trip through a store, and
// values from a store that are out of range.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "evaluator3d_settings.h"

namespace nimbo::e3d {
namespace {

// A store that keeps what is written, in order, and answers reads from it.
class RecordingStore final : public orrery::ConfigStore {
 public:
  void BeginWriting() override { keys.clear(), values.clear(); }
  int32_t GetInt(const char* key, int32_t def) override { return Has(key) ? std::stoi(values[key]) : def; }
  int32_t SetInt(const char* key, int32_t value) override { return Put(key, std::to_string(value)); }
  float GetFloat(const char* key, float def) override { return Has(key) ? std::stof(values[key]) : def; }
  int32_t SetFloat(const char* key, float value) override { return Put(key, std::to_string(value)); }
  const char* GetString(const char* key, const char* def) override { return Has(key) ? values[key].c_str() : def; }
  int32_t SetString(const char* key, const char* value) override { return Put(key, value); }
  std::string GetPath(const char* key, const char* def, bool* used_default) override {
    if (used_default) *used_default = !Has(key);
    return Has(key) ? values[key] : def;
  }
  int32_t SetPath(const char* key, const char* path) override { return Put(key, path); }

  bool Has(const std::string& key) const { return values.count(key) != 0; }
  int32_t Put(const std::string& key, const std::string& value) {
    if (!Has(key)) keys.push_back(key);
    values[key] = value;
    return 1;
  }
  std::vector<std::string> keys;
  std::map<std::string, std::string> values;
};

const SceneKeys kScene = [](orrery::ConfigStore& store) {
  store.SetInt("bgtype", store.GetInt("bgtype", 0));
  store.SetInt("bgcolor", store.GetInt("bgcolor", 0));
  store.SetInt("insertfx", store.GetInt("insertfx", 0));
};

TEST(Evaluator3DSettings, KeysAreWrittenInTheirOrder) {
  EvaluatorSettings s;
  AddUserVariable(s.set, "speed");
  RecordingStore store;
  WriteEvaluatorSettings(store, s, kScene);
  // The keys of the list, in order, with the user variables' own ranges
  // after each "dyn%i".
  const std::vector<std::string> expected = {
      "expr_a",   "expr_b",   "expr_c",   "expr_d",    "expr_e",      "expr_f",  "expr_g",  "expr_h",
      "expr_x",   "expr_y",   "expr_z",   "expr_u",    "expr_v",      "expr_nx", "expr_ny", "expr_nz",
      "expr_u2",  "expr_v2",  "expr_nx2", "expr_ny2",  "expr_nz2",    "expr_cx", "expr_cy", "expr_cz",
      "expr_tx",  "expr_ty",  "expr_tz",  "expr_roll", "expr_zoom",   "rangei",  "rangej",  "uvmode1",
      "uvmode2",  "front",    "back",     "n_dynvars", "dyn0",        "dyn0min", "dyn0max", "dyn0value",
      "dyn0on",   "infotext", "hmap",     "loopi",     "loopj",       "bgtype",  "bgcolor", "insertfx",
      "ipattern", "jpattern", "texinfo1", "texinfo2",  "invert_tex2", "sectex",  "sectype", "transparent",
      "wire",     "freeze1",  "freeze2",  "texpath1",  "texpath2",    "tex1",    "tex2",    "timespeed"};
  EXPECT_EQ(store.keys, expected);
  EXPECT_EQ(store.values["expr_x"], "(a-0.5)*100");
  EXPECT_EQ(store.values["expr_zoom"], "1.0");
  EXPECT_EQ(store.values["rangei"], "10");
  EXPECT_EQ(store.values["uvmode2"], "2");
  EXPECT_EQ(store.values["infotext"], " - enter FX description here -");
  EXPECT_EQ(store.values["transparent"], "-1");
}

TEST(Evaluator3DSettings, ValuesReadBackAndAreBroughtIntoRange) {
  EvaluatorSettings s;
  s.set.text[kY] = "sin(a*pi)*gain";
  s.set.imax = 64;
  s.set.loopj = 1;
  s.set.ipattern = "10";
  ASSERT_EQ(AddUserVariable(s.set, "Gain"), AddVariable::kAdded);
  ASSERT_EQ(AddUserVariable(s.set, "kk"), AddVariable::kAdded);
  s.set.vars[1].on = 0;
  s.set.vars[1].minimum = -3;
  s.texture.texinfo[1] = 1;
  s.texture.texpath[1] = "/pictures/wood.png";
  s.texture.tex[1] = "wood.png";
  s.timespeed = 0.25f;
  RecordingStore store;
  WriteEvaluatorSettings(store, s, kScene);

  EvaluatorSettings back;
  ReadEvaluatorSettings(store, back, kScene);
  EXPECT_EQ(back.set.text, s.set.text);
  EXPECT_EQ(back.set.imax, 64);
  EXPECT_EQ(back.set.loopj, 1);
  EXPECT_EQ(back.set.ipattern, "10");
  ASSERT_EQ(back.set.vars.size(), 2u);
  EXPECT_EQ(back.set.vars[0].name, "gain");
  EXPECT_EQ(back.set.vars[1].name, "kk");
  EXPECT_EQ(back.set.vars[1].on, 0);
  EXPECT_EQ(back.set.vars[1].minimum, -3.0f);
  EXPECT_EQ(back.texture.texinfo[1], 1);
  EXPECT_EQ(back.texture.texpath[1], "/pictures/wood.png");
  EXPECT_EQ(back.texture.tex[1], "wood.png");
  EXPECT_FLOAT_EQ(back.timespeed, 0.25f);

  // Out-of-range values from a hand-written store.
  store.values["rangei"] = "0";
  store.values["rangej"] = "5000";
  store.values["uvmode1"] = "7";
  store.values["sectype"] = "9";
  store.values["transparent"] = "-5";
  store.values["n_dynvars"] = "100000";
  store.values["expr_a"] = std::string(3000, '1');
  ReadEvaluatorSettings(store, back, kScene);
  EXPECT_EQ(back.set.imax, kMinGridSide);
  EXPECT_EQ(back.set.jmax, kMaxGridSide);
  EXPECT_EQ(back.set.uvmode1, kUvFormulas);
  EXPECT_EQ(back.texture.sectype, 2);
  EXPECT_EQ(back.texture.transparent, -1);
  EXPECT_LE(back.set.vars.size(), 255u);
  EXPECT_EQ(back.set.text[kA].size(), kMaxFormulaLength);
}

}  // namespace
}  // namespace nimbo::e3d
