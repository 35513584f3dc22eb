// The nimbo commands. Each answers the process exit code and throws
// HostError for a problem the user must fix.
#pragma once

#include "cli/cli_args.h"
#include "runtime/interrupt.h"

namespace nimbo::host {

int RunList(const CommandLine& cl);
int RunInfo(const CommandLine& cl);
int RunRender(const CommandLine& cl);
int RunDemo(const CommandLine& cl);
int RunFormula(const CommandLine& cl);
int RunScene(const CommandLine& cl);
int RunVersion(const CommandLine& cl);

}  // namespace nimbo::host
