// The seven 3D effects that draw a scene, each through the base they share
// (CSceneEffect), as a host sees them:
//   - every setting a fresh effect writes, its own, the scene's and the
//     material's, all changed at once, comes back from a save and a load
//     unchanged and in the same order (the effect's own keys, then bgtype,
//     bgcolor and insertfx, then the material's);
//   - the dynamic variables it publishes (its own, then Insert FX, then the
//     camera) come in the order its help page lists them, each with its
//     controller over its own range, and the same list after another
//     UpdateConfig;
//   - "Save as 3DS..." writes the material the help page names, and every
//     face of the exported meshes wears it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "core/effect_base.h"
#include "framework/config_data.h"
#include "framework/xml_document.h"
#include "orrery/package.h"
#include "orrery/services.h"
#include "bin_path.h"
#include "render3d/c3ds_scene.h"
#include "test_host.h"
#include "test_screen.h"

namespace {

namespace fs = std::filesystem;
using nimbo::testing::MessageCapture;
using nimbo::testing::TestHost;

const fs::path kHelpDir = fs::path(NIMBO_PLUGINS_DIR) / "nimbo_one.help";
const char* const kSceneKeys[] = {"bgtype", "bgcolor", "insertfx"};

struct Stored {
  std::string key, type, text;
  bool operator==(const Stored&) const = default;
};

std::vector<Stored> StoredValues(const std::string& document) {
  std::vector<Stored> values;
  nimbo::XmlDocument doc;
  if (!doc.SetDoc(document) || !doc.FindElem(nimbo::kSettingsElem) || !doc.FindChildElem(nimbo::kConfigDataElem))
    return values;
  doc.IntoElem();
  doc.IntoElem();
  while (doc.FindElem("data")) values.push_back({doc.GetAttrib("name"), doc.GetAttrib("type"), doc.GetData()});
  return values;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::ostream& operator<<(std::ostream& out, const Stored& s) { return out << s.key << " (" << s.type << ") = " << s.text; }

struct Described {
  std::string key;
  orrery::SettingType type;
  double minimum, maximum;
};

class SceneEffects : public ::testing::TestWithParam<const char*> {
 protected:
  std::unique_ptr<orrery::Effect> Make(TestHost& host) {
    std::unique_ptr<orrery::Effect> effect = nimbo::testing::MakeEffect(GetParam(), &host);
    EXPECT_NE(effect, nullptr) << GetParam();
    return effect;
  }
  // The effect's help page as installed.
  std::string HelpPage() {
    TestHost host;
    auto effect = Make(host);
    auto* base = dynamic_cast<nimbo::CEffectBase*>(effect.get());
    return base && base->HelpPage() ? ReadFile(kHelpDir / base->HelpPage()) : "";
  }
  MessageCapture messages_;
  nimbo::testing::BinPathOverride bin_{NIMBO_BIN_DIR};  // the engine beside the programs
};

// A value of the described number `s` other than the one a fresh effect
// writes, inside its range.
std::string Changed(const Stored& s, const Described& d) {
  if (s.key == "bgcolor") return "1193046";  // 0x123456: a colour, not the range's end
  const double now = std::strtod(s.text.c_str(), nullptr);
  double v = now != d.maximum ? d.maximum : d.minimum;
  if (s.type == "float") v = now != d.minimum + 0.25 * (d.maximum - d.minimum) ? d.minimum + 0.25 * (d.maximum - d.minimum) : d.maximum;
  std::ostringstream text;
  if (s.type == "int") text << int64_t(std::llround(v));
  else text << v;
  return text.str();
}

TEST_P(SceneEffects, EverySettingChangedAtOnceSurvivesASaveAndALoadInItsPlace) {
  TestHost fresh_host;
  auto fresh = Make(fresh_host);
  ASSERT_TRUE(fresh);
  fresh->UpdateConfig();
  const std::vector<Stored> defaults = StoredValues(fresh_host.store.Text());
  ASSERT_FALSE(defaults.empty());
  std::vector<Described> described;
  for (const orrery::SettingInfo& info : fresh_host.described) described.push_back({info.key, info.type, info.minimum, info.maximum});

  // The order: own keys, the scene's three, then the material's.
  std::vector<std::string> keys;
  for (const Stored& s : defaults) keys.push_back(s.key);
  const auto bgtype = std::find(keys.begin(), keys.end(), "bgtype");
  ASSERT_NE(bgtype, keys.end());
  ASSERT_LE(bgtype + 3, keys.end());
  EXPECT_EQ(std::vector<std::string>(bgtype, bgtype + 3), std::vector<std::string>(std::begin(kSceneKeys), std::end(kSceneKeys)));
  // Evaluator3D keeps its own fixed order of keys, with its visibility
  // patterns after the scene's keys and its material under keys of its own.
  const bool own_order = std::string(GetParam()) == "Evaluator3D";
  // The material's keys are "mat0..." and the texture inputs' "input%i...";
  // 3DSViewer's materials come from its scene file, so it has none.
  auto material_key = [](const std::string& key) { return key.rfind("mat", 0) == 0 || key.rfind("input", 0) == 0; };
  if (!own_order) {
    for (auto key = keys.begin() + 1; key < bgtype; ++key) {
      EXPECT_FALSE(material_key(*key)) << *key << ": a material's key before the scene's";
    }
    for (auto key = bgtype + 3; key < keys.end(); ++key) {
      EXPECT_TRUE(material_key(*key)) << *key << ": after the scene's keys, where only the material's belong";
    }
  }
  for (const Described& d : described) {
    const auto at = std::find(keys.begin(), keys.end(), d.key);
    EXPECT_NE(at, keys.end()) << d.key << " is described but not written";
    const bool scene = std::find(std::begin(kSceneKeys), std::end(kSceneKeys), d.key) != std::end(kSceneKeys);
    if (!scene && !own_order) {
      EXPECT_LT(at, bgtype) << d.key << " is the effect's own but comes after the scene's";
    }
  }

  // Every described number and the scene's, changed; a text of the
  // effect's own one character longer (a space: no text loses meaning by
  // it); the rest as written.
  std::vector<Stored> wanted = defaults;
  for (Stored& s : wanted) {
    const auto d = std::find_if(described.begin(), described.end(), [&](const Described& x) { return x.key == s.key; });
    // A count key ("n_dynvars") sizes a family of other keys: changing it
    // alone asks for members the document does not hold.
    if (d == described.end() || s.key.rfind("n_", 0) == 0) continue;
    if (s.type == "string") s.text += " ";
    else if (s.type == "int" || s.type == "float") s.text = Changed(s, *d);
  }
  TestHost loaded_host;
  loaded_host.store.BeginWriting();
  for (const Stored& s : wanted) {
    if (s.type == "int") loaded_host.store.SetInt(s.key.c_str(), int32_t(std::stol(s.text)));
    else if (s.type == "float") loaded_host.store.SetFloat(s.key.c_str(), std::stof(s.text));
    else if (s.type == "path") loaded_host.store.SetPath(s.key.c_str(), s.text.c_str());
    else loaded_host.store.SetString(s.key.c_str(), s.text.c_str());
  }
  // What the store holds now is what the effect must keep (floats as the
  // store prints them).
  wanted = StoredValues(loaded_host.store.Text());
  auto loaded = Make(loaded_host);
  ASSERT_TRUE(loaded);
  loaded->UpdateConfig();
  TestHost saved_host;
  loaded->SetHostContext(&saved_host);
  loaded->UpdateConfig();
  const std::vector<Stored> saved = StoredValues(saved_host.store.Text());
  ASSERT_EQ(saved.size(), wanted.size());
  for (size_t i = 0; i < saved.size(); ++i) EXPECT_EQ(saved[i], wanted[i]) << "entry " << i;
  EXPECT_NE(saved, defaults) << "nothing was changed";
}

// The rows of the page's dynamic variables table, in order: the text of
// each row's first cell's <code>.
std::vector<std::string> PageVariables(const std::string& page) {
  std::vector<std::string> names;
  const size_t heading = page.find("<h2>Dynamic variables</h2>");
  if (heading == std::string::npos) return names;
  const size_t end = page.find("</table>", heading);
  for (size_t at = page.find("<tr><td><code>", heading); at < end; at = page.find("<tr><td><code>", at + 1)) {
    const size_t start = at + 14;
    names.push_back(page.substr(start, page.find("</code>", start) - start));
  }
  return names;
}

TEST_P(SceneEffects, PublishesItsVariablesThenInsertFxThenTheCameraAsItsPageListsThem) {
  TestHost host;
  auto effect = Make(host);
  ASSERT_TRUE(effect);
  const std::vector<std::string> page = PageVariables(HelpPage());
  ASSERT_FALSE(page.empty()) << "no dynamic variables table in the help page";
  std::vector<std::string> first_list;
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round == 0 ? "first UpdateConfig" : "second UpdateConfig");
    effect->UpdateConfig();
    std::vector<std::string> names;
    for (const orrery::DynVar* v = host.dynvars; v; v = v->next) {
      if (!v->declared) continue;
      names.push_back(v->name);
      if (v->type != orrery::kDynVarFloat) continue;
      EXPECT_EQ(v->min, v->varmin) << v->name << ": the controller's range is the variable's";
      EXPECT_EQ(v->max, v->varmax) << v->name;
      EXPECT_LT(v->varmin, v->varmax) << v->name;
      EXPECT_TRUE(v->varinit >= v->varmin && v->varinit <= v->varmax) << v->name;
    }
    // The page may document variables an effect declares only on request
    // (Evaluator3D's own); those it declares come in the page's order.
    std::vector<std::string> listed;
    for (const std::string& name : page) {
      if (std::find(names.begin(), names.end(), name) != names.end()) listed.push_back(name);
    }
    EXPECT_EQ(names, listed) << "declared in another order than the page's, or not on the page";
    // The base's sets, each whole: Insert FX's four, and the camera's.
    const auto insert = std::find(names.begin(), names.end(), "Insert FX: position x");
    ASSERT_NE(insert, names.end());
    ASSERT_GE(names.end() - insert, 4);
    EXPECT_EQ(*(insert + 3), "Insert FX: size");
    const auto camera = std::find_if(names.begin(), names.end(), [](const std::string& n) { return n.rfind("Camera: ", 0) == 0; });
    ASSERT_NE(camera, names.end());
    EXPECT_EQ(*camera, "Camera: orbit angle");
    ASSERT_GE(names.end() - camera, 5);
    EXPECT_EQ(*(camera + 4), "Camera: zoom");
    if (round == 0) first_list = names;
    else {
      EXPECT_EQ(names, first_list);
    }
  }
}

// A WAX volume screen with a ball of red voxels in the middle.
nimbo::testing::OwnedScreen WaxBall() {
  constexpr int kSide = 64, kTiles = 8;
  nimbo::testing::OwnedScreen wax(kSide * kTiles, kSide * kTiles);
  for (int z = 0; z < kSide; ++z)
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x) {
        const double d = std::hypot(x - 31.5, y - 31.5, z - 31.5);
        const size_t px = size_t((z % kTiles) * kSide + x), py = size_t((z / kTiles) * kSide + y);
        wax.pixels[py * size_t(kSide * kTiles) + px] = d < 20 ? 0xFFFF0000u : 0u;
      }
  return wax;
}

TEST_P(SceneEffects, SaveAs3DSWritesTheMaterialItsPageNamesOnEveryFace) {
  const std::string page = HelpPage();
  const size_t row = page.find("<td><code>save-3ds</code></td>");
  TestHost host(64, 48);
  auto effect = Make(host);
  ASSERT_TRUE(effect);
  std::vector<std::string> actions;
  orrery::VisitEffectActions(
      effect.get(), [](void* user, const char* name, const char*) { static_cast<std::vector<std::string>*>(user)->push_back(name); },
      &actions);
  const bool saves = std::find(actions.begin(), actions.end(), "save-3ds") != actions.end();
  ASSERT_EQ(saves, row != std::string::npos) << "the page and the effect disagree on save-3ds";
  if (!saves) return;  // Donkey and 3DSViewer: no "Save as 3DS...", as their pages say
  const size_t code = page.find("material <code>", row);
  ASSERT_NE(code, std::string::npos) << "the save-3ds row names no material";
  const size_t start = code + 15;
  const std::string material = page.substr(start, page.find("</code>", start) - start);

  effect->UpdateConfig();
  std::vector<nimbo::testing::OwnedScreen> inputs;
  std::vector<const orrery::Screen*> list;
  inputs.reserve(size_t(effect->GetInputCount()));
  for (int32_t i = 0; i < effect->GetInputCount(); ++i) {
    if (std::string(effect->GetInputScreenName(i)).find("WAX") != std::string::npos) inputs.push_back(WaxBall());
    else inputs.emplace_back(64, 48);
  }
  for (auto& in : inputs) list.push_back(&in.screen);
  ASSERT_EQ(effect->Initialize(), 1);
  nimbo::testing::OwnedScreen out(64, 48);
  ASSERT_EQ(nimbo::testing::RenderOnce(*effect, list, &out.screen), 1);

  const fs::path path = fs::temp_directory_path() / ("scene_effects_" + std::to_string(getpid()) + ".3ds");
  std::string message;
  ASSERT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", path.c_str(), &message), 1) << message;
  nimbo::scene3ds::C3DSScene scene;
  const bool read = scene.Load(path.string());
  fs::remove(path);
  ASSERT_TRUE(read);
  std::vector<std::string> names;
  for (const auto& m : scene.Materials()) names.push_back(m.name);
  EXPECT_NE(std::find(names.begin(), names.end(), material), names.end()) << "no material " << material;
  size_t faces = 0, wrong = 0;
  for (const auto& mesh : scene.Meshes()) {
    for (size_t f = mesh.first_face; f < mesh.first_face + mesh.face_count; ++f) {
      const int m = scene.Faces()[f].material;
      const bool wears = m >= 0 && size_t(m) < scene.Materials().size() && scene.Materials()[size_t(m)].name == material;
      wrong += wears ? 0 : 1;
      ++faces;
    }
  }
  EXPECT_GT(faces, 0u) << "nothing drawn was written";
  EXPECT_EQ(wrong, 0u) << "faces of " << faces << " without the material " << material;
}

INSTANTIATE_TEST_SUITE_P(Package, SceneEffects,
                         ::testing::Values("Blob 3D", "Donkey", "ImplicitBeast", "Text3D", "WAXViewer", "3DSViewer",
                                           "Evaluator3D"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           std::string name = info.param;
                           name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return !std::isalnum(c); }),
                                      name.end());
                           return std::isdigit(name[0]) ? "Viewer" + name : name;
                         });

}  // namespace
