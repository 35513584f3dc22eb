// The package as the bridge reaches it, and what one effect offers a frei0r
// host.
//
// The package is loaded once per process, the way the nimbo program loads it
// (host services installed, nimbo_one.fxp opened with dlopen), from
//   NIMBO_PLUGINS_PATH when set, else
//   <plug-in's folder>/../../plugins   (the build tree: build/lib/frei0r-1/)
//   <plug-in's folder>/../nimbo/plugins (an installation: PREFIX/lib/frei0r-1/)
// An effect is described the way a host learns it: a fresh effect on an
// empty settings document writes every key with its type and default,
// reports each key's range and help, declares its dynamic variables and
// sliders, and registers the values it publishes.
#pragma once

#include <string>
#include <vector>

#include "bridge_params.h"
#include "runtime/indexed_keys.h"
#include "runtime/package_loader.h"

namespace nimbo::frei0r {

// How a plug-in takes an effect's inputs.
enum class Layout {
  kFilter,   // one input
  kMixer,    // two inputs (F0R_PLUGIN_TYPE_MIXER2)
  kStacked,  // two inputs one above the other in one frame, for hosts
             // without mixers (ffmpeg): the top half is input 0, the bottom
             // half input 1; the result fills the top half and the bottom
             // half keeps input 1
};

struct EffectDescription {
  const host::EffectEntry* entry = nullptr;
  std::string author;
  std::vector<ParamDesc> params;
  std::vector<std::string> outputs;  // names of the published values
  // Keys with indices formatted in: no parameters (their number follows a
  // count), reachable through the preset.
  std::vector<host::IndexedSettingRecord> indexed;
};

// The process-wide package, loaded on first use from the folder found for
// the plug-in that holds `anchor` (any address inside it). Null when it
// cannot be loaded; *error says why.
const host::Package* SharedPackage(const void* anchor, std::string* error);

// The folder searched for nimbo_one.fxp (see above).
std::string PackageFolder(const void* anchor);

// What `effect_name` offers a frei0r host. Throws HostError for an unknown
// effect.
EffectDescription DescribeEffect(const host::Package& package, const std::string& effect_name);

// The plug-in's file name without ".so" ("nimbo_retina_killer"), and the
// name hosts list ("nimbo retina killer"; GStreamer turns blanks into '-').
std::string PluginFileName(const std::string& effect_name, Layout layout);
std::string PluginName(const std::string& effect_name, Layout layout);

}  // namespace nimbo::frei0r
