// Reading and editing settings documents from the host's side: the keys an
// effect wrote (with their store types), `--set KEY=VALUE` checked against
// them, and the "Dynvars" block of current values that presets carry.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/xml_document.h"
#include "runtime/effect_host.h"
#include "runtime/setting_checks.h"

namespace nimbo::host {

// One "data" element of a settings document.
struct SettingEntry {
  std::string key;
  std::string type;   // "int", "float", "string" or "path"
  std::string value;  // the stored text
};

// The store's word for a setting type: "int", "float", "string" or "path".
const char* StoreTypeName(orrery::SettingType type);

// The values of the first "Settings"/"ConfigData" block, in document order.
std::vector<SettingEntry> ReadSettingEntries(const std::string& document_text);
// A settings document holding exactly `entries` in that order.
std::string BuildSettingsDocument(const std::vector<SettingEntry>& entries);

// The stored text for `text` given as a value of `type`: int takes a decimal
// number or hex (0xRRGGBB, #RRGGBB); float a decimal number; string and path
// any text. Throws HostError naming the key and the value: for text that is
// no number of the type (saying what the type takes), and for a number
// outside `range` or not finite (saying the range).
std::string ParseSettingValue(const std::string& key, const std::string& type, const std::string& text,
                              const std::optional<ValueRange>& range = std::nullopt);

// The key of KEY=VALUE. Throws HostError when there is no '=' or no key.
std::string AssignedKey(const std::string& assignment);

// Applies KEY=VALUE to `entries`, checked against the range `described`
// gives the key. A key of one of the `indexed` families is taken (added to
// `entries` when the effect has not stored it yet) while each of its indices
// is below its count as `entries` hold it now, so a count given earlier
// counts; at or beyond it is a HostError naming the key, the count key and
// its value. An unknown key is a HostError that lists the valid keys;
// `effect` names the effect in it.
void ApplySetting(std::vector<SettingEntry>& entries, const std::string& assignment, const std::string& effect,
                  const std::vector<SettingRecord>& described = {}, const IndexedKeyTable* indexed = nullptr);

// One current value of a dynamic variable, as a preset's "Dynvars" holds it.
struct DynVarValue {
  std::string name;
  std::string type;  // "float" or "bool"
  std::string value;
};

// The "var" elements of the first "Settings"/"Dynvars" block.
std::vector<DynVarValue> ReadDynVarValues(const std::string& document_text);
std::vector<DynVarValue> ReadDynVarValues(XmlDocument& doc);
// `document_text` with a "Dynvars" block of `values` added to "Settings".
std::string AddDynVarValues(const std::string& document_text, const std::vector<DynVarValue>& values);

}  // namespace nimbo::host
