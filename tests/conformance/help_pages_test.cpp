// The help installed beside the package: every image effect's help button
// must open a page that exists and that documents what the effect stores and
// publishes. Keys, dynamic variables, sliders and published outputs are the
// names a user types (in --set, --dyn, presets) or reads (--values), so a
// page must show each of them as code: <code>name</code>, HTML-escaped.
// The pages' own links (index, stylesheet, back links) must resolve inside
// the help folder. 3D effects have no pages yet and are left out.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "orrery/package.h"
#include "orrery/services.h"
#include "framework/config_data.h"
#include "core/effect_base.h"
#include "framework/xml_document.h"
#include "test_host.h"

namespace {

namespace fs = std::filesystem;
using nimbo::testing::TestHost;

const fs::path kHelpDir = fs::path(NIMBO_PLUGINS_DIR) / "nimbo_one.help";
constexpr char k3DPrefix[] = "nimbo one\\3D Effect\\";
constexpr char kNamePrefix[] = "nimbo one\\";

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string HtmlEscaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else out += c;
  }
  return out;
}

bool ShowsAsCode(const std::string& page, const std::string& name) {
  return page.find("<code>" + HtmlEscaped(name) + "</code>") != std::string::npos;
}

// The "name" attributes of the "data" elements of the store's ConfigData;
// false when the document has no ConfigData block at all.
bool StoredKeys(const std::string& document, std::vector<std::string>& keys) {
  nimbo::XmlDocument doc;
  if (!doc.SetDoc(document) || !doc.FindElem(nimbo::kSettingsElem) || !doc.FindChildElem(nimbo::kConfigDataElem)) {
    return false;
  }
  doc.IntoElem();
  doc.IntoElem();
  while (doc.FindElem("data")) keys.push_back(doc.GetAttrib("name"));
  return true;
}

bool HasDigit(const std::string& key) { return key.find_first_of("0123456789") != std::string::npos; }

void CollectOutput(void* user, const char* name, const char*, float) {
  static_cast<std::vector<std::string>*>(user)->push_back(name);
}

// Local link targets (href and src) of a page, relative to its folder,
// without their #fragment.
std::vector<std::string> LocalLinks(const std::string& page) {
  std::vector<std::string> links;
  for (const char* attribute : {"href=\"", "src=\""}) {
    const std::string needle = attribute;
    for (size_t at = page.find(needle); at != std::string::npos; at = page.find(needle, at + 1)) {
      const size_t start = at + needle.size();
      const size_t end = page.find_first_of("\"#", start);
      if (end == std::string::npos) break;
      if (end > start) links.push_back(page.substr(start, end - start));
    }
  }
  return links;
}

struct ImageEffect {
  int32_t index;
  std::string name;       // without "nimbo one\"
  std::string help_page;  // relative to the help folder
};

std::vector<ImageEffect> ImageEffects() {
  std::vector<ImageEffect> effects;
  for (int32_t i = 0; i < orrpkgGetSize(); ++i) {
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(i));
    auto* base = dynamic_cast<nimbo::CEffectBase*>(effect.get());
    if (!base) {
      ADD_FAILURE() << "effect " << i << " is not a CEffectBase";
      continue;
    }
    const std::string name = effect->GetName();
    if (name.rfind(k3DPrefix, 0) == 0) continue;
    EXPECT_EQ(name.rfind(kNamePrefix, 0), 0u) << name;
    effects.push_back({i, name.substr(sizeof kNamePrefix - 1), base->HelpPage() ? base->HelpPage() : ""});
  }
  return effects;
}

TEST(HelpPages, EveryImageEffectHasAPageThatDocumentsWhatItStoresAndPublishes) {
  const std::vector<ImageEffect> effects = ImageEffects();
  ASSERT_FALSE(effects.empty());
  int32_t checked_keys = 0;
  for (const ImageEffect& e : effects) {
    SCOPED_TRACE(e.name);
    ASSERT_FALSE(e.help_page.empty());
    const fs::path path = kHelpDir / e.help_page;
    ASSERT_TRUE(fs::is_regular_file(path)) << path;
    const std::string page = ReadFile(path);
    EXPECT_NE(page.find("<h1>" + HtmlEscaped(e.name) + "</h1>"), std::string::npos) << "the page's heading";

    TestHost host;
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(e.index));
    ASSERT_TRUE(effect);
    effect->SetHostContext(&host);
    effect->UpdateConfig();

    std::vector<std::string> keys;
    EXPECT_TRUE(StoredKeys(host.store.Text(), keys)) << host.store.Text();
    for (const std::string& key : keys) {
      // Keys with an index formatted in ("alphamap_0_x", "dyn0min",
      // "morph0name") are documented by their pattern ("alphamap_%i_x").
      if (HasDigit(key)) continue;
      EXPECT_TRUE(ShowsAsCode(page, key)) << "settings key " << key;
      ++checked_keys;
    }
    for (const orrery::DynVar* v = host.dynvars; v; v = v->next) {
      if (!v->declared) continue;
      EXPECT_TRUE(ShowsAsCode(page, v->name)) << "dynamic variable " << v->name;
    }
    for (const orrery::SliderDesc& slider : host.sliders) {
      EXPECT_TRUE(ShowsAsCode(page, slider.name)) << "slider " << slider.name;
    }
    std::vector<std::string> outputs;
    orrery::VisitOutputValues(effect.get(), CollectOutput, &outputs);
    for (const std::string& output : outputs) EXPECT_TRUE(ShowsAsCode(page, output)) << "output " << output;
  }
  EXPECT_GT(checked_keys, 0) << "no settings key was found in any store";
}

TEST(HelpPages, TheIndexLinksEveryPageAndNoLinkIsBroken) {
  const fs::path index = kHelpDir / "index.htm";
  ASSERT_TRUE(fs::is_regular_file(index)) << index;
  const std::string index_text = ReadFile(index);
  for (const ImageEffect& e : ImageEffects()) {
    EXPECT_NE(index_text.find("href=\"" + e.help_page + "\""), std::string::npos) << e.name << " in the index";
  }

  int32_t pages = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kHelpDir)) {
    if (entry.path().extension() != ".htm") continue;
    ++pages;
    const std::string page = ReadFile(entry.path());
    EXPECT_EQ(page.find("<script"), std::string::npos) << entry.path() << ": pages carry no scripts";
    for (const std::string& link : LocalLinks(page)) {
      ASSERT_EQ(link.find("://"), std::string::npos) << entry.path() << ": external link " << link;
      const fs::path target = (entry.path().parent_path() / link).lexically_normal();
      EXPECT_TRUE(fs::exists(target)) << entry.path() << " links to " << link;
      const std::string relative = target.lexically_relative(kHelpDir).string();
      EXPECT_TRUE(!relative.empty() && relative.rfind("..", 0) != 0) << entry.path() << " leaves the help: " << link;
    }
  }
  EXPECT_GT(pages, 1);
}

}  // namespace
