// DynVarList: declaration, persisted keys (through a recording store and a
// real one), and the XML form of current values.
#include "package/dynvar_list.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "package/config_data.h"

namespace nimbo {
namespace {

// A store that logs every call as "op key value" and answers gets from `values`.
class RecordingStore final : public orrery::ConfigStore {
 public:
  std::vector<std::string> log;
  std::map<std::string, std::string> values;

  void BeginWriting() override { log.push_back("begin"); }
  int32_t GetInt(const char* key, int32_t def) override {
    return Has("getint", key) ? std::stoi(values[key]) : def;
  }
  float GetFloat(const char* key, float def) override {
    return Has("getfloat", key) ? std::stof(values[key]) : def;
  }
  const char* GetString(const char* key, const char* def) override {
    return Has("getstring", key) ? values[key].c_str() : def;
  }
  std::string GetPath(const char* key, const char* def, bool*) override {
    return Has("getpath", key) ? values[key] : def;
  }
  int32_t SetInt(const char* key, int32_t value) override { return Set("int", key, FormatInt(value)); }
  int32_t SetFloat(const char* key, float value) override { return Set("float", key, FormatFloat(value)); }
  int32_t SetString(const char* key, const char* value) override { return Set("string", key, value); }
  int32_t SetPath(const char* key, const char* value) override { return Set("path", key, value); }

 private:
  bool Has(const char* op, const char* key) {
    log.push_back(std::string(op) + " " + key);
    return values.count(key) != 0;
  }
  int32_t Set(const char* type, const char* key, const std::string& value) {
    log.push_back(std::string(type) + " " + key + " " + value);
    return 1;
  }
};

TEST(DynVarDeclare, NewNodesStartAsDocumented) {
  DynVarList list;
  float* value = list.DeclareFloat("Gain", -1.0f, 2.0f, 0.25f, 0.0f, 10.0f, 7);
  int32_t* flag = list.DeclareBool("On", 1, 3);
  const orrery::DynVar* gain = list.Head();
  ASSERT_NE(gain, nullptr);
  EXPECT_STREQ(gain->name, "Gain");
  EXPECT_EQ(value, &gain->value);
  EXPECT_EQ(*value, 0.25f);
  EXPECT_EQ(gain->varmin, -1.0f);
  EXPECT_EQ(gain->varmax, 2.0f);
  EXPECT_EQ(gain->min, 0.0f);
  EXPECT_EQ(gain->max, 10.0f);
  EXPECT_EQ(gain->host_handle, -1);
  EXPECT_EQ(gain->declared, 1);
  EXPECT_EQ(gain->loaded, 0);
  EXPECT_EQ(gain->type, orrery::kDynVarFloat);
  EXPECT_EQ(gain->option, 7);
  const orrery::DynVar* on = gain->next;
  ASSERT_NE(on, nullptr);
  EXPECT_EQ(flag, &on->bool_value);
  EXPECT_EQ(on->type, orrery::kDynVarBool);
  EXPECT_EQ(on->bool_value, 1);
  EXPECT_EQ(on->initboolval, 1);
  EXPECT_EQ(on->option, 3);
  EXPECT_EQ(on->next, nullptr);
  EXPECT_EQ(list.Find("On"), on);
  EXPECT_EQ(list.Find("on"), nullptr);  // names are case-sensitive
}

TEST(DynVarDeclare, RedeclaringKeepsTheNodeAndResetsItsValue) {
  DynVarList list;
  float* x = list.DeclareFloat("x", 0, 1, 0.5f, 0, 1, 0);
  list.DeclareFloat("y", 0, 1, 0.5f, 0, 1, 0);
  *x = 0.9f;  // the host moved it
  list.Clear();
  EXPECT_EQ(list.Head()->declared, 0);
  EXPECT_EQ(list.DeclareFloat("x", 0, 2, 1.5f, 0, 1, 0), x);
  EXPECT_EQ(*x, 1.5f);
  EXPECT_EQ(list.Head()->declared, 1);
  EXPECT_EQ(list.Head()->next->declared, 0);
  int32_t* flag = list.DeclareBool("x", 1, 0);  // a float turned bool stays in place
  EXPECT_EQ(list.Head()->type, orrery::kDynVarBool);
  EXPECT_EQ(flag, &list.Head()->bool_value);
  EXPECT_STREQ(list.Head()->next->name, "y");
}

TEST(DynVarDeclare, LongNamesAreCutToOneNode) {
  DynVarList list;
  const std::string long_name(300, 'n');
  float* first = list.DeclareFloat(long_name.c_str(), 0, 1, 0, 0, 1, 0);
  EXPECT_EQ(list.DeclareFloat(long_name.c_str(), 0, 1, 0, 0, 1, 0), first);
  EXPECT_EQ(std::string(list.Head()->name), long_name.substr(0, 255));
  EXPECT_EQ(list.Head()->next, nullptr);
  const std::string accented = std::string(254, 'a') + "\xC3\xA9";  // e-acute crosses byte 255
  list.DeclareBool(accented.c_str(), 0, 0);
  EXPECT_EQ(std::string(list.Find(accented.c_str())->name), std::string(254, 'a'));
}

TEST(DynVarSave, WritesDeclaredNodesInOrderWithTheSuffix) {
  DynVarList list;
  list.SetKeySuffix("_b");
  list.DeclareFloat("a", -1, 1, 0.5f, 0, 2, 0);
  list.DeclareFloat("skipped", 0, 1, 0, 0, 1, 0);
  list.DeclareBool("c", 1, 0);
  list.Clear();
  list.DeclareFloat("a", -1, 1, 0.5f, 0, 2, 0);
  list.DeclareBool("c", 1, 0);
  RecordingStore store;
  list.Save(store);
  const std::vector<std::string> expected = {
      "int dyn0version_b 2",        "string dyn0_b a",         "float dyn0min_b 0.000000",
      "float dyn0max_b 2.000000",   "float dyn0varmin_b -1.000000", "float dyn0varmax_b 1.000000",
      "float dyn0varinit_b 0.500000", "int dyn0type_b 0",      "int dyn0initboolval_b 0",
      "int dyn1version_b 2",        "string dyn1_b c",         "float dyn1min_b 0.000000",
      "float dyn1max_b 0.000000",   "float dyn1varmin_b 0.000000", "float dyn1varmax_b 0.000000",
      "float dyn1varinit_b 0.000000", "int dyn1type_b 1",      "int dyn1initboolval_b 1",
      "int n_dynvars_b 2"};
  EXPECT_EQ(store.log, expected);
}

TEST(DynVarLoad, ReadsKeysWithDefaultsAndOldListsAsFloats) {
  RecordingStore store;
  store.values = {{"n_dynvars", "3"}, {"dyn0", "old"},        {"dyn0type", "1"},
                  {"dyn1", "b"},      {"dyn1version", "2"},   {"dyn1type", "1"},
                  {"dyn1initboolval", "1"}, {"dyn2", "f"},    {"dyn2version", "2"},
                  {"dyn2varinit", "0.25"}};
  DynVarList list;
  list.DeclareFloat("stale", 0, 1, 0, 0, 1, 0);
  list.Load(store);
  const std::vector<std::string> first_reads(store.log.begin(), store.log.begin() + 9);
  EXPECT_EQ(first_reads, (std::vector<std::string>{"getint n_dynvars", "getstring dyn0", "getfloat dyn0min",
                                                   "getfloat dyn0max", "getfloat dyn0varmin",
                                                   "getfloat dyn0varmax", "getfloat dyn0varinit",
                                                   "getint dyn0version", "getint dyn0vartype"}));
  EXPECT_EQ(list.Find("stale")->declared, 0);
  const orrery::DynVar* old = list.Find("old");
  EXPECT_EQ(old->type, orrery::kDynVarFloat);  // no version: a float whatever "type" says
  EXPECT_EQ(old->min, 0.0f);
  EXPECT_EQ(old->max, 1.0f);
  EXPECT_EQ(old->varmax, 1.0f);
  EXPECT_EQ(old->value, 0.5f);
  EXPECT_EQ(list.Find("b")->type, orrery::kDynVarBool);
  EXPECT_EQ(list.Find("b")->bool_value, 1);
  EXPECT_EQ(list.Find("f")->value, 0.25f);
}

TEST(DynVarLoad, AHugeCountIsBounded) {
  RecordingStore store;
  store.values = {{"n_dynvars", "2000000000"}};
  DynVarList list;
  list.Load(store);
  EXPECT_STREQ(list.Head()->name, "");  // every index falls back to the same empty name
  EXPECT_EQ(list.Head()->next, nullptr);
  EXPECT_LE(store.log.size(), 1u + 8u * DynVarList::kMaxLoadCount);
}

TEST(DynVarLoad, RoundTripsThroughConfigData) {
  XmlDocument doc;
  ConfigData config(&doc);
  DynVarList saved;
  saved.SetKeySuffix("2");
  saved.DeclareFloat("Keycolor", 0, 1, 0.3f, 0, 127, 5);
  saved.DeclareBool("Invert", 1, 0);
  config.BeginWriting();
  saved.Save(config);
  DynVarList loaded;
  loaded.SetKeySuffix("2");
  loaded.Load(config);
  const orrery::DynVar* key = loaded.Find("Keycolor");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->value, 0.3f);
  EXPECT_EQ(key->max, 127.0f);
  EXPECT_EQ(key->option, 0);  // loads declare with option 0
  EXPECT_EQ(loaded.Find("Invert")->bool_value, 1);
  DynVarList other_suffix;
  other_suffix.Load(config);
  EXPECT_EQ(other_suffix.Head(), nullptr);
}

TEST(DynVarXml, ExportsAndImportsCurrentValues) {
  XmlDocument doc;
  DynVarList list;
  float* x = list.DeclareFloat("x <1>", 0, 1, 0.5f, 0, 1, 0);
  int32_t* on = list.DeclareBool("on", 0, 0);
  list.DeclareFloat("undeclared", 0, 1, 0.5f, 0, 1, 0);
  list.Clear();
  list.DeclareFloat("x <1>", 0, 1, 0.5f, 0, 1, 0);
  list.DeclareBool("on", 0, 0);
  *x = 0.1234567f;
  *on = 1;
  EXPECT_EQ(list.ExportXml(doc), 1);
  EXPECT_EQ(doc.GetDoc(),
            "<Settings>\r\n<Dynvars>\r\n<var name=\"x &lt;1&gt;\" type=\"float\">0.123457</var>\r\n"
            "<var name=\"on\" type=\"bool\">1</var>\r\n</Dynvars>\r\n</Settings>\r\n");
  *x = 0.0f;
  *on = 0;
  list.DeclareFloat("absent", 0, 1, 0.75f, 0, 1, 0);
  EXPECT_EQ(list.ImportXml(doc), 1);
  EXPECT_EQ(*x, 0.123457f);
  EXPECT_EQ(*on, 1);
  EXPECT_EQ(list.Find("x <1>")->loaded, 1);
  EXPECT_EQ(list.Find("absent")->loaded, 0);
  EXPECT_EQ(list.Find("absent")->value, 0.75f);
}

TEST(DynVarXml, ImportReadsLikeScanfAndNeedsDynvars) {
  DynVarList list;
  float* x = list.DeclareFloat("x", 0, 1, 0.5f, 0, 1, 0);
  int32_t* on = list.DeclareBool("on", 0, 0);
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<Settings><ConfigData/></Settings>"));
  EXPECT_EQ(list.ImportXml(doc), 0);
  EXPECT_EQ(list.Head()->loaded, 0);
  ASSERT_TRUE(doc.SetDoc(
      "<Settings><Dynvars><var name='x'>junk</var><var name='on'>0x10</var></Dynvars></Settings>"));
  EXPECT_EQ(list.ImportXml(doc), 1);
  EXPECT_EQ(*x, 0.5f);  // no number: the value stays
  EXPECT_EQ(list.Head()->loaded, 1);
  EXPECT_EQ(*on, 16);
}

}  // namespace
}  // namespace nimbo
