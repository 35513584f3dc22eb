// DynVarList: an effect's dynamic variables, the named floats and bools that
// the host automates.
//
// The list is singly linked in order of first declaration and keeps nodes that
// are no longer declared, so a variable declared again keeps its node (and
// its address, which the effect and the host hold). Declaring resets the
// current value to the initial one, deliberately. Only declared nodes are
// saved and exported.
//
// Two persisted forms:
//  - Save/Load: the declarations (names, ranges, initial values) as store keys
//    "dyn%i...%s" and "n_dynvars%s", %s being the key suffix;
//  - ExportXml/ImportXml: the current values as "Settings"/"Dynvars"/"var".
//
// Names longer than 255 bytes are cut to 255 (never inside a UTF-8 sequence)
// before they are compared or stored.
#pragma once

#include <cstdint>
#include <string>

#include "orrery/config_store.h"
#include "orrery/dynvar.h"
#include "framework/xml_document.h"

namespace nimbo {

class DynVarList {
 public:
  // Load declares at most this many variables, whatever count a store claims.
  static constexpr int32_t kMaxLoadCount = 1024;

  DynVarList() = default;
  DynVarList(const DynVarList&) = delete;
  DynVarList& operator=(const DynVarList&) = delete;
  ~DynVarList();

  void SetKeySuffix(const char* suffix) { key_suffix_ = suffix ? suffix : ""; }
  // Marks every node undeclared; frees nothing.
  void Clear();
  // Answers the node's value (float) or bool value (bool), valid for the
  // list's life.
  float* DeclareFloat(const char* name, float varmin, float varmax, float varinit, float min, float max,
                      int32_t option);
  int32_t* DeclareBool(const char* name, int32_t initial, int32_t option);
  orrery::DynVar* Find(const char* name) const;
  orrery::DynVar* Head() const { return head_; }

  void Save(orrery::ConfigStore& store) const;
  // Clears the list and declares what the store holds.
  void Load(orrery::ConfigStore& store);
  // Adds a "Dynvars" block (first in "Settings", created when missing) with
  // the current values. Answers 1.
  int32_t ExportXml(XmlDocument& doc) const;
  // Reads current values from the first "Settings"/"Dynvars"; 0 when missing.
  int32_t ImportXml(XmlDocument& doc);

 private:
  orrery::DynVar* Declare(const char* name);
  std::string Key(int32_t index, const char* field) const;

  orrery::DynVar* head_ = nullptr;
  std::string key_suffix_;
};

}  // namespace nimbo
