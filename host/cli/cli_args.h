// The nimbo command line, parsed into what each command needs. Parsing only
// checks forms (numbers, sizes, option names); whether an effect, key or
// file exists is the command's business.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/effect_stage.h"
#include "runtime/host_error.h"

namespace nimbo::host {

// A malformed command line: printed like any error, exit code 2.
class UsageError : public HostError {
 public:
  using HostError::HostError;
};

struct RenderOptions {
  std::vector<StageOptions> stages;  // the chain, first effect first
  std::string output;
  int32_t width = 0;   // 0: the first input's size
  int32_t height = 0;
  int64_t frames = -1;  // -1: as many as the first input has
  double fps = 0;       // 0: the first input's rate, else 25
  std::string values;   // CSV of published outputs
  bool keep_alpha = false;
  int crf = 18;
  bool crf_given = false;   // --crf was on the command line
  bool allow_gaps = false;  // image sequences may skip numbers
  bool exact_size = false;  // an odd video size is kept, not padded
};

struct DemoOptions {
  std::string out_dir = "nimbo-demo";
  int32_t width = 320;
  int32_t height = 180;
  int64_t frames = 48;
  std::vector<std::string> only;  // effects to render; empty = all
  std::string stills_dir;         // --stills: each tile as DIR/<effect>.png; empty = none
};

struct FormulaOptions {
  bool help = false;            // -h: the command's own usage
  bool program = false;         // --program: the program dialect
  bool allow_given = false;
  std::string allow;            // --allow: comma-separated own names
  std::string result;           // --result: the required last line's name
  std::vector<std::string> outputs;  // --outputs
  std::vector<std::string> vars;     // --var NAME=VALUE, in order
  bool text_given = false;
  std::string text;
};

struct SceneOptions {
  std::string file;
  bool vertices = false;   // --vertices: every vertex and face
  bool frame_given = false;
  float frame = 0;         // --frame N: pose every mesh at frame N
};

enum class CommandKind { kHelp, kVersion, kList, kInfo, kRender, kDemo, kFormula, kScene };

struct CommandLine {
  CommandKind kind = CommandKind::kHelp;
  std::string plugins;  // --plugins DIR
  bool json = false;
  bool quiet = false;    // no progress bar
  bool verbose = false;  // FFmpeg's own log lines
  std::string effect;    // info
  std::string help_topic;  // kHelp: "" for all, or the command asked about
  RenderOptions render;
  DemoOptions demo;
  FormulaOptions formula;
  SceneOptions scene;
};

// `args` without the program name. Throws UsageError.
CommandLine ParseCommandLine(const std::vector<std::string>& args);

// "WxH" with both sides 1..16384.
bool ParseSize(const std::string& text, int32_t* width, int32_t* height);

// The text `nimbo help` prints; with a command's name, that command's usage.
const char* UsageText();
std::string UsageText(const std::string& command);
// The text `nimbo formula -h` prints.
const char* FormulaUsageText();

}  // namespace nimbo::host
