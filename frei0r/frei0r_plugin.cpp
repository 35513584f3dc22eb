// One frei0r plug-in: the f0r_* entry points over one effect of the package.
// Every plug-in is built from this file; the build names the effect
// (NIMBO_FREI0R_EFFECT, its name after "nimbo one\") and how it takes its
// inputs (NIMBO_FREI0R_LAYOUT: 0 filter, 1 two-input mixer, 2 two inputs
// stacked in one frame).
//
// frei0r's contract: f0r_init and f0r_deinit once per load; the info calls
// and construct/destruct may run at once from several threads; one instance
// is used by one thread at a time. Pixels are BGRA8888, which is the byte
// order of the effects' screens, so frames pass without conversion.
// frei0r.h declares its functions without C linkage of its own.
extern "C" {
#include <frei0r.h>
}

#include <cstdio>
#include <memory>
#include <string>

#include "bridge_catalog.h"
#include "bridge_instance.h"

#ifndef NIMBO_FREI0R_EFFECT
#error "NIMBO_FREI0R_EFFECT names the effect this plug-in carries"
#endif
#ifndef NIMBO_FREI0R_LAYOUT
#define NIMBO_FREI0R_LAYOUT 0
#endif

#define NIMBO_F0R_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using nimbo::frei0r::Layout;
using nimbo::frei0r::ParamType;

constexpr Layout kLayout = static_cast<Layout>(NIMBO_FREI0R_LAYOUT);
constexpr int kBridgeMajor = 1;
constexpr int kBridgeMinor = 0;

// What this plug-in offers, worked out once per process from the package.
struct Plugin {
  const nimbo::host::Package* package = nullptr;
  nimbo::frei0r::EffectDescription description;
  std::string name = nimbo::frei0r::PluginName(NIMBO_FREI0R_EFFECT, kLayout);
  std::string explanation;
  std::string failure;  // why the package or the effect is missing
};

const Plugin& ThePlugin() {
  static const Plugin plugin = [] {
    Plugin p;
    p.package = nimbo::frei0r::SharedPackage(reinterpret_cast<const void*>(&ThePlugin), &p.failure);
    if (p.package) {
      try {
        p.description = nimbo::frei0r::DescribeEffect(*p.package, NIMBO_FREI0R_EFFECT);
      } catch (const std::exception& e) {
        p.failure = e.what();
        p.package = nullptr;
      }
    }
    if (!p.failure.empty()) std::fprintf(stderr, "%s: %s\n", p.name.c_str(), p.failure.c_str());
    p.explanation = std::string(NIMBO_FREI0R_EFFECT) + " from nimbo one" +
                    (kLayout == Layout::kStacked ? ": its two inputs stacked one above the other in one frame" : "");
    return p;
  }();
  return plugin;
}

nimbo::frei0r::BridgeInstance* Instance(f0r_instance_t instance) {
  return static_cast<nimbo::frei0r::BridgeInstance*>(instance);
}

}  // namespace

NIMBO_F0R_EXPORT int f0r_init() { return ThePlugin().package ? 1 : 0; }

NIMBO_F0R_EXPORT void f0r_deinit() {}

NIMBO_F0R_EXPORT void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  if (!info) return;
  const Plugin& p = ThePlugin();
  info->name = p.name.c_str();
  info->author = p.description.author.empty() ? "nimbo one" : p.description.author.c_str();
  info->plugin_type = kLayout == Layout::kMixer ? F0R_PLUGIN_TYPE_MIXER2 : F0R_PLUGIN_TYPE_FILTER;
  info->color_model = F0R_COLOR_MODEL_BGRA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = kBridgeMajor;
  info->minor_version = kBridgeMinor;
  info->num_params = int(p.description.params.size());
  info->explanation = p.explanation.c_str();
}

NIMBO_F0R_EXPORT void f0r_get_param_info(f0r_param_info_t* info, int param_index) {
  const Plugin& p = ThePlugin();
  if (!info || param_index < 0 || size_t(param_index) >= p.description.params.size()) return;
  const nimbo::frei0r::ParamDesc& param = p.description.params[size_t(param_index)];
  info->name = param.name.c_str();
  info->type = int(param.type);
  info->explanation = param.explanation.c_str();
}

NIMBO_F0R_EXPORT f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  const Plugin& p = ThePlugin();
  // Sizes up to the host runtime's limit; the stacked layout needs two rows at least.
  constexpr unsigned int kMaxSide = 16384;
  if (!p.package || width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return nullptr;
  try {
    return new nimbo::frei0r::BridgeInstance(*p.package, p.description, kLayout, p.name, int32_t(width),
                                             int32_t(height));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", p.name.c_str(), e.what());
    return nullptr;
  }
}

NIMBO_F0R_EXPORT void f0r_destruct(f0r_instance_t instance) { delete Instance(instance); }

NIMBO_F0R_EXPORT void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
  if (instance) Instance(instance)->SetParam(param_index, param);
}

NIMBO_F0R_EXPORT void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
  if (instance) Instance(instance)->GetParam(param_index, param);
}

NIMBO_F0R_EXPORT void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
  if (instance) Instance(instance)->Update(time, inframe, nullptr, outframe);
}

NIMBO_F0R_EXPORT void f0r_update2(f0r_instance_t instance, double time, const uint32_t* inframe1,
                                  const uint32_t* inframe2, const uint32_t*, uint32_t* outframe) {
  if (instance) Instance(instance)->Update(time, inframe1, inframe2, outframe);
}
