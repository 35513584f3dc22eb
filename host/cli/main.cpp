// nimbo: the command-line host of the nimbo one effects.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "cli/cli_args.h"
#include "cli/commands.h"
#include "media/ffmpeg_util.h"
#include "runtime/interrupt.h"

int main(int argc, char** argv) {
  using namespace nimbo::host;
  InstallInterruptHandlers();
  try {
    const CommandLine cl = ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    SetFfmpegVerbose(cl.verbose);
    switch (cl.kind) {
      case CommandKind::kHelp: std::fputs(UsageText(cl.help_topic).c_str(), stdout); return 0;
      case CommandKind::kVersion: return RunVersion(cl);
      case CommandKind::kList: return RunList(cl);
      case CommandKind::kInfo: return RunInfo(cl);
      case CommandKind::kRender: return RunRender(cl);
      case CommandKind::kDemo: return RunDemo(cl);
      case CommandKind::kFormula: return RunFormula(cl);
      case CommandKind::kScene: return RunScene(cl);
    }
  } catch (const UsageError& e) {
    std::fprintf(stderr, "nimbo: error: %s\n", e.what());
    return 2;
  } catch (const HostError& e) {
    std::fprintf(stderr, "nimbo: error: %s\n", e.what());
    // A signal may surface as any error of the step it broke (a read that
    // came back with EINTR): the signal is what happened.
    return InterruptSignal() != 0 ? InterruptExitCode() : 1;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "nimbo: error: out of memory\n");
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "nimbo: error: %s\n", e.what());
    return 1;
  }
  return 0;
}
