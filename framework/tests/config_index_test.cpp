// The store's key index against the plain walk (WalkLookup) on generated
// documents, and the document's localized edits against parsing the edited
// text again.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "framework/config_data.h"
#include "framework/settings_document.h"

namespace nimbo {
namespace {

// Names that collide in the ways lookups can get wrong: case, entities,
// blanks, an empty name, the marker.
const std::vector<std::string> kNames = {"a", "A", "b", "a&b", "a<b", "", "!", "key 1", "k'q", "morph0line1_l1_p1_x"};

std::string Attr(std::mt19937& rng, const std::string& name, const std::string& value) {
  std::string encoded = XmlDocument::Encode(value, true);
  if (rng() % 4 == 0 && value.find('\'') == std::string::npos) return " " + name + "='" + encoded + "'";
  return " " + name + "=\"" + encoded + "\"";
}

// A "data"-like element: mostly "data" with a name, sometimes another tag,
// no name, a second name attribute, a type that disagrees, children, or a
// comment inside.
std::string DataElem(std::mt19937& rng, int serial) {
  const char* tags[] = {"data", "data", "data", "data", "Data", "datum"};
  const std::string tag = tags[rng() % 6];
  std::string attrs;
  if (rng() % 3 == 0) attrs += Attr(rng, "type", rng() % 2 ? "float" : "int");
  if (rng() % 10) attrs += Attr(rng, "name", kNames[rng() % kNames.size()]);
  if (rng() % 8 == 0) attrs += Attr(rng, "name", kNames[rng() % kNames.size()]);  // the first one counts
  if (rng() % 2) attrs += Attr(rng, "type", "int");
  const std::string value = std::to_string(serial) + (rng() % 5 == 0 ? ".5e1 &amp; x" : "");
  switch (rng() % 8) {
    case 0:
      return "<" + tag + attrs + "/>\r\n";
    case 1:
      return "<" + tag + attrs + "><x>" + value + "</x></" + tag + ">\r\n";
    case 2:
      return "<" + tag + attrs + ">" + value + "<!-- c -->9</" + tag + ">\r\n";
    default:
      return "<" + tag + attrs + ">" + value + "</" + tag + ">\r\n";
  }
}

std::string Block(std::mt19937& rng, const char* name, int& serial) {
  std::string text = std::string("<") + name + ">\r\n";
  const int count = int(rng() % 30);
  for (int i = 0; i < count; ++i) text += DataElem(rng, serial++);
  return text + "</" + name + ">\r\n";
}

// Zero to three "Settings" elements (a stray one before is named otherwise),
// each with zero to three blocks of which some are "ConfigData".
std::string Document(std::mt19937& rng) {
  int serial = 1;
  std::string text = rng() % 4 == 0 ? "<?xml version=\"1.0\"?>\r\n" : "";
  if (rng() % 4 == 0) text += "<settings>" + Block(rng, "ConfigData", serial) + "</settings>\r\n";
  const int settings = int(rng() % 4);
  for (int s = 0; s < settings; ++s) {
    text += "<Settings>\r\n";
    const int blocks = int(rng() % 4);
    for (int b = 0; b < blocks; ++b) {
      const char* kinds[] = {"ConfigData", "ConfigData", "Dynvars", "configdata"};
      text += Block(rng, kinds[rng() % 4], serial);
    }
    text += "</Settings>\r\n";
  }
  return text + "<tail/>\r\n";  // a document always holds an element
}

// Every get operation of `config` agrees with the walk over `doc`.
void ExpectSameAnswers(ConfigData& config, XmlDocument& doc, const std::string& context) {
  for (const std::string& key : kNames) {
    const auto expected = WalkLookup(doc, key.c_str());
    ASSERT_EQ(config.Find(key.c_str()), expected) << "key \"" << key << "\" in\n" << context;
    if (key != "!") {
      const int32_t want_int = expected ? ScanInt(*expected, 10).value_or(0) : -77;
      EXPECT_EQ(config.GetInt(key.c_str(), -77), want_int) << key << "\n" << context;
    }
    const float want_float = expected ? ScanFloat(*expected).value_or(0.0f) : 0.25f;
    EXPECT_EQ(config.GetFloat(key.c_str(), 0.25f), want_float) << key << "\n" << context;
    EXPECT_EQ(std::string(config.GetString(key.c_str(), "def")), expected.value_or("def")) << key;
    bool used_default = false;
    EXPECT_EQ(config.GetPath(key.c_str(), "def", &used_default), expected.value_or("def"));
    EXPECT_EQ(used_default, !expected.has_value());
  }
  doc.ResetPos();
  const bool has_block = doc.FindElem("Settings") && doc.FindChildElem("ConfigData");
  EXPECT_EQ(config.HasBlock(), has_block) << context;
  EXPECT_EQ(config.GetInt("!", 0), 1);
}

TEST(ConfigIndex, AnswersWhatTheWalkAnswersOnGeneratedDocuments) {
  std::mt19937 rng(20261124);
  for (int round = 0; round < 400; ++round) {
    XmlDocument doc;
    const std::string text = Document(rng);
    ASSERT_TRUE(doc.SetDoc(text)) << doc.GetError() << "\n" << text;
    ConfigData config(&doc);
    ExpectSameAnswers(config, doc, text);
    // Writes change the document under a built index: the next lookup must
    // see them (a new block goes first and hides the older ones).
    if (rng() % 2) config.BeginWriting();
    config.SetInt(kNames[rng() % kNames.size()].c_str(), int32_t(rng() % 100));
    config.SetString(kNames[rng() % kNames.size()].c_str(), "written");
    ExpectSameAnswers(config, doc, doc.GetDoc());
    // A document loaded in place of the indexed one.
    ASSERT_TRUE(doc.SetDoc(Document(rng)));
    ExpectSameAnswers(config, doc, doc.GetDoc());
  }
}

TEST(ConfigIndex, FollowsEveryWayTheHostReplacesTheDocument) {
  SettingsDocument store;
  EXPECT_EQ(store.GetInt("!", 0), 0);
  ASSERT_TRUE(store.Load("<Settings><ConfigData><data name='a'>1</data><data name='a'>2</data></ConfigData></Settings>"));
  EXPECT_EQ(store.GetInt("!", 0), 1);
  EXPECT_EQ(store.GetInt("a", 0), 1);
  ASSERT_TRUE(store.Load("<Settings><ConfigData><data name='a'>3</data></ConfigData></Settings>"));
  EXPECT_EQ(store.GetInt("a", 0), 3);
  EXPECT_FALSE(store.Load("<Settings><ConfigData>"));  // a failed load keeps the document and its answers
  EXPECT_EQ(store.GetInt("a", 0), 3);
  store.Clear();
  EXPECT_EQ(store.GetInt("a", 5), 5);
  EXPECT_EQ(store.GetInt("!", 0), 0);
  store.BeginWriting();
  store.SetInt("a", 4);
  EXPECT_EQ(store.GetInt("a", 0), 4);
  EXPECT_EQ(store.GetInt("!", 0), 1);
}

// What the navigation reads of every element, depth first.
std::string Walk(XmlDocument& doc) {
  std::string seen;
  doc.ResetPos();
  while (true) {
    if (doc.FindElem()) {
      seen += "<" + doc.GetTagName() + "|" + doc.GetData() + "|" + doc.GetAttrib("name") + "|" + doc.GetAttrib("v");
      doc.ResetChildPos();
      doc.IntoElem();
    } else if (doc.OutOfElem()) {
      seen += ">";
    } else {
      return seen;
    }
  }
}

// Edits visit only the elements behind or around them; after any sequence
// of edits at random places the document must read as its own text parsed
// again.
TEST(XmlEdits, RandomEditsReadAsTheirTextParsedAgain) {
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    XmlDocument doc;
    ASSERT_TRUE(doc.SetDoc(Document(rng)));
    for (int step = 0; step < 40; ++step) {
      // A random place: down a few levels, along a few siblings.
      doc.ResetPos();
      const int depth = int(rng() % 4);
      for (int d = 0; d < depth && doc.FindElem(); ++d) {
        for (int k = int(rng() % 3); k > 0 && doc.FindElem();) --k;
        if (rng() % 2) doc.FindChildElem();
        if (d + 1 < depth) doc.IntoElem();
      }
      const std::string value = "v" + std::to_string(step) + (rng() % 3 ? "" : "<&>");
      switch (rng() % 6) {
        case 0: doc.AddElem("e", rng() % 2 ? value : ""); break;
        case 1: doc.AddChildElem("c", rng() % 2 ? value : ""); break;
        case 2: doc.InsertChildElem("i", value); break;
        case 3: doc.SetAttrib("name", value); break;
        case 4: doc.SetChildAttrib("v", value); break;
        default: doc.SetAttrib("v", ""); break;
      }
    }
    XmlDocument again;
    ASSERT_TRUE(again.SetDoc(doc.GetDoc())) << again.GetError() << "\n" << doc.GetDoc();
    ASSERT_EQ(Walk(doc), Walk(again)) << doc.GetDoc();
  }
}

}  // namespace
}  // namespace nimbo
