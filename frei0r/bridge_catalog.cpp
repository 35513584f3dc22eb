#include "bridge_catalog.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>

#include "runtime/effect_stage.h"
#include "runtime/host_error.h"
#include "runtime/host_services.h"
#include "runtime/settings_edit.h"
#include "framework/config_data.h"
#include "orrery/services.h"

namespace nimbo::frei0r {
namespace {

// Effects are described at a modest size; what they store does not depend on it.
constexpr int32_t kDescribeWidth = 640;
constexpr int32_t kDescribeHeight = 360;
constexpr double kDescribeFps = 25.0;
constexpr int32_t kColorMaximum = 0xFFFFFF;

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool FileExists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

std::string RangeText(double minimum, double maximum) {
  char text[96];
  std::snprintf(text, sizeof text, "%g .. %g", minimum, maximum);
  return text;
}

// A stored number: ints as ints ("0.5" would read as 0), floats as floats.
double NumberOf(const host::SettingEntry& entry) {
  if (entry.type == "int") {
    if (auto v = ScanInt(entry.value, 10)) return *v;
  } else if (auto f = ScanFloat(entry.value)) {
    return *f;
  }
  return 0.0;
}

// A stored setting the effect describes, as a parameter.
ParamDesc SettingParam(const host::SettingEntry& entry, const host::SettingRecord& record) {
  ParamDesc p;
  p.name = LowerName(entry.key);
  p.source = ParamSource::kSetting;
  p.target = entry.key;
  p.store_type = entry.type;
  p.minimum = record.minimum;
  p.maximum = record.maximum;
  const std::string help = record.help.empty() ? entry.key : record.help;
  if (entry.type == "string" || entry.type == "path") {
    p.type = ParamType::kString;
    p.default_text = entry.value;
    p.explanation = help + (entry.type == "path" ? " (a file)" : "");
    return p;
  }
  p.default_value = NumberOf(entry);
  p.whole = entry.type == "int";
  if (p.whole && record.minimum == 0 && record.maximum == 1) {
    p.type = ParamType::kBool;
    p.explanation = help;
  } else if (p.whole && record.minimum == 0 && record.maximum == kColorMaximum) {
    p.type = ParamType::kColor;
    p.explanation = help;
  } else {
    p.type = ParamType::kDouble;
    p.explanation = help + "; 0..1 spans " + RangeText(record.minimum, record.maximum);
  }
  return p;
}

ParamDesc DynVarParam(const orrery::DynVar& v, const std::string& condition) {
  ParamDesc p;
  p.name = LowerName(v.name);
  p.source = ParamSource::kDynVar;
  p.target = v.name;
  p.condition = condition;
  const std::string when = condition.empty() ? "" : " (with " + condition + ")";
  if (v.type == orrery::kDynVarBool) {
    p.type = ParamType::kBool;
    p.default_value = v.initboolval ? 1 : 0;
    p.explanation = "dynamic variable " + std::string(v.name) + when;
  } else {
    p.type = ParamType::kDouble;
    p.minimum = v.varmin;
    p.maximum = v.varmax;
    p.default_value = v.varinit;
    p.explanation = "dynamic variable " + std::string(v.name) + "; 0..1 spans " + RangeText(v.varmin, v.varmax) + when;
  }
  return p;
}

ParamDesc SliderParam(const host::SliderRecord& s, float value, const std::string& condition) {
  ParamDesc p;
  p.name = LowerName(s.name);
  p.source = ParamSource::kSlider;
  p.type = ParamType::kDouble;
  p.target = s.name;
  p.condition = condition;
  p.minimum = s.minimum;
  p.maximum = s.maximum;
  p.default_value = value;
  p.explanation = "slider " + s.name + "; 0..1 spans " + RangeText(s.minimum, s.maximum) +
                  (condition.empty() ? "" : " (with " + condition + ")");
  return p;
}

// Adds the variables and sliders a configured stage declares that are not
// parameters yet.
void AddVariables(host::EffectStage& stage, const std::string& condition, std::vector<ParamDesc>& params,
                  std::set<std::string>& seen) {
  for (orrery::DynVar* v : stage.Host().DeclaredDynVars()) {
    if (seen.insert("dyn:" + std::string(v->name)).second) params.push_back(DynVarParam(*v, condition));
  }
  for (const host::SliderRecord& s : stage.Host().Sliders()) {
    if (seen.insert("slider:" + s.name).second) params.push_back(SliderParam(s, s.value ? *s.value : 0.0f, condition));
  }
}

}  // namespace

std::string PackageFolder(const void* anchor) {
  const char* env = std::getenv("NIMBO_PLUGINS_PATH");
  if (env && *env) return env;
  Dl_info info{};
  if (!anchor || !dladdr(anchor, &info) || !info.dli_fname) return host::ProgramFolder() + "/../plugins";
  const std::string own = FolderOf(info.dli_fname);
  const std::string build_tree = own + "/../../plugins";
  if (FileExists(build_tree + "/" + host::kPackageFile)) return build_tree;
  return own + "/../nimbo/plugins";
}

const host::Package* SharedPackage(const void* anchor, std::string* error) {
  static std::mutex mutex;
  static const host::Package* package = nullptr;  // kept to the end of the process
  static std::string failure;
  std::lock_guard lock(mutex);
  if (!package && failure.empty()) {
    const std::string folder = PackageFolder(anchor);
    try {
      host::InstallHostServices(folder, folder + "/../bin");
      package = new host::Package(folder);
    } catch (const std::exception& e) {
      failure = e.what();
    }
  }
  if (!package && error) *error = failure;
  return package;
}

EffectDescription DescribeEffect(const host::Package& package, const std::string& effect_name) {
  EffectDescription d;
  d.entry = &package.Find(effect_name);
  std::vector<ParamDesc>& params = d.params;
  std::set<std::string> seen;
  std::vector<std::string> switches;
  {
    host::EffectStage stage(package, *d.entry, kDescribeWidth, kDescribeHeight, kDescribeFps);
    stage.ApplySettings({});
    d.author = stage.Effect().GetAuthor() ? stage.Effect().GetAuthor() : "";
    const std::vector<host::SettingEntry> stored = host::ReadSettingEntries(stage.Host().Store().Text());
    for (const host::SettingEntry& entry : stored) {
      const host::SettingRecord* record = stage.Host().FindSetting(entry.key);
      if (!record) continue;  // indexed keys and the variables' own records: reachable through a preset
      params.push_back(SettingParam(entry, *record));
      seen.insert("set:" + entry.key);
      if (params.back().type == ParamType::kBool) switches.push_back(entry.key + "=" + (NumberOf(entry) != 0 ? "0" : "1"));
    }
    AddVariables(stage, "", params, seen);
    for (const host::OutputValue& v : stage.OutputValues()) d.outputs.push_back(v.name);
    d.indexed = stage.Host().IndexedSettings().Families();
  }
  // Variables that exist only under a switch (ChromaKeyPRO's "use_dynvars")
  // are parameters too; they act when the switch is set.
  for (const std::string& flipped : switches) {
    host::EffectStage stage(package, *d.entry, kDescribeWidth, kDescribeHeight, kDescribeFps);
    host::StageOptions options;
    options.sets = {flipped};
    stage.ApplySettings(options);
    AddVariables(stage, flipped, params, seen);
  }

  // Names must be unique, also as GStreamer spells them (anything but
  // letters, digits, '+' and '-' as '-': "blue_y" and "Blue y" are both
  // "blue-y" there): a variable named like a key gets its kind added.
  auto gstreamer_name = [](const std::string& name) {
    std::string out;
    for (unsigned char c : name) out += (std::isalnum(c) || c == '+' || c == '-') ? char(c) : '-';
    return out;
  };
  std::set<std::string> names;
  for (ParamDesc& p : params) {
    if (!names.insert(gstreamer_name(p.name)).second) {
      p.name += p.source == ParamSource::kSlider ? " slider" : " variable";
      names.insert(gstreamer_name(p.name));
    }
  }
  ParamDesc preset;
  preset.name = "preset";
  preset.type = ParamType::kString;
  preset.source = ParamSource::kPreset;
  preset.explanation =
      "settings document to start from (a preset saved by nimbo); parameters left at their defaults keep its values";
  params.push_back(preset);
  if (!d.outputs.empty()) {
    ParamDesc values;
    values.name = "values file";
    values.type = ParamType::kString;
    values.source = ParamSource::kValuesFile;
    std::string columns;
    for (const std::string& o : d.outputs) columns += ", " + o;
    values.explanation = "CSV file for the published values (frame, time" + columns + "), one row per frame";
    params.push_back(values);
  }
  return d;
}

std::string PluginFileName(const std::string& effect_name, Layout layout) {
  std::string name = "nimbo_";
  for (unsigned char c : LowerName(effect_name)) name += std::isalnum(c) ? char(c) : '_';
  return layout == Layout::kStacked ? name + "_stacked" : name;
}

std::string PluginName(const std::string& effect_name, Layout layout) {
  std::string name = "nimbo ";
  for (unsigned char c : LowerName(effect_name)) name += std::isalnum(c) ? char(c) : ' ';
  return layout == Layout::kStacked ? name + " stacked" : name;
}

}  // namespace nimbo::frei0r
