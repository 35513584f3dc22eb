// DynVarList: declaration, the persisted keys and the XML form of current values.
#include "framework/dynvar_list.h"

#include <gtest/gtest.h>

#include <string>

#include "framework/config_data.h"

namespace nimbo {
namespace {

// The fields of a node, floats then integers.
std::string Fields(const orrery::DynVar& v) {
  std::string fields;
  for (float f : {v.value, v.varmin, v.varmax, v.varinit, v.min, v.max}) fields += FormatFloat(f).substr(0, 4) + " ";
  for (int32_t i : {v.host_handle, v.declared, v.type, v.bool_value, v.initboolval, v.loaded, v.option}) {
    fields += std::to_string(i) + " ";
  }
  return fields;
}

TEST(DynVarDeclare, SetsTheFieldsAndKeepsNodesInPlace) {
  DynVarList list;
  float* gain = list.DeclareFloat("Gain", -1.0f, 2.0f, 0.25f, 0.0f, 10.0f, 7);
  int32_t* on = list.DeclareBool("On", 1, 3);
  EXPECT_EQ(Fields(*list.Head()), "0.25 -1.0 2.00 0.25 0.00 10.0 -1 1 0 0 0 0 7 ");
  EXPECT_EQ(Fields(*list.Find("On")), "0.00 0.00 0.00 0.00 0.00 0.00 -1 1 1 1 1 0 3 ");
  EXPECT_EQ(on, &list.Head()->next->bool_value);
  EXPECT_EQ(list.Find("on"), nullptr);  // names are case-sensitive
  *gain = 0.9f;                         // the host moved it
  list.Clear();
  EXPECT_EQ(list.Head()->declared + list.Head()->next->declared, 0);
  EXPECT_EQ(list.DeclareFloat("Gain", 0, 2, 1.5f, 0, 1, 0), gain);  // re-declaring resets the value
  EXPECT_EQ(Fields(*list.Head()), "1.50 0.00 2.00 1.50 0.00 1.00 -1 1 0 0 0 0 0 ");
  EXPECT_EQ(list.DeclareBool("Gain", 0, 0), &list.Head()->bool_value);  // turned bool in place
  EXPECT_EQ(list.Head()->type + list.Head()->next->declared, orrery::kDynVarBool);
  const std::string long_name(300, 'n'), accented = std::string(254, 'a') + "\xC3\xA9";  // e-acute across byte 255
  EXPECT_EQ(list.DeclareFloat(long_name.c_str(), 0, 1, 0, 0, 1, 0),
            list.DeclareFloat(long_name.c_str(), 0, 1, 0, 0, 1, 0));
  EXPECT_NE(list.Find(long_name.substr(0, 255).c_str()), nullptr);
  list.DeclareBool(accented.c_str(), 0, 0);
  EXPECT_EQ(list.Find(accented.c_str())->name, std::string(254, 'a'));
}

TEST(DynVarStore, SavesDeclaredNodesInOrderWithTheSuffixAndLoadsThem) {
  DynVarList list;
  list.SetKeySuffix("_b");
  list.DeclareFloat("a", -1, 1, 0.5f, 0, 2, 0);
  list.DeclareFloat("skipped", 0, 1, 0, 0, 1, 0);
  list.DeclareBool("c", 1, 0);
  list.Clear();
  list.DeclareFloat("a", -1, 1, 0.5f, 0, 2, 0);
  list.DeclareBool("c", 1, 0);
  XmlDocument doc;
  ConfigData store(&doc);
  store.BeginWriting();
  list.Save(store);
  std::string entries;  // the store's values in writing order
  for (doc.ResetPos(), doc.FindChildElem("ConfigData"), doc.IntoElem(); doc.FindChildElem("data");)
    entries += doc.GetChildAttrib("name") + "=" + doc.GetChildData() + " ";
  EXPECT_EQ(entries,
            "dyn0version_b=2 dyn0_b=a dyn0min_b=0.000000 dyn0max_b=2.000000 dyn0varmin_b=-1.000000 "
            "dyn0varmax_b=1.000000 dyn0varinit_b=0.500000 dyn0type_b=0 dyn0initboolval_b=0 "
            "dyn1version_b=2 dyn1_b=c dyn1min_b=0.000000 dyn1max_b=0.000000 dyn1varmin_b=0.000000 "
            "dyn1varmax_b=0.000000 dyn1varinit_b=0.000000 dyn1type_b=1 dyn1initboolval_b=1 n_dynvars_b=2 ");
  DynVarList loaded;
  loaded.SetKeySuffix("_b");
  loaded.Load(store);
  EXPECT_EQ(Fields(*loaded.Find("a")), "0.50 -1.0 1.00 0.50 0.00 2.00 -1 1 0 0 0 0 0 ");
  EXPECT_EQ(Fields(*loaded.Find("c")), "0.00 0.00 0.00 0.00 0.00 0.00 -1 1 1 1 1 0 0 ");
  EXPECT_EQ(loaded.Head()->next->next, nullptr);
}

TEST(DynVarStore, LoadTakesDefaultsAndOldListsAsFloats) {
  XmlDocument doc;
  ASSERT_TRUE(
      doc.SetDoc("<Settings><ConfigData><data name='n_dynvars'>3</data><data name='dyn0'>old</data>"
                 "<data name='dyn0type'>1</data><data name='dyn1version'>2</data><data name='dyn1type'>1</data>"
                 "<data name='dyn2'>f</data><data name='dyn2version'>2</data><data name='dyn2varinit'>0.25</data>"
                 "</ConfigData></Settings>"));
  ConfigData store(&doc);
  DynVarList list;
  list.DeclareFloat("stale", 0, 1, 0, 0, 1, 0);
  list.Load(store);
  EXPECT_EQ(list.Find("stale")->declared, 0);
  EXPECT_EQ(Fields(*list.Find("old")), "0.50 0.00 1.00 0.50 0.00 1.00 -1 1 0 0 0 0 0 ");  // no version: float
  EXPECT_EQ(Fields(*list.Find("")), "0.00 0.00 0.00 0.00 0.00 0.00 -1 1 1 0 0 0 0 ");
  EXPECT_EQ(list.Find("f")->value, 0.25f);
  ASSERT_TRUE(doc.SetDoc("<Settings><ConfigData><data name='n_dynvars'>2000000000</data></ConfigData></Settings>"));
  list.Load(store);  // a count from a file is bounded; every index is the same empty name
  EXPECT_EQ(list.Find("")->type, orrery::kDynVarFloat);
}

TEST(DynVarXml, ExportsAndImportsCurrentValuesReadLikeScanf) {
  XmlDocument doc;
  DynVarList list;
  list.DeclareFloat("undeclared", 0, 1, 0.5f, 0, 1, 0);
  list.Clear();
  float* x = list.DeclareFloat("x <1>", 0, 1, 0.5f, 0, 1, 0);
  int32_t* on = list.DeclareBool("on", 0, 0);
  *x = 0.1234567f;
  *on = 1;
  EXPECT_EQ(list.ExportXml(doc), 1);
  EXPECT_EQ(doc.GetDoc(),
            "<Settings>\r\n<Dynvars>\r\n<var name=\"x &lt;1&gt;\" type=\"float\">0.123457</var>\r\n"
            "<var name=\"on\" type=\"bool\">1</var>\r\n</Dynvars>\r\n</Settings>\r\n");
  *x = 0.0f;
  *on = 0;
  list.DeclareFloat("", 0, 1, 0.75f, 0, 1, 0);
  EXPECT_EQ(list.ImportXml(doc), 1);
  EXPECT_EQ(*x, 0.123457f);
  EXPECT_EQ(*on, 1);
  EXPECT_EQ(list.Find("x <1>")->loaded + list.Find("")->loaded, 1);
  EXPECT_EQ(list.Find("")->value, 0.75f);
  ASSERT_TRUE(doc.SetDoc("<Settings><ConfigData/></Settings>"));
  EXPECT_EQ(list.ImportXml(doc), 0);
  ASSERT_TRUE(
      doc.SetDoc("<Settings><Dynvars><var>1</var><var name='x &lt;1&gt;'>junk</var><var name='on'>0x10</var>"
                 "</Dynvars></Settings>"));
  EXPECT_EQ(list.ImportXml(doc), 1);
  EXPECT_EQ(*x, 0.123457f);             // no number: the value stays
  EXPECT_EQ(*on, 16);                   // "%i" takes C prefixes
  EXPECT_EQ(list.Find("")->loaded, 0);  // a "var" without a name matches no variable
}

}  // namespace
}  // namespace nimbo
