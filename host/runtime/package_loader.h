// Package: the effect package (nimbo_one.fxp) loaded with dlopen and reached
// only through its four entry points and the effect interface, the way any
// host reaches it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orrery/effect.h"
#include "orrery/package.h"

namespace nimbo::host {

inline constexpr char kPackageFile[] = "nimbo_one.fxp";

// One effect as the package describes it.
struct EffectEntry {
  int32_t index = 0;
  std::string name;        // as registered: "nimbo one\\3D Effect\\Blob 3D"
  std::string short_name;  // without "nimbo one\\" and "3D Effect\\": "Blob 3D"
  std::string category;
  std::vector<std::string> inputs;  // input type names
  std::string output_name;
  bool output_name_known = false;  // see Package: the interface has no slot for it
  uint64_t id = 0;
  bool is_3d = false;  // listed under "3D Effect\\"
  // The rest of the effect's static description, as the interface answers it.
  std::string display_name;
  std::string author;
  uint32_t version = 0;
  std::vector<orrery::Size> input_sizes;  // default size of each input; -1 = follow the host
  orrery::Size output_size{-1, -1};
};

using EffectPtr = std::unique_ptr<orrery::Effect>;

class Package {
 public:
  // Loads PATH/nimbo_one.fxp; throws HostError when it cannot be loaded or
  // lacks an entry point.
  explicit Package(const std::string& folder);
  ~Package();
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;

  const std::string& Folder() const { return folder_; }
  const char* Info() const;
  const std::vector<EffectEntry>& Catalog() const { return catalog_; }
  // By index ("3"), by name after "nimbo one\\" with or without "3D
  // Effect\\", or by full name; case does not matter. Throws HostError for
  // an unknown effect.
  const EffectEntry& Find(const std::string& query) const;
  // A new effect object; throws HostError when the package gives none.
  EffectPtr Create(int32_t index) const;

 private:
  std::string folder_;
  void* library_ = nullptr;
  orrery::PkgGetSizeFn get_size_ = nullptr;
  orrery::PkgCreateFn create_ = nullptr;
  orrery::PkgGetInfoFn get_info_ = nullptr;
  // Optional: EffectInfo by index, the only way a host learns output names.
  std::vector<EffectEntry> catalog_;
};

// The package's folder: --plugins DIR, else NIMBO_PLUGINS_PATH, else the
// program's folder + "/../plugins".
std::string PluginsFolder(const std::string& option);

// `name` without the "nimbo one\\" and "3D Effect\\" prefixes.
std::string ShortEffectName(const std::string& name);

}  // namespace nimbo::host
