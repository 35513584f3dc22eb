#include "cli/command_support.h"

#include <cstdio>

#include "cli/commands.h"
#include "runtime/host_services.h"

namespace nimbo::host {

std::unique_ptr<Package> LoadPackage(const CommandLine& cl) {
  const std::string folder = PluginsFolder(cl.plugins);
  InstallHostServices(folder, ProgramFolder());
  return std::make_unique<Package>(folder);
}

std::string HexId(uint64_t id) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%016llX", static_cast<unsigned long long>(id));
  return text;
}

}  // namespace nimbo::host
