#include "runtime/package_loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "runtime/host_error.h"
#include "runtime/host_services.h"

namespace nimbo::host {
namespace {

constexpr char kPackagePrefix[] = "nimbo one\\";
constexpr char k3DPrefix[] = "3D Effect\\";

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return text;
}

bool StartsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

}  // namespace

std::string ShortEffectName(const std::string& name) {
  std::string rest = StartsWith(name, kPackagePrefix) ? name.substr(sizeof(kPackagePrefix) - 1) : name;
  return StartsWith(rest, k3DPrefix) ? rest.substr(sizeof(k3DPrefix) - 1) : rest;
}

std::string PluginsFolder(const std::string& option) {
  if (!option.empty()) return option;
  const char* env = std::getenv("NIMBO_PLUGINS_PATH");
  if (env && *env) return env;
  return ProgramFolder() + "/../plugins";
}

Package::Package(const std::string& folder) : folder_(folder) {
  const std::string path = folder + "/" + kPackageFile;
  library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library_) {
    const char* why = dlerror();
    throw HostError("cannot load the effect package " + Quoted(path) + ": " + (why ? why : "unknown reason"));
  }
  get_size_ = reinterpret_cast<orrery::PkgGetSizeFn>(dlsym(library_, "orrpkgGetSize"));
  create_ = reinterpret_cast<orrery::PkgCreateFn>(dlsym(library_, "orrpkgCreateNewDFXObject"));
  get_info_ = reinterpret_cast<orrery::PkgGetInfoFn>(dlsym(library_, "orrpkgGetInfo"));
  if (!get_size_ || !create_ || !get_info_) {
    dlclose(library_);
    throw HostError(Quoted(path) + " is not an effect package (its entry points are missing)");
  }
  get_info_();  // also tells the package where its help lives

  // Discovery: each effect is created once to read its description.
  const int32_t count = get_size_();
  for (int32_t i = 0; i < count; ++i) {
    EffectPtr effect(create_(i));
    if (!effect) continue;
    EffectEntry entry;
    entry.index = i;
    entry.name = effect->GetName();
    entry.short_name = ShortEffectName(entry.name);
    entry.category = effect->GetCategory();
    for (int32_t k = 0; k < effect->GetInputCount(); ++k) {
      entry.inputs.push_back(effect->GetInputTypeName(k));
      entry.input_sizes.push_back(effect->GetInputDefaultRes(k));
    }
    // The effect interface has no slot for the output's name; effects that
    // register their whole description with the SDK answer it.
    if (const orrery::EffectInfo* info = orrery::FindEffectInfo(effect.get()); info && info->output_name) {
      entry.output_name = info->output_name;
      entry.output_name_known = true;
    }
    entry.id = effect->GetID();
    entry.display_name = effect->GetDisplayName() ? effect->GetDisplayName() : "";
    entry.author = effect->GetAuthor() ? effect->GetAuthor() : "";
    entry.version = effect->GetVersion();
    entry.output_size = effect->GetOutputRes();
    entry.is_3d = StartsWith(entry.name, std::string(kPackagePrefix) + k3DPrefix);
    catalog_.push_back(std::move(entry));
  }
}

Package::~Package() {
  if (library_) dlclose(library_);
}

const char* Package::Info() const { return get_info_(); }

const EffectEntry& Package::Find(const std::string& query) const {
  const bool numeric = !query.empty() && std::all_of(query.begin(), query.end(), [](unsigned char c) {
    return std::isdigit(c);
  });
  if (numeric && query.size() < 6) {
    const int32_t index = std::atoi(query.c_str());
    for (const EffectEntry& entry : catalog_) {
      if (entry.index == index) return entry;
    }
  }
  const std::string wanted = Lower(query);
  for (const EffectEntry& entry : catalog_) {
    const std::string full = Lower(entry.name);
    if (wanted == full || wanted == Lower(entry.short_name) ||
        (StartsWith(full, Lower(kPackagePrefix)) && wanted == full.substr(sizeof(kPackagePrefix) - 1))) {
      return entry;
    }
  }
  throw HostError("unknown effect " + Quoted(query) + " (`nimbo list` shows the effects)");
}

EffectPtr Package::Create(int32_t index) const {
  EffectPtr effect(create_(index));
  if (!effect) throw HostError("the package could not create effect " + std::to_string(index));
  return effect;
}

}  // namespace nimbo::host
