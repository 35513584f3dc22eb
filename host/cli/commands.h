// The nimbo commands. Each answers the process exit code and throws
// HostError for a problem the user must fix.
#pragma once

#include <atomic>

#include "cli/cli_args.h"

namespace nimbo::host {

int RunList(const CommandLine& cl);
int RunInfo(const CommandLine& cl);
int RunRender(const CommandLine& cl);
int RunDemo(const CommandLine& cl);
int RunFormula(const CommandLine& cl);

// Set by SIGINT/SIGTERM; long loops stop at the next frame and unwind, which
// removes their unfinished output files.
std::atomic<bool>& InterruptRequested();
void ThrowIfInterrupted();

}  // namespace nimbo::host
