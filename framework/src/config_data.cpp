// ConfigData: lookup and writing of typed values; locale-independent number texts.
#include "framework/config_data.h"

#include <locale.h>

#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace nimbo {
namespace {

constexpr char kDataElem[] = "data";
constexpr char kNameAttrib[] = "name";
constexpr char kTypeAttrib[] = "type";
constexpr char kMarkerKey[] = "!";

bool IsMarker(const char* key) { return std::strcmp(key, kMarkerKey) == 0; }

// Created once and never freed: strtof_l needs a C locale object that lives
// as long as any thread may read settings.
locale_t CLocale() {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", locale_t{});
  return c_locale;
}

}  // namespace

// ---------------------------------------------------------------------------
// Number texts
// ---------------------------------------------------------------------------

std::string FormatInt(int32_t value) {
  char buffer[16];
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

// to_chars with a precision rounds like printf("%f") on the double, but never
// looks at the locale. The longest float needs 47 characters.
std::string FormatFloat(float value) {
  char buffer[64];
  const auto result =
      std::to_chars(buffer, buffer + sizeof buffer, static_cast<double>(value), std::chars_format::fixed, 6);
  return std::string(buffer, result.ptr);
}

std::optional<int32_t> ScanInt(const std::string& text, int base) {
  const char* begin = text.c_str();
  char* end = nullptr;
  const long long value = std::strtoll(begin, &end, base);
  if (end == begin) return std::nullopt;
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

std::optional<float> ScanFloat(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  const locale_t c_locale = CLocale();
  const float value = c_locale ? strtof_l(begin, &end, c_locale) : std::strtof(begin, &end);
  if (end == begin) return std::nullopt;
  return value;
}

// ---------------------------------------------------------------------------
// The store
// ---------------------------------------------------------------------------

bool ConfigData::AddIgnoredKey(const char* key) {
  if (!key || ignored_key_count_ == kMaxIgnoredKeys) return false;
  ignored_keys_[ignored_key_count_++] = key;
  return true;
}

bool ConfigData::IsIgnored(const char* key) const {
  if (IsMarker(key)) return true;
  for (int32_t i = 0; i < ignored_key_count_; ++i) {
    if (ignored_keys_[i] == key) return true;
  }
  return false;
}

// Leaves the document inside the first "ConfigData" of the first "Settings".
bool ConfigData::EnterBlock() {
  doc_->ResetPos();
  return doc_->FindElem(kSettingsElem) && doc_->FindChildElem(kConfigDataElem) && doc_->IntoElem();
}

bool ConfigData::HasBlock() { return Index().has_block; }

// One walk over the block's "data" children in document order; the first
// element of each name stays (try_emplace keeps it), as the lookup walk
// would stop there. An element without a "name" attribute matches no key.
const ConfigData::KeyIndex& ConfigData::Index() {
  if (index_.revision == doc_->Revision()) return index_;
  index_.keys.clear();
  index_.position.clear();
  index_.first_of.assign(doc_->ElementCount() + 1, 0);
  index_.decoded.clear();
  index_.last = 0;
  index_.has_block = EnterBlock();
  if (index_.has_block) {
    index_.position.reserve(doc_->ElementCount());
    while (doc_->FindChildElem(kDataElem)) {
      bool named = false;
      std::string_view name = doc_->GetChildAttribText(kNameAttrib, &named);
      if (!named) continue;
      if (name.find('&') != std::string_view::npos) name = index_.decoded.emplace_back(XmlDocument::Decode(name));
      const int32_t elem = doc_->ChildHandle();
      const auto [at, added] = index_.position.try_emplace(name, int32_t(index_.keys.size()));
      if (added) index_.keys.push_back({name, elem});
      index_.first_of[size_t(elem)] = index_.keys[size_t(at->second)].elem;
    }
  }
  index_.revision = doc_->Revision();
  return index_;
}

int32_t ConfigData::FindElement(const char* key) {
  if (!key) return 0;
  const KeyIndex& index = Index();
  const std::string_view wanted(key);
  size_t at = index.last;
  if (at >= index.keys.size() || index.keys[at].name != wanted) {
    const auto found = index.position.find(wanted);
    if (found == index.position.end()) return 0;
    at = size_t(found->second);
  }
  index_.last = at + 1;
  return index.keys[at].elem;
}

int32_t ConfigData::FirstElementOf(int32_t handle) {
  const KeyIndex& index = Index();
  return handle > 0 && size_t(handle) < index.first_of.size() ? index.first_of[size_t(handle)] : 0;
}

std::optional<std::string> ConfigData::Find(const char* key) {
  const int32_t elem = FindElement(key);
  if (!elem) return std::nullopt;
  return doc_->DataAt(elem);
}

int32_t ConfigData::Write(const char* key, std::string_view text, const char* type) {
  if (!key) return 0;
  if (IsIgnored(key)) return 1;
  if (!EnterBlock() || !doc_->AddChildElem(kDataElem, text)) return 0;
  doc_->SetChildAttrib(kNameAttrib, key);
  doc_->SetChildAttrib(kTypeAttrib, type);
  return 1;
}

void ConfigData::BeginWriting() {
  doc_->ResetPos();
  if (!doc_->FindElem(kSettingsElem) && !doc_->AddElem(kSettingsElem)) return;
  if (doc_->InsertChildElem(kConfigDataElem)) doc_->IntoElem();
}

int32_t ConfigData::GetInt(const char* key, int32_t def) {
  if (key && IsMarker(key)) return 1;
  const auto text = Find(key);
  return text ? ScanInt(*text, 10).value_or(0) : def;
}

float ConfigData::GetFloat(const char* key, float def) {
  const auto text = Find(key);
  return text ? ScanFloat(*text).value_or(0.0f) : def;
}

const char* ConfigData::GetString(const char* key, const char* def) {
  auto text = Find(key);
  if (!text) return def;
  string_buffer_ = std::move(*text);
  return string_buffer_.c_str();
}

std::string ConfigData::GetPath(const char* key, const char* def, bool* used_default) {
  auto text = Find(key);
  if (used_default) *used_default = !text;
  return text ? std::move(*text) : std::string(def ? def : "");
}

std::optional<std::string> WalkLookup(XmlDocument& doc, const char* key) {
  doc.ResetPos();
  if (!key || !doc.FindElem(kSettingsElem) || !doc.FindChildElem(kConfigDataElem) || !doc.IntoElem()) return std::nullopt;
  while (doc.FindChildElem(kDataElem)) {
    bool named = false;
    if (doc.GetChildAttrib(kNameAttrib, &named) == key && named) return doc.GetChildData();
  }
  return std::nullopt;
}

int32_t ConfigData::SetInt(const char* key, int32_t value) { return Write(key, FormatInt(value), "int"); }

int32_t ConfigData::SetFloat(const char* key, float value) { return Write(key, FormatFloat(value), "float"); }

int32_t ConfigData::SetString(const char* key, const char* value) { return Write(key, value ? value : "", "string"); }

int32_t ConfigData::SetPath(const char* key, const char* path) { return Write(key, path ? path : "", "path"); }

}  // namespace nimbo
