#include "runtime/settings_edit.h"

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

// Each index of `member` against its count as `entries` hold it: the count
// key's value (0 when the effect stores no such key), at most the index's
// limit, which is all the effect reads.
void CheckIndices(const std::vector<SettingEntry>& entries, const std::string& assignment, const IndexedKey& member) {
  for (size_t k = 0; k < member.indices.size(); ++k) {
    const std::string count_key = member.CountKey(k);
    std::string count_text = "0";
    for (const SettingEntry& entry : entries) {
      if (entry.key == count_key) {
        count_text = entry.value;
        break;
      }
    }
    const std::optional<int32_t> stored = ScanInt(count_text, 10);
    const int32_t limit = member.family->indices[k].limit;
    const int32_t count = stored ? (*stored < 0 ? 0 : (*stored > limit ? limit : *stored)) : 0;
    if (member.indices[k] < count) continue;
    const std::string read_as = stored && *stored > limit ? " (read as " + std::to_string(limit) + ")" : "";
    throw HostError("--set " + assignment + ": index " + std::to_string(member.indices[k]) + " of " +
                    Quoted(AssignedKey(assignment)) + " is at or beyond its count " + Quoted(count_key) + " = " +
                    count_text + read_as + "; set " + Quoted(count_key) + " earlier on the command line to use more");
  }
}

}  // namespace

const char* StoreTypeName(orrery::SettingType type) {
  switch (type) {
    case orrery::SettingType::kInt:
      return "int";
    case orrery::SettingType::kFloat:
      return "float";
    case orrery::SettingType::kPath:
      return "path";
    case orrery::SettingType::kString:
      break;
  }
  return "string";
}

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

std::string ParseSettingValue(const std::string& key, const std::string& type, const std::string& text,
                              const std::optional<ValueRange>& range) {
  if (type != "int" && type != "float") return text;  // string and path take any text
  const bool is_int = type == "int";
  const CheckedNumber checked = CheckTypedNumber(is_int, text, range);
  const std::string head = "--set " + key + "=" + text + ": " + Quoted(key);
  switch (checked.fault) {
    case ValueFault::kNone:
      return StoredText(is_int, checked.value);
    case ValueFault::kUnparsable:
      throw HostError(head + (is_int ? " is an int (a whole number, or hex like 0xRRGGBB)" : " is a float (a decimal number)"));
    case ValueFault::kOutOfRange:
    case ValueFault::kNotANumber:
    case ValueFault::kNotFinite:
      break;
  }
  if (checked.range) throw HostError(head + " takes values in " + RangeText(*checked.range));
  throw HostError(head + " takes a finite number");
}

std::string AssignedKey(const std::string& assignment) {
  const size_t eq = assignment.find('=');
  if (eq == std::string::npos || eq == 0) throw HostError("--set " + assignment + ": expected KEY=VALUE");
  return assignment.substr(0, eq);
}

void ApplySetting(std::vector<SettingEntry>& entries, const std::string& assignment, const std::string& effect,
                  const std::vector<SettingRecord>& described, const IndexedKeyTable* indexed) {
  const std::string key = AssignedKey(assignment);
  const std::string value = assignment.substr(key.size() + 1);
  const SettingRecord* record = nullptr;
  for (const SettingRecord& r : described) {
    if (r.key == key) record = &r;
  }
  if (!record && indexed) record = indexed->FindCount(key);
  const auto member = !record && indexed ? indexed->Find(key) : std::nullopt;
  if (member) {
    record = &member->family->setting;
    CheckIndices(entries, assignment, *member);
  }
  for (SettingEntry& entry : entries) {
    if (entry.key == key) {
      entry.value = ParseSettingValue(key, entry.type, value, RangeOf(record));
      return;
    }
  }
  if (member) {
    const std::string type = StoreTypeName(record->type);
    entries.push_back({key, type, ParseSettingValue(key, type, value, RangeOf(record))});
    return;
  }
  std::string valid;
  for (const SettingEntry& entry : entries) valid += (valid.empty() ? "" : ", ") + entry.key;
  if (indexed) {
    for (const IndexedSettingRecord& family : indexed->Families()) valid += (valid.empty() ? "" : ", ") + family.setting.key;
  }
  if (valid.empty()) throw HostError("--set " + assignment + ": " + effect + " has no settings");
  throw HostError("--set " + assignment + ": " + effect + " has no setting " + Quoted(key) + "; valid keys: " + valid);
}

std::vector<DynVarValue> ReadDynVarValues(const std::string& document_text) {
  XmlDocument doc;
  if (!doc.SetDoc(document_text)) return {};
  return ReadDynVarValues(doc);
}

std::vector<DynVarValue> ReadDynVarValues(XmlDocument& doc) {
  std::vector<DynVarValue> values;
  if (!EnterBlock(doc, "Dynvars")) return values;
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
