#include "evaluator3d_settings.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "formula/user_variables.h"

namespace nimbo::e3d {
namespace {

// The formula fields in the order of their keys. The keys are constant
// texts because a host may keep the pointers it is given.
struct ExprKey {
  Field field;
  const char* key;
};
constexpr ExprKey kExprKeys[kFieldCount] = {
    {kA, "expr_a"},     {kB, "expr_b"},   {kC, "expr_c"},       {kD, "expr_d"},      {kE, "expr_e"},
    {kF, "expr_f"},     {kG, "expr_g"},   {kH, "expr_h"},       {kX, "expr_x"},      {kY, "expr_y"},
    {kZ, "expr_z"},     {kU, "expr_u"},   {kV, "expr_v"},       {kNx, "expr_nx"},    {kNy, "expr_ny"},
    {kNz, "expr_nz"},   {kU2, "expr_u2"}, {kV2, "expr_v2"},     {kNx2, "expr_nx2"},  {kNy2, "expr_ny2"},
    {kNz2, "expr_nz2"}, {kCx, "expr_cx"}, {kCy, "expr_cy"},     {kCz, "expr_cz"},    {kTx, "expr_tx"},
    {kTy, "expr_ty"},   {kTz, "expr_tz"}, {kRoll, "expr_roll"}, {kZoom, "expr_zoom"}};

// Walks every key in writing order. `V` provides Int(key, value&, min, max,
// help), Float(...), Text(key, value&, is_path, help), Scene() and
// UserVariables(vars&); the same walk reads, writes and describes, so the
// three can never disagree on the order.
template <class S, class V>
void Walk(S& s, V& v) {
  auto& set = s.set;
  for (const ExprKey& e : kExprKeys)
    v.Text(e.key, set.text[size_t(e.field)], false, "formula (at most 999 characters)");
  v.Int("rangei", set.imax, kMinGridSide, kMaxGridSide, "vertices along i (imax)");
  v.Int("rangej", set.jmax, kMinGridSide, kMaxGridSide, "vertices along j (jmax)");
  v.Int("uvmode1", set.uvmode1, 0, kUvModeCount - 1,
        "first texture's coordinates: 0 formulas u, v; 1 environment map from face normals; 2 from vertex "
        "normals; 3 from the normal formulas");
  v.Int("uvmode2", set.uvmode2, 0, kUvModeCount - 1, "second texture's coordinates, the same modes (u2, v2)");
  v.Int("front", set.front, 0, 1, "draw front faces");
  v.Int("back", set.back, 0, 1, "draw back faces");
  v.UserVariables(set.vars);
  v.Text("infotext", set.info, false, "description of the formula set");
  v.Int("hmap", set.hmap, 0, 1, "height map input: the formulas may use hmap");
  v.Int("loopi", set.loopi, 0, 1, "fix last row (i=imax-1) to first row (i=0)");
  v.Int("loopj", set.loopj, 0, 1, "fix last column (j=jmax-1) to first column (j=0)");
  v.Scene();
  v.Text("ipattern", set.ipattern, false, "visibility pattern along i");
  v.Text("jpattern", set.jpattern, false, "visibility pattern along j");
  auto& t = s.texture;
  v.Int("texinfo1", t.texinfo[0], 0, 1, "first texture: 0 texture input 1, 1 picture file");
  v.Int("texinfo2", t.texinfo[1], 0, 1, "second texture: 0 texture input 2, 1 picture file");
  v.Int("invert_tex2", t.invert_tex2, 0, 1, "invert the colours of the second texture");
  v.Int("sectex", t.sectex, 0, 1, "enable second texture");
  v.Int("sectype", t.sectype, 0, 2, "second texture: 0 add, 1 subtract, 2 blue as transparency");
  v.Int("transparent", t.transparent, -1, 1, "-1 none, 0 50% transparency, 1 additive");
  v.Int("wire", t.wire, 0, 1, "enable wireframe rendering");
  v.Int("freeze1", t.freeze[0], 0, 1, "first texture input is static");
  v.Int("freeze2", t.freeze[1], 0, 1, "second texture input is static");
  v.Text("texpath1", t.texpath[0], true, "first texture's picture file");
  v.Text("texpath2", t.texpath[1], true, "second texture's picture file");
  v.Text("tex1", t.tex[0], false, "first texture's picture name");
  v.Text("tex2", t.tex[1], false, "second texture's picture name");
  v.Float("timespeed", s.timespeed, kMinTimeSpeed, kMaxTimeSpeed, "time speed (1.0 = realtime)");
}

std::string VarKey(size_t k, const char* field) { return "dyn" + std::to_string(k) + field; }

struct Writer {
  orrery::ConfigStore& store;
  const SceneKeys& scene;
  void Int(const char* key, int32_t v, double, double, const char*) { store.SetInt(key, v); }
  void Float(const char* key, float v, double, double, const char*) { store.SetFloat(key, v); }
  void Text(const char* key, const std::string& v, bool path, const char*) {
    if (path)
      store.SetPath(key, v.c_str());
    else
      store.SetString(key, v.c_str());
  }
  void Scene() { scene(store); }
  void UserVariables(const std::vector<UserVariable>& vars) {
    store.SetInt("n_dynvars", int32_t(vars.size()));
    for (size_t k = 0; k < vars.size(); ++k) {
      store.SetString(VarKey(k, "").c_str(), vars[k].name.c_str());
      store.SetFloat(VarKey(k, "min").c_str(), vars[k].minimum);
      store.SetFloat(VarKey(k, "max").c_str(), vars[k].maximum);
      store.SetFloat(VarKey(k, "value").c_str(), vars[k].value);
      store.SetInt(VarKey(k, "on").c_str(), vars[k].on);
    }
  }
};

struct Reader {
  orrery::ConfigStore& store;
  const SceneKeys& scene;
  void Int(const char* key, int32_t& v, double, double, const char*) { v = store.GetInt(key, v); }
  void Float(const char* key, float& v, double, double, const char*) { v = store.GetFloat(key, v); }
  void Text(const char* key, std::string& v, bool path, const char*) {
    if (path) {
      v = store.GetPath(key, v.c_str(), nullptr);
    } else {
      const char* text = store.GetString(key, v.c_str());
      if (text != v.c_str()) v = text;
    }
  }
  void Scene() { scene(store); }
  void UserVariables(std::vector<UserVariable>& vars) {
    // A count beyond what the formula dialect allows reads as the allowed
    // most. A variable whose name is missing, or refused by the naming
    // rules, is kept under the name "var%i", so the count stays what the
    // store says.
    const int32_t n =
        std::clamp(store.GetInt("n_dynvars", int32_t(vars.size())), 0, int32_t(formula::kMaxFormulaUserVariables));
    std::vector<UserVariable> old = std::move(vars);
    FormulaSet fresh;
    for (size_t k = 0; k < size_t(n); ++k) {
      const UserVariable def = k < old.size() ? old[k] : UserVariable{};
      const std::string name = store.GetString(VarKey(k, "").c_str(), def.name.c_str());
      if (AddUserVariable(fresh, name) != AddVariable::kAdded &&
          AddUserVariable(fresh, "var" + std::to_string(k)) != AddVariable::kAdded)
        continue;
      UserVariable& v = fresh.vars.back();
      v.minimum = store.GetFloat(VarKey(k, "min").c_str(), def.minimum);
      v.maximum = store.GetFloat(VarKey(k, "max").c_str(), def.maximum);
      v.value = store.GetFloat(VarKey(k, "value").c_str(), def.value);
      v.on = store.GetInt(VarKey(k, "on").c_str(), def.on) != 0;
    }
    vars = std::move(fresh.vars);
  }
};

struct Describer {
  orrery::HostContext* context;
  const std::function<void()>& scene;
  void Int(const char* key, int32_t, double min, double max, const char* help) {
    context->DescribeSetting({key, orrery::SettingType::kInt, min, max, help});
  }
  void Float(const char* key, float, double min, double max, const char* help) {
    context->DescribeSetting({key, orrery::SettingType::kFloat, min, max, help});
  }
  void Text(const char* key, const std::string&, bool path, const char* help) {
    context->DescribeSetting({key, path ? orrery::SettingType::kPath : orrery::SettingType::kString, 0, 0, help});
  }
  void Scene() { scene(); }
  void UserVariables(const std::vector<UserVariable>&) {
    context->DescribeSetting({"n_dynvars", orrery::SettingType::kInt, 0, double(formula::kMaxFormulaUserVariables),
                              "number of user variables (each: dyn%i name, dyn%imin, dyn%imax, dyn%ivalue, "
                              "dyn%ion)"});
    // Each user variable's keys carry its index; "n_dynvars" counts them.
    static constexpr orrery::SettingIndex kIndex[] = {{"n_dynvars", int32_t(formula::kMaxFormulaUserVariables)}};
    static constexpr orrery::IndexedSettingInfo kKeys[] = {
        {{"dyn%i", orrery::SettingType::kString, 0, 0, "user variable's name (a refused one reads as \"var%i\")"},
         1,
         kIndex},
        {{"dyn%imin", orrery::SettingType::kFloat, -1e9, 1e9, "its dynamic variable's minimum"}, 1, kIndex},
        {{"dyn%imax", orrery::SettingType::kFloat, -1e9, 1e9, "its dynamic variable's maximum"}, 1, kIndex},
        {{"dyn%ivalue", orrery::SettingType::kFloat, -1e9, 1e9, "its dynamic variable's initial value"}, 1, kIndex},
        {{"dyn%ion", orrery::SettingType::kInt, 0, 1, "switched on: declared and usable in the formulas"}, 1, kIndex},
    };
    for (const orrery::IndexedSettingInfo& keys : kKeys) context->DescribeIndexedSetting(keys);
  }
};

}  // namespace

void WriteEvaluatorSettings(orrery::ConfigStore& store, const EvaluatorSettings& s, const SceneKeys& scene) {
  Writer w{store, scene};
  Walk(s, w);
}

void ReadEvaluatorSettings(orrery::ConfigStore& store, EvaluatorSettings& s, const SceneKeys& scene) {
  Reader r{store, scene};
  Walk(s, r);
  s.set.Sanitize();
  TextureKeys& t = s.texture;
  for (int32_t* flag : {&t.texinfo[0], &t.texinfo[1], &t.invert_tex2, &t.sectex, &t.wire, &t.freeze[0], &t.freeze[1]})
    *flag = *flag != 0;
  t.sectype = std::clamp(t.sectype, 0, 2);
  s.timespeed = std::isfinite(s.timespeed) ? std::clamp(s.timespeed, kMinTimeSpeed, kMaxTimeSpeed) : 1.0f;
  t.transparent = std::clamp(t.transparent, -1, 1);
}

void DescribeEvaluatorSettings(orrery::HostContext* context, const std::function<void()>& scene_describe) {
  if (!context) return;
  EvaluatorSettings s;
  Describer d{context, scene_describe};
  Walk(s, d);
}

}  // namespace nimbo::e3d
