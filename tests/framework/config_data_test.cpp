// ConfigData (layout, lookup, writing, number texts) and SettingsDocument (the
// host-side marker, preset loading and safe saving).
#include "package/config_data.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <climits>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "package/settings_document.h"

namespace nimbo {
namespace {

size_t Count(const std::string& text, const std::string& what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

class ConfigDataTest : public testing::Test {
 protected:
  XmlDocument doc_;
  ConfigData config_{&doc_};
};

// --- The store --------------------------------------------------------------

TEST_F(ConfigDataTest, MarkerReadsOneAndIsNeverStored) {
  EXPECT_EQ(config_.GetInt("!", 0), 1);
  config_.BeginWriting();
  EXPECT_EQ(config_.SetInt("!", 1), 1);
  EXPECT_EQ(config_.SetString("!", "x"), 1);
  EXPECT_EQ(Count(doc_.GetDoc(), "<data"), 0u);
}

TEST_F(ConfigDataTest, WritesNeedSettingsAndConfigData) {
  EXPECT_EQ(config_.SetInt("a", 1), 0);
  EXPECT_EQ(doc_.GetDoc(), "");
  ASSERT_TRUE(doc_.SetDoc("<Settings/>"));
  EXPECT_EQ(config_.SetFloat("a", 1.0f), 0);
  EXPECT_EQ(config_.SetPath("a", "p"), 0);
  EXPECT_EQ(doc_.GetDoc(), "<Settings/>");
  EXPECT_EQ(config_.GetInt("a", 42), 42);
}

TEST_F(ConfigDataTest, FreshWriteHasTheDocumentedLayout) {
  config_.BeginWriting();
  ASSERT_EQ(config_.SetInt("a", 1), 1);
  ASSERT_EQ(config_.SetFloat("f", 0.1234567f), 1);
  EXPECT_EQ(doc_.GetDoc(),
            "<Settings>\r\n<ConfigData>\r\n<data name=\"a\" type=\"int\">1</data>\r\n"
            "<data name=\"f\" type=\"float\">0.123457</data>\r\n</ConfigData>\r\n</Settings>\r\n");
}

TEST_F(ConfigDataTest, ValuesRoundTripByType) {
  const std::string text = "  a <b> & \"c\" 'd'\r\nline ";
  config_.BeginWriting();
  config_.SetInt("i", -17);
  config_.SetInt("min", INT32_MIN);
  config_.SetFloat("f", -2.5f);
  config_.SetString("s", text.c_str());
  config_.SetString("empty", "");
  config_.SetPath("p", "/some dir/file.png");
  config_.SetString("k\"<&'", "key with entities");
  EXPECT_EQ(config_.GetInt("i", 0), -17);
  EXPECT_EQ(config_.GetInt("min", 0), INT32_MIN);
  EXPECT_EQ(config_.GetFloat("f", 0.0f), -2.5f);
  EXPECT_EQ(config_.GetString("s", ""), text);
  EXPECT_STREQ(config_.GetString("empty", "default"), "");
  EXPECT_STREQ(config_.GetString("k\"<&'", ""), "key with entities");
  bool used_default = true;
  EXPECT_EQ(config_.GetPath("p", "", &used_default), "/some dir/file.png");
  EXPECT_FALSE(used_default);
  EXPECT_EQ(config_.GetPath("missing", "def", &used_default), "def");
  EXPECT_TRUE(used_default);
  EXPECT_EQ(config_.GetFloat("F", 7.0f), 7.0f);  // keys are case-sensitive
}

TEST_F(ConfigDataTest, FloatsKeepSixDecimals) {
  config_.BeginWriting();
  config_.SetFloat("f", 0.1234567f);
  EXPECT_NE(doc_.GetDoc().find(">0.123457<"), std::string::npos);
  EXPECT_EQ(config_.GetFloat("f", 0.0f), 0.123457f);
}

TEST_F(ConfigDataTest, AKeyWrittenTwiceKeepsBothAndReadsTheFirst) {
  config_.BeginWriting();
  config_.SetInt("a", 1);
  config_.SetInt("a", 2);
  EXPECT_EQ(Count(doc_.GetDoc(), "name=\"a\""), 2u);
  EXPECT_EQ(config_.GetInt("a", 0), 1);
}

TEST_F(ConfigDataTest, TypeAttributeIsNotChecked) {
  ASSERT_TRUE(doc_.SetDoc(
      "<Settings><ConfigData><data name='f' type='float'>3.750000</data>"
      "<data name='i' type='int'>12</data><data type='int'>5</data></ConfigData></Settings>"));
  EXPECT_EQ(config_.GetInt("f", 0), 3);
  EXPECT_EQ(config_.GetFloat("i", 0.0f), 12.0f);
  EXPECT_STREQ(config_.GetString("f", ""), "3.750000");
  EXPECT_EQ(config_.GetInt("", -1), -1);  // an element without a name matches no key
}

TEST_F(ConfigDataTest, BeginWritingStartsANewBlockThatReadsSee) {
  config_.BeginWriting();
  config_.SetInt("a", 1);
  config_.SetInt("old", 5);
  config_.BeginWriting();
  config_.SetInt("a", 2);
  EXPECT_EQ(Count(doc_.GetDoc(), "<Settings"), 1u);
  EXPECT_EQ(Count(doc_.GetDoc(), "<ConfigData"), 2u);
  EXPECT_EQ(config_.GetInt("a", 0), 2);
  EXPECT_EQ(config_.GetInt("old", -1), -1);  // the newest block is the store
}

TEST_F(ConfigDataTest, IgnoredKeysAreNotWrittenButStillRead) {
  ASSERT_TRUE(doc_.SetDoc("<Settings><ConfigData><data name='k3'>9</data></ConfigData></Settings>"));
  for (int i = 0; i < ConfigData::kMaxIgnoredKeys; ++i) {
    EXPECT_TRUE(config_.AddIgnoredKey(("k" + std::to_string(i)).c_str()));
  }
  EXPECT_FALSE(config_.AddIgnoredKey("one too many"));
  const std::string before = doc_.GetDoc();
  EXPECT_EQ(config_.SetInt("k15", 1), 1);
  EXPECT_EQ(config_.SetString("k0", "x"), 1);
  EXPECT_EQ(doc_.GetDoc(), before);
  EXPECT_EQ(config_.GetInt("k3", 0), 9);
  EXPECT_EQ(config_.SetInt("one too many", 1), 1);
  EXPECT_NE(doc_.GetDoc(), before);
}

TEST_F(ConfigDataTest, StringsShareOneBuffer) {
  config_.BeginWriting();
  config_.SetString("a", "first");
  config_.SetString("b", "second");
  const char* first = config_.GetString("a", "");
  EXPECT_STREQ(first, "first");
  const char* second = config_.GetString("b", "");
  EXPECT_EQ(first, second);
  EXPECT_STREQ(second, "second");
  const char* def = "default";
  EXPECT_EQ(config_.GetString("missing", def), def);
}

// --- Number texts -----------------------------------------------------------

TEST(NumberText, ScansLikeStrtolAndStrtof) {
  const struct {
    const char* text;
    int32_t i;
    float f;
  } kCases[] = {
      {"12", 12, 12.0f},         {"  -3", -3, -3.0f},          {"+4", 4, 4.0f},
      {"7abc", 7, 7.0f},         {"abc", 0, 0.0f},             {"", 0, 0.0f},
      {"0.750000", 0, 0.75f},    {"1e3", 1, 1000.0f},          {"010", 10, 10.0f},
      {"99999999999", INT32_MAX, 99999999999.0f},              {"-99999999999", INT32_MIN, -99999999999.0f},
      {"1e999", 1, INFINITY},    {"-", 0, 0.0f},
  };
  for (const auto& c : kCases) {
    XmlDocument doc;
    ConfigData config(&doc);
    config.BeginWriting();
    config.SetString("v", c.text);
    EXPECT_EQ(config.GetInt("v", -1), c.i) << c.text;
    EXPECT_EQ(config.GetFloat("v", -1.0f), c.f) << c.text;
  }
  EXPECT_EQ(ScanInt("0x1F", 0), 31);  // "%i" takes C prefixes
  EXPECT_EQ(ScanInt("0x1F", 10), 0);
  EXPECT_EQ(ScanInt("junk", 0), std::nullopt);
  EXPECT_EQ(ScanFloat("junk"), std::nullopt);
}

TEST(NumberText, FormatsLikePrintfInTheCLocale) {
  std::vector<float> values = {0.0f, -0.0f, 1e-7f, 0.5f, 0.0078125f, -1.5f, 3.4028235e38f,
                               -3.4028235e38f, 1.17549435e-38f, 123456.789f};
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
  bool comma = false;
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de_DE", "fr_FR", "ru_RU.UTF-8"}) {
    char probe[16];
    if (std::setlocale(LC_ALL, name) && std::snprintf(probe, sizeof probe, "%.1f", 0.5) > 0 &&
        std::string(probe) == "0,5") {
      comma = true;
      break;
    }
  }
  if (!comma) {
    std::setlocale(LC_ALL, saved.c_str());
    GTEST_SKIP() << "no locale with a decimal comma is installed";
  }
  XmlDocument doc;
  ConfigData config(&doc);
  config.BeginWriting();
  config.SetFloat("f", 0.5f);
  const float read = config.GetFloat("f", 0.0f);
  const std::optional<float> scanned = ScanFloat("0.25");
  std::setlocale(LC_ALL, saved.c_str());
  EXPECT_NE(doc.GetDoc().find(">0.500000<"), std::string::npos);
  EXPECT_EQ(read, 0.5f);
  EXPECT_EQ(scanned, 0.25f);
}

// --- SettingsDocument -------------------------------------------------------

TEST(SettingsDocument, FreshDocumentMakesAnEffectWriteItsDefaults) {
  SettingsDocument store;
  EXPECT_EQ(store.GetInt("!", 0), 0);
  // An effect's configuration step: on 0 it writes the marker and its defaults.
  store.BeginWriting();
  store.SetInt("!", 1);
  store.SetInt("mode", 2);
  EXPECT_EQ(store.GetInt("!", 0), 1);
  EXPECT_EQ(store.GetInt("mode", 0), 2);
  store.Clear();
  EXPECT_EQ(store.GetInt("!", 7), 7);
  EXPECT_EQ(store.Text(), "");
}

TEST(SettingsDocument, LoadKeepsTheDocumentOnFailure) {
  SettingsDocument store;
  ASSERT_TRUE(store.Load("<Settings><ConfigData><data name='a'>4</data></ConfigData></Settings>"));
  EXPECT_EQ(store.GetInt("a", 0), 4);
  const struct {
    const char* text;
    const char* error;
  } kCases[] = {
      {"", "Element tag not found"},
      {"<Settings><a></Settings>", "End tag does not correspond to a"},
      {"<Other/>", "Settings element not found"},
  };
  for (const auto& c : kCases) {
    EXPECT_FALSE(store.Load(c.text));
    EXPECT_EQ(store.GetError(), c.error);
    EXPECT_EQ(store.GetInt("a", 0), 4);
  }
  ASSERT_TRUE(store.Load("<Settings/>"));
  EXPECT_EQ(store.GetError(), "");
  EXPECT_EQ(store.GetInt("!", 0), 0);
}

class SettingsFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "settings_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    path_ = dir_ + "/preset.xml";
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  static void Write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

  std::string dir_, path_;
};

TEST_F(SettingsFileTest, SavesAndLoadsWithoutLeavingATemporaryFile) {
  SettingsDocument store;
  store.BeginWriting();
  store.SetString("s", "a & b");
  ASSERT_TRUE(store.SaveToFile(path_)) << store.GetError();
  EXPECT_EQ(access((path_ + ".tmp").c_str(), F_OK), -1);
  EXPECT_EQ(Read(path_), store.Text());
  SettingsDocument loaded;
  ASSERT_TRUE(loaded.LoadFromFile(path_)) << loaded.GetError();
  EXPECT_STREQ(loaded.GetString("s", ""), "a & b");
}

TEST_F(SettingsFileTest, AFailedSaveKeepsThePreviousFile) {
  Write(path_, "previous");
  ASSERT_EQ(mkdir((path_ + ".tmp").c_str(), 0755), 0);  // the temporary cannot be created
  SettingsDocument store;
  EXPECT_FALSE(store.SaveToFile(path_));
  EXPECT_EQ(store.GetError().rfind("Cannot create " + path_ + ".tmp: ", 0), 0u) << store.GetError();
  EXPECT_EQ(Read(path_), "previous");
  EXPECT_FALSE(store.SaveToFile(dir_ + "/missing/preset.xml"));
}

TEST_F(SettingsFileTest, LoadErrorsNameTheFileAndTheCause) {
  SettingsDocument store;
  EXPECT_FALSE(store.LoadFromFile(path_));
  EXPECT_EQ(store.GetError(), "File not found: " + path_);
  EXPECT_FALSE(store.LoadFromFile(dir_));
  EXPECT_EQ(store.GetError(), "Cannot read " + dir_ + ": Is a directory");
  Write(path_, "<Settings><ConfigData>");
  EXPECT_FALSE(store.LoadFromFile(path_));
  EXPECT_EQ(store.GetError(), path_ + ": End tag of ConfigData element not found");
  const int fd = open(path_.c_str(), O_WRONLY | O_TRUNC);
  ASSERT_EQ(ftruncate(fd, SettingsDocument::kMaxFileSize + 1), 0);
  close(fd);
  EXPECT_FALSE(store.LoadFromFile(path_));
  EXPECT_EQ(store.GetError(), "File too large: " + path_ + " (the limit is 16 MiB)");
}

}  // namespace
}  // namespace nimbo
