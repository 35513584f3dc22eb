// ConfigData (layout, lookup, writing, number texts) and SettingsDocument (the
// host-side marker, preset loading and safe saving).
#include "framework/config_data.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>

#include "framework/settings_document.h"

namespace nimbo {
namespace {

size_t Count(const std::string& text, const std::string& what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

TEST(ConfigData, MarkerReadsOneAndWritesNeedABlock) {
  XmlDocument doc;
  ConfigData config(&doc);
  EXPECT_EQ(config.GetInt("!", 0), 1);
  EXPECT_EQ(config.SetInt("a", 1), 0);
  ASSERT_TRUE(doc.SetDoc("<Settings/>"));
  EXPECT_EQ(config.SetPath("a", "p") + config.GetInt("a", 42), 42);
  EXPECT_EQ(doc.GetDoc(), "<Settings/>");
  config.BeginWriting();
  EXPECT_EQ(config.SetInt("!", 1), 1);
  EXPECT_EQ(config.SetInt("a", 1), 1);
  EXPECT_EQ(config.SetFloat("f", 0.1234567f), 1);
  EXPECT_EQ(doc.GetDoc(),  // "!" is never stored; floats keep six decimals
            "<Settings>\r\n<ConfigData>\r\n<data name=\"a\" type=\"int\">1</data>\r\n"
            "<data name=\"f\" type=\"float\">0.123457</data>\r\n</ConfigData>\r\n</Settings>");
  EXPECT_EQ(config.GetFloat("f", 0.0f), 0.123457f);
}

TEST(ConfigData, ValuesRoundTripByType) {
  const std::string text = "  a <b> & \"c\" 'd'\r\nline ";
  XmlDocument doc;
  ConfigData config(&doc);
  config.BeginWriting();
  config.SetInt("i", INT32_MIN);
  config.SetFloat("f", -2.5f);
  config.SetString("s", text.c_str());
  config.SetString("empty", "");
  config.SetPath("k\"<&'", "/some dir/file.png");
  EXPECT_EQ(config.GetFloat("f", 0.0f) + config.GetFloat("F", 7.0f), 4.5f);  // keys are case-sensitive
  EXPECT_EQ(config.GetInt("i", 0), INT32_MIN);
  EXPECT_EQ(config.GetString("s", ""), text);
  EXPECT_STREQ(config.GetString("empty", "default"), "");
  bool used_default = true;
  EXPECT_EQ(config.GetPath("k\"<&'", "", &used_default), "/some dir/file.png");
  EXPECT_FALSE(used_default);
  EXPECT_EQ(config.GetPath("missing", "def", &used_default), "def");
  EXPECT_TRUE(used_default);
}

TEST(ConfigData, ReadsTheFirstMatchWhateverItsType) {
  XmlDocument doc;
  ConfigData config(&doc);
  ASSERT_TRUE(
      doc.SetDoc("<Settings><ConfigData><data type='int'>5</data><data name='f' type='float'>3.750000</data>"
                 "<data name='i' type='int'>12</data><data name='i'>13</data></ConfigData></Settings>"));
  EXPECT_EQ(config.GetInt("f", 0), 3);
  EXPECT_EQ(config.GetFloat("i", 0.0f), 12.0f);
  EXPECT_EQ(config.GetInt("", -1), -1);  // an element without a name matches no key
  config.BeginWriting();
  config.SetInt("a", 1);
  config.SetInt("a", 2);  // written twice: both stay, the first is read
  EXPECT_EQ(Count(doc.GetDoc(), "name=\"a\""), 2u);
  EXPECT_EQ(config.GetInt("a", 0), 1);
  EXPECT_EQ(config.GetInt("i", -1), -1);  // the newest block is the store
  EXPECT_EQ(Count(doc.GetDoc(), "<ConfigData"), 2u);
}

TEST(ConfigData, IgnoredKeysAreNotWrittenButStillRead) {
  XmlDocument doc;
  ConfigData config(&doc);
  ASSERT_TRUE(doc.SetDoc("<Settings><ConfigData><data name='k3'>9</data></ConfigData></Settings>"));
  for (int i = 0; i < ConfigData::kMaxIgnoredKeys; ++i)
    EXPECT_TRUE(config.AddIgnoredKey(("k" + std::to_string(i)).c_str()));
  EXPECT_FALSE(config.AddIgnoredKey("one too many"));
  EXPECT_EQ(config.SetInt("k15", 1) + config.SetString("k0", "x"), 2);
  EXPECT_EQ(Count(doc.GetDoc(), "<data"), 1u);
  EXPECT_EQ(config.GetInt("k3", 0), 9);
}

TEST(NumberText, ScansLikeStrtolAndStrtof) {
  const struct {
    const char* text;
    int32_t i;
    float f;
  } kCases[] = {{"12", 12, 12.0f},
                {"  -3", -3, -3.0f},
                {"+4", 4, 4.0f},
                {"7abc", 7, 7.0f},
                {"abc", 0, 0.0f},
                {"", 0, 0.0f},
                {"0.750000", 0, 0.75f},
                {"1e3", 1, 1000.0f},
                {"010", 10, 10.0f},
                {"1e999", 1, INFINITY},
                {"99999999999", INT32_MAX, 99999999999.0f},
                {"-99999999999", INT32_MIN, -99999999999.0f}};
  for (const auto& c : kCases) {
    XmlDocument doc;
    ConfigData config(&doc);
    config.BeginWriting();
    config.SetString("v", c.text);
    EXPECT_EQ(config.GetInt("v", -1), c.i) << c.text;
    EXPECT_EQ(config.GetFloat("v", -1.0f), c.f) << c.text;
  }
  EXPECT_EQ(ScanInt("0x1F", 0), 31);  // "%i" takes C prefixes
  EXPECT_EQ(ScanInt("junk", 0), std::nullopt);
  EXPECT_EQ(ScanFloat("junk"), std::nullopt);
}

TEST(NumberText, FormatsLikePrintfInTheCLocale) {
  std::vector<float> values = {0.0f, -0.0f, 1e-7f, 0.0078125f, 3.4028235e38f, -1.17549435e-38f};
  std::mt19937 random(7);
  std::uniform_real_distribution<float> spread(-1000.0f, 1000.0f);
  for (int i = 0; i < 2000; ++i) values.push_back(spread(random));
  for (float value : values) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%f", static_cast<double>(value));
    EXPECT_EQ(FormatFloat(value), expected);
  }
  EXPECT_EQ(FormatInt(INT32_MIN), "-2147483648");
}

TEST(NumberText, IgnoresACommaLocale) {
  const std::string saved = std::setlocale(LC_ALL, nullptr);
  char probe[8] = "";
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de_DE", "fr_FR"}) {
    if (std::setlocale(LC_ALL, name) && std::snprintf(probe, sizeof probe, "%.1f", 0.5) && probe[1] == ',') break;
  }
  XmlDocument doc;
  ConfigData config(&doc);
  config.BeginWriting();
  config.SetFloat("f", 0.5f);
  const float read = config.GetFloat("f", 0.0f);
  const std::optional<float> scanned = ScanFloat("0.25");
  std::setlocale(LC_ALL, saved.c_str());
  if (probe[1] != ',') GTEST_SKIP() << "no locale with a decimal comma is installed";
  EXPECT_NE(doc.GetDoc().find(">0.500000<"), std::string::npos);
  EXPECT_EQ(read, 0.5f);
  EXPECT_EQ(scanned, 0.25f);
}

TEST(SettingsDocument, AnswersTheMarkerOnlyForAStoredBlockAndLoadKeepsItOnFailure) {
  SettingsDocument store;
  EXPECT_EQ(store.GetInt("!", 0), 0);
  store.BeginWriting();  // what an effect does on 0
  store.SetInt("!", 1);
  store.SetInt("mode", 2);
  EXPECT_EQ(store.GetInt("!", 0) + store.GetInt("mode", 0), 3);
  store.Clear();
  EXPECT_EQ(store.GetInt("!", 7) + store.Text().size(), 7u);
  ASSERT_TRUE(store.Load("<Settings><ConfigData><data name='a'>4</data></ConfigData></Settings>"));
  const struct {
    const char* text;
    const char* error;
  } kCases[] = {{"", "Element tag not found"},
                {"<Settings><a></Settings>", "End tag does not correspond to a"},
                {"<Other/>", "Settings element not found"}};
  for (const auto& c : kCases) {
    EXPECT_FALSE(store.Load(c.text));
    EXPECT_EQ(store.GetError(), c.error);
    EXPECT_EQ(store.GetInt("a", 0), 4);
  }
  ASSERT_TRUE(store.Load("<Settings/>"));
  EXPECT_EQ(store.GetError() + std::to_string(store.GetInt("!", 0)), "0");  // no stored block
}

TEST(SettingsDocument, FilesAreSavedSafelyAndLoadedWithClearErrors) {
  std::string dir = testing::TempDir() + "settings_XXXXXX";
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  const std::string path = dir + "/preset.xml";
  SettingsDocument store, loaded;
  store.BeginWriting();
  store.SetString("s", "a & b");
  ASSERT_TRUE(store.SaveToFile(path)) << store.GetError();
  EXPECT_EQ(access((path + ".tmp").c_str(), F_OK), -1);
  ASSERT_TRUE(loaded.LoadFromFile(path)) << loaded.GetError();
  EXPECT_EQ(loaded.Text(), store.Text());

  ASSERT_EQ(mkdir((path + ".tmp").c_str(), 0755), 0);  // the temporary cannot be created
  EXPECT_FALSE(store.SaveToFile(path));
  EXPECT_EQ(store.GetError(), "Cannot create " + path + ".tmp: Is a directory");
  EXPECT_TRUE(loaded.LoadFromFile(path));  // the previous file is intact

  EXPECT_FALSE(loaded.LoadFromFile(dir + "/missing"));
  EXPECT_EQ(loaded.GetError(), "File not found: " + dir + "/missing");
  EXPECT_FALSE(loaded.LoadFromFile(dir));
  EXPECT_EQ(loaded.GetError(), "Cannot read " + dir + ": Is a directory");
  std::ofstream(path) << "<Settings><ConfigData>";
  EXPECT_FALSE(loaded.LoadFromFile(path));
  EXPECT_EQ(loaded.GetError(), path + ": End tag of ConfigData element not found");
  ASSERT_EQ(truncate(path.c_str(), SettingsDocument::kMaxFileSize + 1), 0);
  EXPECT_FALSE(loaded.LoadFromFile(path));
  EXPECT_EQ(loaded.GetError(), "File too large: " + path + " (the limit is 16 MiB)");
  EXPECT_STREQ(loaded.GetString("s", ""), "a & b");  // failed loads changed nothing
  std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
}  // namespace nimbo
