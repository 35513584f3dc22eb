// libFuzzer target for settings documents: the XML parser, its readers, the
// configuration store and the dynamic-variable list over arbitrary bytes.
//
// Beyond "no crash, no hang, no read past the buffer" it checks what must hold
// for every input: the store's key index answers what a plain walk of the
// block answers, values written through the store read back, and the
// written document parses again to the same elements.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "framework/config_data.h"
#include "framework/dynvar_list.h"
#include "framework/xml_document.h"
#include "fuzz_check.h"

namespace {

// Visits every element depth first with the navigation calls and answers
// what it read: names, data and two attributes, with the nesting.
std::string WalkAll(nimbo::XmlDocument& doc) {
  std::string seen;
  doc.ResetPos();
  while (true) {
    if (doc.FindElem()) {
      seen.append("<").append(doc.GetTagName()).append("|").append(doc.GetData());
      seen.append("|").append(doc.GetAttrib("name")).append("|").append(doc.GetAttrib("type"));
      while (doc.FindChildElem()) {
        doc.GetChildData();
        doc.GetChildAttrib("name");
      }
      doc.ResetChildPos();
      FUZZ_CHECK(doc.IntoElem());
    } else if (doc.OutOfElem()) {
      seen.append(">");
    } else {
      return seen;
    }
  }
}

// The "name" attributes of the first elements, depth first: the keys the
// index is asked for, beside a few fixed ones.
std::vector<std::string> NamesIn(nimbo::XmlDocument& doc) {
  std::vector<std::string> names = {"!", "a", "f", "s", "", "A"};
  doc.ResetPos();
  while (names.size() < 64) {
    if (doc.FindElem()) {
      bool found = false;
      std::string name = doc.GetAttrib("name", &found);
      if (found) names.push_back(std::move(name));
      doc.ResetChildPos();
      doc.IntoElem();
    } else if (!doc.OutOfElem()) {
      break;
    }
  }
  return names;
}

void ExpectIndexAgrees(nimbo::ConfigData& config, nimbo::XmlDocument& doc) {
  for (const std::string& key : NamesIn(doc)) {
    FUZZ_CHECK(config.Find(key.c_str()) == nimbo::WalkLookup(doc, key.c_str()));
  }
}

void ReadStore(nimbo::ConfigData& config) {
  for (const char* key : {"!", "a", "dyn0", "n_dynvars", ""}) {
    config.GetInt(key, 3);
    config.GetFloat(key, 0.5f);
    config.GetString(key, "");
    bool used_default = false;
    config.GetPath(key, "", &used_default);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  nimbo::XmlDocument doc;
  const bool parsed = doc.SetDoc(std::string_view(reinterpret_cast<const char*>(data), size));
  FUZZ_CHECK(parsed == doc.GetError().empty());
  FUZZ_CHECK(parsed == !WalkAll(doc).empty());

  nimbo::ConfigData config(&doc);
  ExpectIndexAgrees(config, doc);
  ReadStore(config);
  nimbo::DynVarList list;
  list.Load(config);
  list.ImportXml(doc);

  // Writes (into the parsed document, or the empty one a failure leaves) must
  // read back, keep it well formed and keep its index equal to what parsing
  // the written text gives.
  config.BeginWriting();
  FUZZ_CHECK(config.SetInt("a", -7) == 1);
  FUZZ_CHECK(config.SetFloat("f", 0.25f) == 1);
  FUZZ_CHECK(config.SetString("s", "<&>\"'") == 1);
  FUZZ_CHECK(config.GetInt("a", 0) == -7);
  FUZZ_CHECK(config.GetFloat("f", 0.0f) == 0.25f);
  FUZZ_CHECK(std::string_view(config.GetString("s", "")) == "<&>\"'");
  ExpectIndexAgrees(config, doc);
  float* x = list.DeclareFloat("x", 0.0f, 1.0f, 0.5f, 0.0f, 1.0f, 0);
  list.Save(config);
  list.ExportXml(doc);
  *x = 2.0f;
  FUZZ_CHECK(list.ImportXml(doc) == 1);
  FUZZ_CHECK(*x == 0.5f && list.Find("x")->loaded == 1);

  nimbo::XmlDocument again;
  FUZZ_CHECK(again.SetDoc(doc.GetDoc()));
  FUZZ_CHECK(WalkAll(again) == WalkAll(doc));
  return 0;
}
