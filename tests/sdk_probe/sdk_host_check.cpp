// A host built the way an outside host is: it knows only include/orrery and
// the package's file name. It loads the package with dlopen, reads every
// effect's description through the interface, runs the configuration
// exchange against a fresh store and again against the filled one, and
// destroys each effect. Exit code 0 means the contract holds.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "orrery/effect.h"
#include "orrery/package.h"

namespace {

int g_failures = 0;

#define CHECK(cond)                                                        \
  do {                                                                     \
    if (!(cond)) {                                                         \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++g_failures;                                                        \
    }                                                                      \
  } while (0)

// The simplest store a host could have: a map where "!" is a key like any
// other.
class MapStore final : public orrery::ConfigStore {
 public:
  void BeginWriting() override { ++blocks; }
  int32_t GetInt(const char* key, int32_t def) override {
    auto it = values.find(key);
    return it == values.end() ? def : std::atoi(it->second.c_str());
  }
  int32_t SetInt(const char* key, int32_t v) override { return Put(key, std::to_string(v)); }
  float GetFloat(const char* key, float def) override {
    auto it = values.find(key);
    return it == values.end() ? def : std::strtof(it->second.c_str(), nullptr);
  }
  int32_t SetFloat(const char* key, float v) override { return Put(key, std::to_string(v)); }
  const char* GetString(const char* key, const char* def) override {
    auto it = values.find(key);
    return it == values.end() ? def : it->second.c_str();
  }
  int32_t SetString(const char* key, const char* v) override { return Put(key, v); }
  std::string GetPath(const char* key, const char* def, bool* used_default) override {
    auto it = values.find(key);
    if (used_default) *used_default = it == values.end();
    return it == values.end() ? def : it->second;
  }
  int32_t SetPath(const char* key, const char* v) override { return Put(key, v); }

  int32_t Put(const char* key, std::string v) {
    ++writes;
    values[key] = std::move(v);
    return 1;
  }
  std::map<std::string, std::string> values;
  int blocks = 0;
  int writes = 0;
};

class MinimalHost final : public orrery::HostContext {
 public:
  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return &store; }
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {160, 120, 25.0f}; }
  void Notify(int32_t, int32_t) override {}
  void DeclareSlider(const orrery::SliderDesc&) override {}
  void PublishDynVars(orrery::DynVar*) override {}
  void* GetMemory(int32_t, size_t) override { return nullptr; }
  void FreeMemory(int32_t) override {}
  int64_t GetTimeMs() override { return 0; }
  void DescribeSetting(const orrery::SettingInfo&) override {}
  MapStore store;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: sdk_host_check PATH/nimbo_one.fxp\n");
    return 2;
  }
  void* package = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!package) {
    std::fprintf(stderr, "cannot load %s: %s\n", argv[1], dlerror());
    return 1;
  }
  auto get_size = reinterpret_cast<orrery::PkgGetSizeFn>(dlsym(package, "orrpkgGetSize"));
  auto create = reinterpret_cast<orrery::PkgCreateFn>(dlsym(package, "orrpkgCreateNewDFXObject"));
  auto get_info = reinterpret_cast<orrery::PkgGetInfoFn>(dlsym(package, "orrpkgGetInfo"));
  auto get_mem = reinterpret_cast<orrery::PkgGetMemUsageFn>(dlsym(package, "orrpkgGetMemUsage"));
  CHECK(get_size && create && get_info && get_mem);
  if (!get_size || !create || !get_info || !get_mem) return 1;

  CHECK(get_size() == 24);
  const char* info = get_info();
  CHECK(info && std::strlen(info) > 9 && std::strcmp(info + std::strlen(info) - 9, ". ver SP1") == 0);
  CHECK(get_mem() == 0);
  CHECK(create(-1) == nullptr && create(get_size()) == nullptr);

  for (int32_t i = 0; i < get_size(); ++i) {
    orrery::Effect* effect = create(i);
    CHECK(effect != nullptr);
    if (!effect) continue;
    CHECK(std::strncmp(effect->GetName(), "nimbo one\\", 10) == 0);
    CHECK(effect->GetVersion() == 0x015E0000u);
    CHECK(effect->GetCapability() == 1);
    CHECK(std::strlen(effect->GetCategory()) > 0 && effect->GetCategory()[std::strlen(effect->GetCategory()) - 1] == ',');
    CHECK(effect->GetID() != 0);
    CHECK(effect->GetAuthor() != nullptr);
    for (int32_t k = 0; k < effect->GetInputCount(); ++k) {
      CHECK(effect->GetInputTypeName(k) != nullptr);
      orrery::Size size = effect->GetInputDefaultRes(k);
      CHECK(size.width == -1 && size.height == -1);
    }

    MinimalHost host;
    effect->SetHostContext(&host);
    CHECK(effect->UpdateConfig() == 1);  // fresh store: the effect writes "!" and its settings
    CHECK(host.store.GetInt("!", 0) == 1);
    CHECK(host.store.blocks == 1);
    const auto written = host.store.values;
    const int writes = host.store.writes;
    CHECK(effect->UpdateConfig() == 1);  // filled store: read back, nothing written
    CHECK(host.store.values == written);
    CHECK(host.store.writes == writes);
    delete effect;
  }
  if (g_failures) {
    std::fprintf(stderr, "%d checks failed\n", g_failures);
    return 1;
  }
  std::printf("sdk_host_check: 24 effects loaded, described, configured and destroyed\n");
  return 0;
}
