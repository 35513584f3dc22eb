// What the commands share: loading the package with the host's services in
// place, and describing effects.
#pragma once

#include <memory>
#include <string>

#include "cli/cli_args.h"
#include "runtime/package_loader.h"

namespace nimbo::host {

// Installs the host services (plug-ins path = the package's folder, bin
// path = this program's folder) and loads the package.
std::unique_ptr<Package> LoadPackage(const CommandLine& cl);

// "0x002438315E35C1B9"
std::string HexId(uint64_t id);

}  // namespace nimbo::host
