// What an effect reads a preset through (CheckedStore over the effect's
// settings document), the package's description line, and the progress
// line `nimbo render` draws on a terminal.
#include <gtest/gtest.h>

#include <string>

#include "cli/progress_bar.h"
#include "runtime/checked_store.h"
#include "runtime/effect_host.h"
#include "runtime/package_loader.h"

namespace nimbo::host {
namespace {

const char* const kPreset =
    "<Settings>\r\n<ConfigData>\r\n"
    "<data name=\"radius\" type=\"int\">99</data>\r\n"
    "<data name=\"gain\" type=\"float\">-5.000000</data>\r\n"
    "<data name=\"count\" type=\"int\">abc</data>\r\n"
    "<data name=\"level\" type=\"float\">nan</data>\r\n"
    "<data name=\"free\" type=\"float\">inf</data>\r\n"
    "<data name=\"steps\" type=\"int\">4</data>\r\n"
    "<data name=\"title\" type=\"string\">kept as typed</data>\r\n"
    "<data name=\"stranger\" type=\"int\">1</data>\r\n"
    "</ConfigData>\r\n</Settings>\r\n";

void Describe(EffectHost& host, const char* key, orrery::SettingType type, double lo, double hi) {
  host.DescribeSetting({key, type, lo, hi, ""});
}

bool HasWarning(const CheckedStore& store, const std::string& part) {
  for (const std::string& w : store.Warnings())
    if (w.find(part) != std::string::npos) return true;
  return false;
}

// An effect reads a preset whose values are out of range, of the wrong type
// or no number, then writes back what it uses. It gets clamped values or its
// own defaults, one warning per key naming the source, and what it writes
// through the checked store lands in the document the host saves.
TEST(CheckedStore, ClampsOrKeepsTheDefaultAndWritesWhatTheEffectUses) {
  EffectHost host(32, 24, 25.0);
  ASSERT_TRUE(host.Store().Load(kPreset));
  Describe(host, "radius", orrery::SettingType::kInt, 0, 10);
  Describe(host, "gain", orrery::SettingType::kFloat, 0, 1);
  Describe(host, "count", orrery::SettingType::kInt, 0, 100);
  Describe(host, "level", orrery::SettingType::kFloat, 0, 2);
  Describe(host, "steps", orrery::SettingType::kInt, 1, 8);
  CheckedStore checked(host, "preset \"p.xml\"");

  EXPECT_EQ(checked.GetInt("radius", 3), 10);
  EXPECT_FLOAT_EQ(checked.GetFloat("gain", 0.5f), 0.0f);
  EXPECT_EQ(checked.GetInt("count", 7), 7) << "text that is no int keeps the default";
  EXPECT_FLOAT_EQ(checked.GetFloat("level", 1.25f), 1.25f) << "nan keeps the default";
  EXPECT_FLOAT_EQ(checked.GetFloat("free", 0.75f), 0.75f) << "an infinite float without a range keeps the default";
  EXPECT_EQ(checked.GetInt("steps", 1), 4) << "a value in range passes unchanged";
  EXPECT_STREQ(checked.GetString("title", ""), "kept as typed");
  EXPECT_EQ(checked.GetInt("missing", 5), 5);
  EXPECT_EQ(checked.GetInt("radius", 3), 10) << "asked again, the same answer";

  ASSERT_EQ(checked.Warnings().size(), 5u) << "one warning per faulty key, however often it is read";
  for (const std::string& w : checked.Warnings()) EXPECT_EQ(w.rfind("preset \"p.xml\": ", 0), 0u) << w;
  EXPECT_TRUE(HasWarning(checked, "\"radius\" = \"99\" is outside")) << checked.Warnings()[0];
  EXPECT_TRUE(HasWarning(checked, "using 10"));
  EXPECT_TRUE(HasWarning(checked, "\"count\" = \"abc\" is not an int; keeping the default 7"));
  EXPECT_TRUE(HasWarning(checked, "\"level\" = \"nan\" is not a number in"));
  EXPECT_TRUE(HasWarning(checked, "\"free\" = \"inf\" is not a finite number"));
  EXPECT_FALSE(HasWarning(checked, "steps"));
  EXPECT_FALSE(HasWarning(checked, "missing"));

  // Which of the preset's keys the effect asked for.
  ConfigData& config = host.Store().Config();
  for (const char* key : {"radius", "gain", "count", "level", "free", "steps", "title"})
    EXPECT_TRUE(checked.WasRead(config.FindElement(key))) << key;
  EXPECT_FALSE(checked.WasRead(config.FindElement("stranger")));
  EXPECT_FALSE(checked.WasRead(0));
  EXPECT_FALSE(checked.WasRead(-1));
  EXPECT_FALSE(checked.WasRead(1 << 20));

  // Reading corrects nothing in the document: the preset's own text stays
  // until the effect writes.
  EXPECT_EQ(host.Store().Document().DataAt(config.FindElement("radius")), "99");

  // The effect stores what it uses, through the checked store.
  checked.BeginWriting();
  checked.SetInt("radius", 10);
  checked.SetFloat("gain", 0.0f);
  checked.SetInt("count", 7);
  checked.SetFloat("level", 1.25f);
  checked.SetString("title", "kept as typed");
  checked.SetPath("file", "/tmp/picture.png");
  SettingsDocument& doc = host.Store();
  EXPECT_EQ(doc.GetInt("radius", -1), 10);
  EXPECT_FLOAT_EQ(doc.GetFloat("gain", -1), 0.0f);
  EXPECT_EQ(doc.GetInt("count", -1), 7);
  EXPECT_FLOAT_EQ(doc.GetFloat("level", -1), 1.25f);
  EXPECT_STREQ(doc.GetString("title", ""), "kept as typed");
  bool used_default = true;
  EXPECT_EQ(doc.GetPath("file", "", &used_default), "/tmp/picture.png");
  EXPECT_FALSE(used_default);
  EXPECT_EQ(checked.Warnings().size(), 5u) << "writing warns of nothing";
}

// The package's one-line description, as `nimbo list` and the frei0r pages
// show it; asking again gives the same text.
TEST(Package, InfoIsTheOneLineDescriptionOfThePackageLoaded) {
  const Package fixture(NIMBO_FIXTURE_DIR);
  EXPECT_STREQ(fixture.Info(), "host test fixtures. ver SP1");

  const Package package(NIMBO_PLUGINS_DIR);
  const std::string info = package.Info();
  EXPECT_NE(info.find("nimbo one"), std::string::npos) << info;
  EXPECT_EQ(info.find('\n'), std::string::npos);
  ASSERT_GE(info.size(), 9u);
  EXPECT_EQ(info.substr(info.size() - 9), ". ver SP1");
  EXPECT_EQ(std::string(package.Info()), info);
}

// The progress line: a bar when the length is known (never past full when
// more frames come than were announced), the frames, the speed and the time
// left; frames and speed alone otherwise.
TEST(ProgressBar, FormatsTheBarTheSpeedAndTheTimeLeft) {
  EXPECT_EQ(ProgressBar::Format("render", 25, 100, 2.0, 10), "render [##--------] 25/100 frames  12.5 fps  0:06 left");
  EXPECT_EQ(ProgressBar::Format("render", 0, 100, 0.0, 4), "render [----] 0/100 frames  0.0 fps");
  EXPECT_EQ(ProgressBar::Format("render", 100, 100, 4.0, 4), "render [####] 100/100 frames  25.0 fps");
  EXPECT_EQ(ProgressBar::Format("render", 120, 100, 4.0, 4), "render [####] 120/100 frames  30.0 fps");
  EXPECT_EQ(ProgressBar::Format("render", 1, 10000, 1.0, 2), "render [--] 1/10000 frames  1.0 fps  2:46:39 left");
  EXPECT_EQ(ProgressBar::Format("cam", 50, -1, 2.0, 10), "cam 50 frames  25.0 fps");
}

}  // namespace
}  // namespace nimbo::host
