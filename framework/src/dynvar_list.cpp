// DynVarList: declaration, store keys and the XML form of dynamic variables.
#include "framework/dynvar_list.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "framework/config_data.h"

namespace nimbo {
namespace {

using orrery::DynVar;

constexpr char kDynvarsElem[] = "Dynvars";
constexpr char kVarElem[] = "var";
// Lists saved before "dyn%iversion" existed load every variable as a float.
constexpr int32_t kTypedVersion = 2;

// The name as a node stores it: at most 255 bytes, cut before a UTF-8
// sequence rather than inside it.
std::string StoredName(const char* name) {
  constexpr size_t kMaxName = sizeof(DynVar::name) - 1;
  if (!name) return {};
  size_t length = strnlen(name, kMaxName + 1);
  if (length > kMaxName) {
    length = kMaxName;
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) --length;
  }
  return std::string(name, length);
}

}  // namespace

DynVarList::~DynVarList() {
  while (head_) delete std::exchange(head_, head_->next);
}

void DynVarList::Clear() {
  for (DynVar* v = head_; v; v = v->next) v->declared = 0;
}

DynVar* DynVarList::Find(const char* name) const {
  const std::string stored = StoredName(name);
  for (DynVar* v = head_; v; v = v->next) {
    if (stored == v->name) return v;
  }
  return nullptr;
}

// The node named `name`, appended when new; marked declared either way.
DynVar* DynVarList::Declare(const char* name) {
  const std::string stored = StoredName(name);
  DynVar** link = &head_;
  for (; *link; link = &(*link)->next) {
    if (stored == (*link)->name) break;
  }
  if (!*link) {
    *link = new DynVar{};
    std::memcpy((*link)->name, stored.c_str(), stored.size() + 1);
    (*link)->host_handle = -1;
  }
  (*link)->declared = 1;
  return *link;
}

float* DynVarList::DeclareFloat(const char* name, float varmin, float varmax, float varinit, float min, float max,
                                int32_t option) {
  DynVar* v = Declare(name);
  v->type = orrery::kDynVarFloat;
  v->varmin = varmin;
  v->varmax = varmax;
  v->varinit = varinit;
  v->min = min;
  v->max = max;
  v->option = option;
  v->value = varinit;
  return &v->value;
}

int32_t* DynVarList::DeclareBool(const char* name, int32_t initial, int32_t option) {
  DynVar* v = Declare(name);
  v->type = orrery::kDynVarBool;
  v->initboolval = initial;
  v->bool_value = initial;
  v->option = option;
  return &v->bool_value;
}

std::string DynVarList::Key(int32_t index, const char* field) const {
  return "dyn" + std::to_string(index) + field + key_suffix_;
}

void DynVarList::Save(orrery::ConfigStore& store) const {
  int32_t k = 0;
  for (const DynVar* v = head_; v; v = v->next) {
    if (!v->declared) continue;
    store.SetInt(Key(k, "version").c_str(), kTypedVersion);
    store.SetString(Key(k, "").c_str(), v->name);
    store.SetFloat(Key(k, "min").c_str(), v->min);
    store.SetFloat(Key(k, "max").c_str(), v->max);
    store.SetFloat(Key(k, "varmin").c_str(), v->varmin);
    store.SetFloat(Key(k, "varmax").c_str(), v->varmax);
    store.SetFloat(Key(k, "varinit").c_str(), v->varinit);
    store.SetInt(Key(k, "type").c_str(), v->type);
    store.SetInt(Key(k, "initboolval").c_str(), v->initboolval);
    ++k;
  }
  store.SetInt(("n_dynvars" + key_suffix_).c_str(), k);
}

void DynVarList::Load(orrery::ConfigStore& store) {
  Clear();
  // The count comes from a file: bound the work it can ask for.
  const int32_t count = std::min(store.GetInt(("n_dynvars" + key_suffix_).c_str(), 0), kMaxLoadCount);
  for (int32_t i = 0; i < count; ++i) {
    const std::string name = store.GetString(Key(i, "").c_str(), "");
    const float min = store.GetFloat(Key(i, "min").c_str(), 0.0f);
    const float max = store.GetFloat(Key(i, "max").c_str(), 1.0f);
    const float varmin = store.GetFloat(Key(i, "varmin").c_str(), 0.0f);
    const float varmax = store.GetFloat(Key(i, "varmax").c_str(), 1.0f);
    const float varinit = store.GetFloat(Key(i, "varinit").c_str(), 0.5f);
    const int32_t version = store.GetInt(Key(i, "version").c_str(), 0);
    int32_t type = orrery::kDynVarFloat;
    int32_t initbool = 0;
    if (version < kTypedVersion) {
      store.GetInt(Key(i, "vartype").c_str(), 0);  // read and ignored, as older hosts did
    } else {
      type = store.GetInt(Key(i, "type").c_str(), 0);
      initbool = store.GetInt(Key(i, "initboolval").c_str(), 0);
    }
    if (type == orrery::kDynVarFloat) {
      DeclareFloat(name.c_str(), varmin, varmax, varinit, min, max, 0);
    } else {
      DeclareBool(name.c_str(), initbool, 0);
    }
  }
}

int32_t DynVarList::ExportXml(XmlDocument& doc) const {
  doc.ResetPos();
  if (!doc.FindElem(kSettingsElem)) doc.AddElem(kSettingsElem);
  // First in "Settings", so that ImportXml finds the newest export.
  doc.InsertChildElem(kDynvarsElem);
  doc.IntoElem();
  for (const DynVar* v = head_; v; v = v->next) {
    if (!v->declared) continue;
    const bool is_float = v->type == orrery::kDynVarFloat;
    doc.AddChildElem(kVarElem, is_float ? FormatFloat(v->value) : FormatInt(v->bool_value));
    doc.SetChildAttrib("name", v->name);
    doc.SetChildAttrib("type", is_float ? "float" : "bool");
  }
  return 1;
}

int32_t DynVarList::ImportXml(XmlDocument& doc) {
  doc.ResetPos();
  if (!doc.FindElem(kSettingsElem) || !doc.FindChildElem(kDynvarsElem)) return 0;
  doc.IntoElem();
  for (DynVar* v = head_; v; v = v->next) {
    if (!v->declared) continue;
    doc.ResetChildPos();
    bool found = false;
    while (!found && doc.FindChildElem(kVarElem)) {
      bool named = false;
      found = doc.GetChildAttrib("name", &named) == v->name && named;
    }
    v->loaded = found ? 1 : 0;
    if (!found) continue;
    // As sscanf would: text that holds no number leaves the value as it was.
    const std::string text = doc.GetChildData();
    if (v->type == orrery::kDynVarFloat) {
      v->value = ScanFloat(text).value_or(v->value);
    } else {
      v->bool_value = ScanInt(text, 0).value_or(v->bool_value);
    }
  }
  return 1;
}

}  // namespace nimbo
