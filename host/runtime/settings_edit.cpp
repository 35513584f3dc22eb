#include "runtime/settings_edit.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "runtime/host_error.h"
#include "framework/config_data.h"
#include "framework/xml_document.h"

namespace nimbo::host {
namespace {

// Positions `doc` inside the first "Settings"/`block`, before its first
// element. False when missing.
bool EnterBlock(XmlDocument& doc, const char* block) {
  doc.ResetPos();
  if (!doc.FindElem(kSettingsElem) || !doc.FindChildElem(block)) return false;
  return doc.IntoElem() && doc.IntoElem();  // block is the main element, then the parent
}

std::string Trim(const std::string& text) {
  const size_t b = text.find_first_not_of(" \t");
  const size_t e = text.find_last_not_of(" \t");
  return b == std::string::npos ? "" : text.substr(b, e - b + 1);
}

bool ParseInt(const std::string& raw, int32_t* out) {
  const std::string text = Trim(raw);
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  if (begin == end) return false;
  int base = 10;
  if (text[0] == '#') {
    begin += 1;
    base = 16;
  } else if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    begin += 2;
    base = 16;
  }
  if (base == 16) {
    // Colours and masks: any 32-bit pattern, stored as the signed word.
    uint32_t value = 0;
    auto [ptr, ec] = std::from_chars(begin, end, value, 16);
    if (ec != std::errc() || ptr != end || begin == end) return false;
    *out = static_cast<int32_t>(value);
    return true;
  }
  if (*begin == '+') ++begin;
  int32_t value = 0;
  auto [ptr, ec] = std::from_chars(begin, end, value, 10);
  if (ec != std::errc() || ptr != end) return false;
  *out = value;
  return true;
}

bool ParseFloat(const std::string& raw, float* out) {
  const std::string text = Trim(raw);
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  double value = 0;
  auto [ptr, ec] = std::from_chars(begin, end, value);
  if (ec != std::errc() || ptr != end || !std::isfinite(value) ||
      std::fabs(value) > double(std::numeric_limits<float>::max())) {
    return false;
  }
  *out = float(value);
  return true;
}

}  // namespace

std::vector<SettingEntry> ReadSettingEntries(const std::string& document_text) {
  std::vector<SettingEntry> entries;
  XmlDocument doc;
  if (!doc.SetDoc(document_text) || !EnterBlock(doc, kConfigDataElem)) return entries;
  while (doc.FindElem("data")) {
    entries.push_back({doc.GetAttrib("name"), doc.GetAttrib("type"), doc.GetData()});
  }
  return entries;
}

std::string BuildSettingsDocument(const std::vector<SettingEntry>& entries) {
  XmlDocument doc;
  doc.AddElem(kSettingsElem);
  doc.AddChildElem(kConfigDataElem);
  doc.IntoElem();
  for (const SettingEntry& entry : entries) {
    doc.AddChildElem("data", entry.value);
    doc.SetChildAttrib("name", entry.key);
    doc.SetChildAttrib("type", entry.type);
  }
  return doc.GetDoc();
}

std::string ParseSettingValue(const std::string& key, const std::string& type, const std::string& text) {
  if (type == "int") {
    int32_t value = 0;
    if (!ParseInt(text, &value))
      throw HostError("--set " + key + "=" + text + ": " + Quoted(key) +
                      " is an int (a whole number, or hex like 0xRRGGBB)");
    return FormatInt(value);
  }
  if (type == "float") {
    float value = 0;
    if (!ParseFloat(text, &value))
      throw HostError("--set " + key + "=" + text + ": " + Quoted(key) + " is a float (a decimal number)");
    return FormatFloat(value);
  }
  return text;  // string and path take any text
}

void ApplySetting(std::vector<SettingEntry>& entries, const std::string& assignment, const std::string& effect) {
  const size_t eq = assignment.find('=');
  if (eq == std::string::npos || eq == 0)
    throw HostError("--set " + assignment + ": expected KEY=VALUE");
  const std::string key = assignment.substr(0, eq);
  const std::string value = assignment.substr(eq + 1);
  for (SettingEntry& entry : entries) {
    if (entry.key == key) {
      entry.value = ParseSettingValue(key, entry.type, value);
      return;
    }
  }
  std::string valid;
  for (const SettingEntry& entry : entries) valid += (valid.empty() ? "" : ", ") + entry.key;
  if (valid.empty()) throw HostError("--set " + assignment + ": " + effect + " has no settings");
  throw HostError("--set " + assignment + ": " + effect + " has no setting " + Quoted(key) + "; valid keys: " + valid);
}

std::vector<DynVarValue> ReadDynVarValues(const std::string& document_text) {
  std::vector<DynVarValue> values;
  XmlDocument doc;
  if (!doc.SetDoc(document_text) || !EnterBlock(doc, "Dynvars")) return values;
  while (doc.FindElem("var")) values.push_back({doc.GetAttrib("name"), doc.GetAttrib("type"), doc.GetData()});
  return values;
}

std::string AddDynVarValues(const std::string& document_text, const std::vector<DynVarValue>& values) {
  XmlDocument doc;
  if (!doc.SetDoc(document_text)) return document_text;
  doc.ResetPos();
  if (!doc.FindElem(kSettingsElem) && !doc.AddElem(kSettingsElem)) return document_text;
  doc.ResetChildPos();
  while (doc.FindChildElem()) {
  }  // after the last block
  doc.AddChildElem("Dynvars");
  doc.IntoElem();
  for (const DynVarValue& v : values) {
    doc.AddChildElem("var", v.value);
    doc.SetChildAttrib("name", v.name);
    doc.SetChildAttrib("type", v.type);
  }
  return doc.GetDoc();
}

}  // namespace nimbo::host
