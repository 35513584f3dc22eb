// nimbo info EFFECT: what one effect takes and stores, learned the way a
// host learns it: a fresh effect on an empty settings document writes every
// key with its type and default.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "runtime/effect_host.h"
#include "runtime/indexed_keys.h"
#include "runtime/settings_edit.h"
#include "cli/text_out.h"
#include "orrery/services.h"

namespace nimbo::host {
namespace {

// Describes at a modest size; the keys an effect stores do not depend on it.
constexpr int32_t kInfoWidth = 640;
constexpr int32_t kInfoHeight = 360;

struct PublishedOutput {
  std::string name;
  std::string description;
};

struct EffectAction {
  std::string name;
  std::string description;
};

struct EffectDescription {
  std::vector<SettingEntry> settings;
  std::vector<orrery::DynVar> dynvars;  // copies of the declared nodes
  std::vector<SliderRecord> sliders;  // value pointers cleared: the effect is gone
  std::vector<float> slider_values;  // each slider's value as the fresh effect had it
  std::vector<SettingRecord> described;
  IndexedKeyTable indexed;  // keys with indices formatted in, and what counts them
  std::vector<PublishedOutput> outputs;
  std::vector<EffectAction> actions;  // file commands (--action NAME=FILE)
};

EffectDescription Describe(const Package& package, const EffectEntry& entry) {
  EffectDescription d;
  EffectHost host(kInfoWidth, kInfoHeight, 25.0);
  {
    EffectPtr effect = package.Create(entry.index);
    effect->SetHostContext(&host);
    effect->UpdateConfig();
    d.settings = ReadSettingEntries(host.Store().Text());
    for (orrery::DynVar* v : host.DeclaredDynVars()) d.dynvars.push_back(*v);
    d.sliders = host.Sliders();
    for (SliderRecord& s : d.sliders) {
      d.slider_values.push_back(s.value ? *s.value : 0.0f);
      s.value = nullptr;
    }
    d.described = host.DescribedSettings();
    d.indexed = host.IndexedSettings();
    orrery::VisitOutputValues(
        effect.get(),
        [](void* user, const char* name, const char* description, float) {
          static_cast<std::vector<PublishedOutput>*>(user)->push_back({name, description ? description : ""});
        },
        &d.outputs);
    orrery::VisitEffectActions(
        effect.get(),
        [](void* user, const char* name, const char* description) {
          static_cast<std::vector<EffectAction>*>(user)->push_back({name, description ? description : ""});
        },
        &d.actions);
  }
  return d;
}

// A size as [width, height]; -1 means the host's own size.
std::string SizeJson(const orrery::Size& size) {
  return "[" + std::to_string(size.width) + ", " + std::to_string(size.height) + "]";
}

// The interface version as the SDK writes it: 0x015E0000.
std::string VersionText(uint32_t version) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", version);
  return text;
}

// Dynamic-variable and slider numbers are floats: shortest exact text.
std::string JsonFloat(float value) { return std::isfinite(value) ? FloatText(value) : "null"; }

// -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][-+]?[0-9]+)? : the number grammar of JSON.
bool IsJsonNumber(const std::string& text) {
  size_t i = 0;
  const size_t n = text.size();
  auto digits = [&] {
    const size_t start = i;
    while (i < n && text[i] >= '0' && text[i] <= '9') ++i;
    return i - start;
  };
  if (i < n && text[i] == '-') ++i;
  if (i < n && text[i] == '0') {
    ++i;
  } else if (digits() == 0) {
    return false;
  }
  if (i < n && text[i] == '.') {
    ++i;
    if (digits() == 0) return false;
  }
  if (i < n && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < n && (text[i] == '+' || text[i] == '-')) ++i;
    if (digits() == 0) return false;
  }
  return i == n;
}

// Stored number texts are JSON numbers already; anything else is quoted.
std::string JsonValue(const SettingEntry& s) {
  if ((s.type == "int" || s.type == "float") && IsJsonNumber(s.value)) return s.value;
  return JsonString(s.value);
}

void PrintJson(const EffectEntry& e, const EffectDescription& d) {
  std::string out = "{\n  \"index\": " + std::to_string(e.index) + ",\n  \"name\": " + JsonString(e.name) +
                    ",\n  \"short_name\": " + JsonString(e.short_name) + ",\n  \"category\": " +
                    JsonString(e.category) + ",\n  \"id\": " + JsonString(HexId(e.id)) + ",\n  \"output\": " +
                    (e.output_name_known ? JsonString(e.output_name) : std::string("null")) + ",\n  \"inputs\": [";
  for (size_t i = 0; i < e.inputs.size(); ++i) out += (i ? ", " : "") + JsonString(e.inputs[i]);
  out += "],\n  \"input_sizes\": [";
  for (size_t i = 0; i < e.input_sizes.size(); ++i) out += (i ? ", " : "") + SizeJson(e.input_sizes[i]);
  out += "],\n  \"output_size\": " + SizeJson(e.output_size) + ",\n  \"display_name\": " +
         JsonString(e.display_name) + ",\n  \"author\": " + JsonString(e.author) + ",\n  \"version\": " +
         JsonString(VersionText(e.version));
  out += ",\n  \"settings\": [";
  for (size_t i = 0; i < d.settings.size(); ++i) {
    const SettingEntry& s = d.settings[i];
    out += std::string(i ? "," : "") + "\n    {\"key\": " + JsonString(s.key) + ", \"type\": " + JsonString(s.type) +
           ", \"default\": " + JsonValue(s);
    for (const SettingRecord& r : d.described) {
      if (r.key != s.key) continue;
      if (r.type == orrery::SettingType::kInt || r.type == orrery::SettingType::kFloat)
        out += ", \"min\": " + JsonNumber(r.minimum) + ", \"max\": " + JsonNumber(r.maximum);
      if (!r.help.empty()) out += ", \"help\": " + JsonString(r.help);
    }
    if (const auto member = d.indexed.Find(s.key)) out += ", \"indexed\": " + JsonString(member->family->setting.key);
    out += "}";
  }
  out += std::string(d.settings.empty() ? "" : "\n  ") + "],\n  \"indexed_settings\": [";
  const std::vector<IndexedSettingRecord>& families = d.indexed.Families();
  for (size_t i = 0; i < families.size(); ++i) {
    const SettingRecord& r = families[i].setting;
    out += std::string(i ? "," : "") + "\n    {\"key\": " + JsonString(r.key) + ", \"type\": " +
           JsonString(StoreTypeName(r.type)) + ", \"counts\": [";
    for (size_t k = 0; k < families[i].indices.size(); ++k) {
      const IndexRecord& index = families[i].indices[k];
      out += std::string(k ? ", " : "") + "{\"count_key\": " + JsonString(index.count_key) +
             ", \"limit\": " + std::to_string(index.limit) + "}";
    }
    out += "]";
    if (RangeOf(&r)) out += ", \"min\": " + JsonNumber(r.minimum) + ", \"max\": " + JsonNumber(r.maximum);
    if (!r.help.empty()) out += ", \"help\": " + JsonString(r.help);
    out += "}";
  }
  out += std::string(families.empty() ? "" : "\n  ") + "],\n  \"dynvars\": [";
  for (size_t i = 0; i < d.dynvars.size(); ++i) {
    const orrery::DynVar& v = d.dynvars[i];
    out += std::string(i ? "," : "") + "\n    {\"name\": " + JsonString(v.name);
    if (v.type == orrery::kDynVarBool) {
      out += ", \"type\": \"bool\", \"default\": " + std::to_string(v.initboolval) + "}";
    } else {
      out += ", \"type\": \"float\", \"min\": " + JsonFloat(v.varmin) + ", \"max\": " + JsonFloat(v.varmax) +
             ", \"default\": " + JsonFloat(v.varinit) + "}";
    }
  }
  out += std::string(d.dynvars.empty() ? "" : "\n  ") + "],\n  \"sliders\": [";
  for (size_t i = 0; i < d.sliders.size(); ++i) {
    const SliderRecord& s = d.sliders[i];
    out += std::string(i ? "," : "") + "\n    {\"name\": " + JsonString(s.name) + ", \"min\": " +
           JsonFloat(s.minimum) + ", \"max\": " + JsonFloat(s.maximum) + ", \"value\": " +
           JsonFloat(d.slider_values[i]) + ", \"initial\": " + JsonFloat(s.initial) + "}";
  }
  out += std::string(d.sliders.empty() ? "" : "\n  ") + "],\n  \"outputs\": [";
  for (size_t i = 0; i < d.outputs.size(); ++i) {
    out += std::string(i ? "," : "") + "\n    {\"name\": " + JsonString(d.outputs[i].name) +
           ", \"description\": " + JsonString(d.outputs[i].description) + "}";
  }
  out += std::string(d.outputs.empty() ? "" : "\n  ") + "],\n  \"actions\": [";
  for (size_t i = 0; i < d.actions.size(); ++i) {
    out += std::string(i ? "," : "") + "\n    {\"name\": " + JsonString(d.actions[i].name) +
           ", \"description\": " + JsonString(d.actions[i].description) + "}";
  }
  out += std::string(d.actions.empty() ? "" : "\n  ") + "]\n}\n";
  std::fputs(out.c_str(), stdout);
}

void PrintText(const EffectEntry& e, const EffectDescription& d) {
  int w = 24;  // name column: as wide as the longest name
  for (const SettingEntry& s : d.settings) w = std::max(w, int(s.key.size()));
  for (const orrery::DynVar& v : d.dynvars) w = std::max(w, int(std::strlen(v.name)));
  for (const SliderRecord& s : d.sliders) w = std::max(w, int(s.name.size()));
  for (const PublishedOutput& o : d.outputs) w = std::max(w, int(o.name.size()));
  std::printf("%s  (index %d)\n", e.name.c_str(), e.index);
  std::printf("  category  %s\n  id        %s\n", e.category.c_str(), HexId(e.id).c_str());
  std::printf("  version   %s\n  author    %s\n", VersionText(e.version).c_str(), e.author.c_str());
  std::printf("  output    %s\n", e.output_name_known ? ("\"" + e.output_name + "\"").c_str() : "?");
  std::printf("  inputs    ");
  if (e.inputs.empty()) std::printf("none (render with --size WxH --frames N)");
  for (size_t i = 0; i < e.inputs.size(); ++i) std::printf("%s%zu: %s", i ? ", " : "", i, e.inputs[i].c_str());
  std::printf("\n\nsettings (--set KEY=VALUE), as a fresh effect stores them:\n");
  if (d.settings.empty()) std::printf("  none\n");
  for (const SettingEntry& s : d.settings) {
    std::string extra;
    for (const SettingRecord& r : d.described) {
      if (r.key != s.key) continue;
      if (r.type == orrery::SettingType::kInt || r.type == orrery::SettingType::kFloat)
        extra = "  [" + NumberText(r.minimum) + " .. " + NumberText(r.maximum) + "]";
      if (!r.help.empty()) extra += "  " + r.help;
    }
    if (const auto member = d.indexed.Find(s.key)) extra += "  (" + member->family->setting.key + ")";
    const SettingRecord* count = d.indexed.FindCount(s.key);
    if (extra.empty() && count) extra = "  [0 .. " + NumberText(count->maximum) + "]  " + count->help;
    std::printf("  %-*s %-7s %s%s\n", w, s.key.c_str(), s.type.c_str(), ("\"" + s.value + "\"").c_str(), extra.c_str());
  }
  if (!d.indexed.Families().empty()) {
    std::printf("\nindexed settings (each %%i from 0 to its count - 1; --set the count first, then the keys):\n");
    for (const IndexedSettingRecord& family : d.indexed.Families()) {
      const SettingRecord& r = family.setting;
      const auto range = RangeOf(&r);
      const std::string shown_range = range ? "  [" + NumberText(r.minimum) + " .. " + NumberText(r.maximum) + "]" : "";
      std::printf("  %-*s %-7s counted by %s%s%s%s\n", w, r.key.c_str(), StoreTypeName(r.type),
                  CountKeysText(family).c_str(), shown_range.c_str(), r.help.empty() ? "" : "  ", r.help.c_str());
    }
  }
  std::printf("\ndynamic variables (--dyn NAME=VALUE or NAME=v0@t0,v1@t1,...):\n");
  if (d.dynvars.empty()) std::printf("  none\n");
  for (const orrery::DynVar& v : d.dynvars) {
    if (v.type == orrery::kDynVarBool) std::printf("  %-*s bool    default %d\n", w, v.name, v.initboolval);
    else std::printf("  %-*s float   %s .. %s, default %s\n", w, v.name, FloatText(v.varmin).c_str(),
                     FloatText(v.varmax).c_str(), FloatText(v.varinit).c_str());
  }
  std::printf("\nsliders (--dyn NAME=...):\n");
  if (d.sliders.empty()) std::printf("  none\n");
  for (const SliderRecord& s : d.sliders)
    std::printf("  %-*s %s .. %s\n", w, s.name.c_str(), FloatText(s.minimum).c_str(), FloatText(s.maximum).c_str());
  std::printf("\npublished outputs (--values FILE.csv):\n");
  if (d.outputs.empty()) std::printf("  none\n");
  for (const PublishedOutput& o : d.outputs) std::printf("  %-*s %s\n", w, o.name.c_str(), o.description.c_str());
  std::printf("\nfile commands (--action NAME=FILE):\n");
  if (d.actions.empty()) std::printf("  none\n");
  for (const EffectAction& a : d.actions) std::printf("  %-*s %s\n", w, a.name.c_str(), a.description.c_str());
}

}  // namespace

int RunInfo(const CommandLine& cl) {
  const auto package = LoadPackage(cl);
  const EffectEntry& entry = package->Find(cl.effect);
  const EffectDescription d = Describe(*package, entry);
  if (cl.json) PrintJson(entry, d);
  else PrintText(entry, d);
  return 0;
}

}  // namespace nimbo::host
