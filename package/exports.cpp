// The package's four entry points, the only symbols the library exports
// (everything else is hidden by the build's visibility settings).
#include "orrery/package.h"
#include "orrery/services.h"
#include "core/platform.h"
#include "core/registry.h"

#define NIMBO_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
constexpr const char* kPackageDescription =
    "nimbo one: 24 live-video effects - keying, tracking, morphing, time and damage filters, 3D. ver SP1";
}  // namespace

NIMBO_EXPORT int32_t orrpkgGetSize() { return nimbo::PackageRegistry().Count(); }

NIMBO_EXPORT orrery::Effect* orrpkgCreateNewDFXObject(int32_t index) {
  return nimbo::PackageRegistry().Create(index);
}

// Also tells the help service where the package's help lives: the plug-ins
// folder plus the help folder's name, joined with the separator whether or
// not the folder already ends in one (the host's paths never do).
NIMBO_EXPORT const char* orrpkgGetInfo() {
  nimbo::platform::SetHelpPath(orrery::GetSettingsManager()->GetPluginsPath() + "/nimbo_one.help");
  return kPackageDescription;
}

NIMBO_EXPORT int32_t orrpkgGetMemUsage() { return 0; }
