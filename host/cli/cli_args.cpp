#include "cli/cli_args.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "formula/formula_dialect.h"
#include "runtime/effect_actions.h"

namespace nimbo::host {
namespace {

constexpr int32_t kMaxSide = 16384;
constexpr int64_t kMaxFrames = 100000000;
// Below a frame a quarter-hour the encoders' clocks (1/fps as a fraction
// with a denominator up to 1001000) stop being exact.
constexpr double kMinFps = 0.001;
constexpr double kMaxFps = 1000;

bool IsHelp(const std::string& arg) { return arg == "-h" || arg == "--help"; }

// Whether -h or --help stands among `args` as an option of its own, not as
// the value of the option before it ("-o -h" names a file).
bool AsksForHelp(const std::vector<std::string>& args) {
  static const char* const kTakesValue[] = {"-i",       "--input", "--set",   "--dyn",     "--preset", "--save-preset",
                                            "--action", "--then",   "-o",      "--output", "--size",   "--frames", "--fps",
                                            "--values", "--crf",   "--plugins", "--out",   "--only", "--frame"};
  for (size_t i = 0; i < args.size(); ++i) {
    if (!IsHelp(args[i])) continue;
    const bool is_value = i > 0 && std::find_if(std::begin(kTakesValue), std::end(kTakesValue), [&](const char* o) {
                                     return args[i - 1] == o;
                                   }) != std::end(kTakesValue);
    if (!is_value) return true;
  }
  return false;
}

// Walks the arguments; options take their value from the next argument or
// after '=' ("--size=640x360").
class ArgReader {
 public:
  explicit ArgReader(const std::vector<std::string>& args) : args_(args) {}
  bool Done() const { return pos_ >= args_.size(); }
  // The next argument; an option "--name=value" splits into name and value.
  std::string Next() {
    std::string arg = args_[pos_++];
    pending_value_.clear();
    has_pending_ = false;
    if (arg.rfind("--", 0) == 0) {
      const size_t eq = arg.find('=');
      if (eq != std::string::npos) {
        pending_value_ = arg.substr(eq + 1);
        has_pending_ = true;
        arg = arg.substr(0, eq);
      }
    }
    return arg;
  }
  size_t Remaining() const { return args_.size() - pos_; }
  const std::string& Peek() const { return args_[pos_]; }
  // The next argument as it stands, never split as an option.
  std::string Raw() {
    pending_value_.clear();
    has_pending_ = false;
    return args_[pos_++];
  }
  std::string Value(const std::string& option) {
    if (has_pending_) {
      has_pending_ = false;
      return pending_value_;
    }
    if (Done()) throw UsageError(option + " needs a value");
    return args_[pos_++];
  }
  void NoValue(const std::string& option) const {
    if (has_pending_) throw UsageError(option + " takes no value");
  }
  // Value() for an option that may appear once in `scope` (the run, or one
  // effect of it): a second one would silently replace the first.
  std::string Once(const std::string& option, const std::string& scope = "") {
    const std::string value = Value(option);
    const auto [it, fresh] = seen_.emplace(scope + "\n" + option, value);
    if (!fresh) {
      throw UsageError(option + " is given twice (" + Quoted(it->second) + " and " + Quoted(value) + ")" +
                       (scope.empty() ? "" : " for " + scope) + "; give it once");
    }
    return value;
  }
  // Once() for an option that names a file: an empty name (`--values ""`)
  // is refused rather than taken as no option at all.
  std::string FileName(const std::string& option, const std::string& scope = "") {
    std::string value = Once(option, scope);
    if (value.empty()) throw UsageError(option + " needs a file name");
    return value;
  }

 private:
  const std::vector<std::string>& args_;
  size_t pos_ = 0;
  std::string pending_value_;
  bool has_pending_ = false;
  std::map<std::string, std::string> seen_;  // scope + option -> first value
};

template <class T>
bool ParseWhole(const std::string& text, T* out) {
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), *out);
  return ec == std::errc() && ptr == text.data() + text.size() && !text.empty();
}

int64_t ParseFrames(const std::string& option, const std::string& text) {
  int64_t frames = 0;
  if (!ParseWhole(text, &frames) || frames < 1 || frames > kMaxFrames)
    throw UsageError(option + " " + text + ": expected a frame count from 1 to " + std::to_string(kMaxFrames));
  return frames;
}

void ParseSizeOption(const std::string& option, const std::string& text, int32_t* w, int32_t* h) {
  if (!ParseSize(text, w, h))
    throw UsageError(option + " " + text + ": expected WIDTHxHEIGHT, each from 1 to " + std::to_string(kMaxSide));
}

// Options that belong to one effect of a render (the latest named one).
bool ParseStageOption(const std::string& arg, ArgReader& in, StageOptions& stage, size_t index) {
  const std::string scope = "effect " + std::to_string(index + 1) + " (" + stage.effect + ")";
  if (arg == "-i" || arg == "--input") stage.inputs.push_back(in.Value(arg));
  else if (arg == "--set") stage.sets.push_back(in.Value(arg));
  else if (arg == "--dyn") stage.dyns.push_back(in.Value(arg));
  else if (arg == "--preset") stage.preset = in.FileName(arg, scope);
  else if (arg == "--save-preset") stage.save_preset = in.FileName(arg, scope);
  else if (arg == "--action") {
    const std::string text = in.Value(arg);
    ActionRequest request;
    std::string problem;
    if (!ParseActionRequest(text, &request, &problem)) throw UsageError("--action " + text + ": " + problem);
    stage.actions.push_back(text);
  }
  else return false;
  return true;
}

bool ParseCommonOption(const std::string& arg, ArgReader& in, CommandLine& cl) {
  if (arg == "--plugins") cl.plugins = in.FileName(arg);
  else if (arg == "--json") in.NoValue(arg), cl.json = true;
  else if (arg == "--quiet" || arg == "-q") in.NoValue(arg), cl.quiet = true;
  else if (arg == "--verbose") in.NoValue(arg), cl.verbose = true;
  else return false;
  return true;
}

[[noreturn]] void Unknown(const std::string& arg, const std::string& command) {
  if (!arg.empty() && arg[0] == '-') throw UsageError("unknown option " + arg + " for `nimbo " + command + "`");
  throw UsageError("unexpected argument " + Quoted(arg) + " for `nimbo " + command + "`");
}

void ParseRender(ArgReader& in, CommandLine& cl) {
  RenderOptions& r = cl.render;
  while (!in.Done()) {
    const std::string arg = in.Next();
    if (arg == "--then") {
      r.stages.push_back({});
      r.stages.back().effect = in.Value(arg);
    } else if (!r.stages.empty() && ParseStageOption(arg, in, r.stages.back(), r.stages.size() - 1)) {
    } else if (ParseCommonOption(arg, in, cl)) {
    } else if (arg == "-o" || arg == "--output") {
      // -o and --output are one option: "-o a.png --output b.png" is a repeat.
      r.output = in.Once("-o");
    } else if (arg == "--size") {
      ParseSizeOption(arg, in.Once(arg), &r.width, &r.height);
    } else if (arg == "--frames") {
      r.frames = ParseFrames(arg, in.Once(arg));
    } else if (arg == "--fps") {
      const std::string text = in.Once(arg);
      if (!ParseWhole(text, &r.fps) || !(r.fps >= kMinFps && r.fps <= kMaxFps))
        throw UsageError("--fps " + text + ": expected frames per second from 0.001 to 1000 (such as 25 or 29.97)");
    } else if (arg == "--values") {
      r.values = in.FileName(arg);
    } else if (arg == "--keep-alpha") {
      in.NoValue(arg);
      r.keep_alpha = true;
    } else if (arg == "--allow-gaps") {
      in.NoValue(arg);
      r.allow_gaps = true;
    } else if (arg == "--exact-size") {
      in.NoValue(arg);
      r.exact_size = true;
    } else if (arg == "--crf") {
      const std::string text = in.Once(arg);
      if (!ParseWhole(text, &r.crf) || r.crf < 0 || r.crf > 51)
        throw UsageError("--crf " + text + ": expected a quality from 0 (best) to 51");
      r.crf_given = true;
    } else if (r.stages.empty() && (arg.empty() || arg[0] != '-')) {
      r.stages.push_back({});
      r.stages.back().effect = arg;
    } else if (r.stages.empty() && arg[0] == '-' && arg != "-") {
      // Stage options before the effect's name belong to the first effect.
      StageOptions first;
      if (!ParseStageOption(arg, in, first, 0)) Unknown(arg, "render");
      throw UsageError("name the effect first: nimbo render EFFECT " + arg + " ...");
    } else {
      Unknown(arg, "render");
    }
  }
  if (r.stages.empty()) throw UsageError("`nimbo render` needs an effect: nimbo render EFFECT -i IN -o OUT");
  if (r.output.empty()) throw UsageError("`nimbo render` needs an output: -o OUT");
}

void ParseDemo(ArgReader& in, CommandLine& cl) {
  while (!in.Done()) {
    const std::string arg = in.Next();
    if (ParseCommonOption(arg, in, cl)) {
    } else if (arg == "--out" || arg == "-o") {
      cl.demo.out_dir = in.Once("--out");
    } else if (arg == "--size") {
      ParseSizeOption(arg, in.Once(arg), &cl.demo.width, &cl.demo.height);
    } else if (arg == "--frames") {
      cl.demo.frames = ParseFrames(arg, in.Once(arg));
    } else if (arg == "--only") {
      cl.demo.only.push_back(in.Value(arg));
    } else if (arg == "--stills") {
      cl.demo.stills_dir = in.FileName(arg);
    } else {
      Unknown(arg, "demo");
    }
  }
}

void ParseFormula(ArgReader& in, CommandLine& cl) {
  FormulaOptions& f = cl.formula;
  // "-h" alone asks for help; anywhere else it is the formula "-h" (minus h).
  if (in.Remaining() == 1 && in.Peek() == "-h") {
    f.help = true;
    return;
  }
  bool rest_is_text = false;
  while (!in.Done()) {
    const std::string arg = rest_is_text ? in.Raw() : in.Next();
    // Only "--" options are options: a formula may start with '-'.
    const bool option = !rest_is_text && arg.rfind("--", 0) == 0;
    if (option && arg == "--") {
      rest_is_text = true;
    } else if (option && arg == "--help") {
      f.help = true;
    } else if (option && arg == "--json") {
      in.NoValue(arg);
      cl.json = true;
    } else if (option && arg == "--program") {
      in.NoValue(arg);
      f.program = true;
    } else if (option && arg == "--allow") {
      f.allow = in.Value(arg);
      f.allow_given = true;
    } else if (option && arg == "--var") {
      f.vars.push_back(in.Value(arg));
    } else if (option && arg == "--result") {
      f.result = in.Value(arg);
    } else if (option && arg == "--outputs") {
      f.outputs = formula::SplitNames(in.Value(arg));
    } else if (option) {
      Unknown(arg, "formula");
    } else if (f.text_given) {
      throw UsageError("`nimbo formula` takes one TEXT; quote the formula (" + Quoted(arg) + " is a second one)");
    } else {
      f.text = arg;
      f.text_given = true;
    }
  }
  if (f.help) return;
  if (!f.text_given) throw UsageError("`nimbo formula` needs the formula: nimbo formula [options] TEXT");
  if (!f.program && (!f.result.empty() || !f.outputs.empty()))
    throw UsageError("--result and --outputs belong to --program");
  if (f.program && f.allow_given) throw UsageError("--allow belongs to the formula dialect, not --program");
}

void ParseScene(ArgReader& in, CommandLine& cl) {
  SceneOptions& o = cl.scene;
  bool file_given = false;
  while (!in.Done()) {
    const std::string arg = in.Next();
    if (ParseCommonOption(arg, in, cl)) {
    } else if (arg == "--vertices") {
      in.NoValue(arg);
      o.vertices = true;
    } else if (arg == "--frame") {
      const std::string text = in.Once(arg);
      double frame = 0;
      if (!ParseWhole(text, &frame) || !std::isfinite(frame) || std::fabs(frame) > 2147483647.0)
        throw UsageError("--frame " + text + ": expected a frame number (such as 0, 12 or 7.5)");
      o.frame = float(frame);
      o.frame_given = true;
    } else if (!arg.empty() && arg[0] == '-' && arg != "-" && !file_given) {
      Unknown(arg, "scene");
    } else if (file_given) {
      Unknown(arg, "scene");
    } else {
      o.file = arg;
      file_given = true;
    }
  }
  if (!file_given) throw UsageError("`nimbo scene` needs a file: nimbo scene FILE [--json] [--vertices] [--frame N]");
}

}  // namespace

bool ParseSize(const std::string& text, int32_t* width, int32_t* height) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string::npos) return false;
  int32_t w = 0, h = 0;
  if (!ParseWhole(text.substr(0, x), &w) || !ParseWhole(text.substr(x + 1), &h)) return false;
  if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide) return false;
  *width = w;
  *height = h;
  return true;
}

CommandLine ParseCommandLine(const std::vector<std::string>& args) {
  CommandLine cl;
  if (args.empty()) return cl;
  const std::string& command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  ArgReader in(rest);
  const bool known =
      command == "list" || command == "info" || command == "render" || command == "demo" || command == "scene";
  if (command == "help" || IsHelp(command)) {
    // "nimbo help render" and "nimbo --help render" answer the command's usage.
    cl.kind = CommandKind::kHelp;
    while (!in.Done()) {
      const std::string arg = in.Next();
      if (ParseCommonOption(arg, in, cl)) continue;
      if (!cl.help_topic.empty() ||
          (arg != "list" && arg != "info" && arg != "render" && arg != "demo" && arg != "formula" && arg != "scene"))
        throw UsageError("no help on " + Quoted(arg) + " (commands: list, info, render, demo, formula, scene)");
      cl.help_topic = arg;
    }
  } else if (known && AsksForHelp(rest)) {
    // -h or --help anywhere after a command prints its usage and does nothing else.
    cl.kind = CommandKind::kHelp;
    cl.help_topic = command;
  } else if (command == "version" || command == "--version") {
    cl.kind = CommandKind::kVersion;
  } else if (command == "list") {
    cl.kind = CommandKind::kList;
    while (!in.Done()) {
      const std::string arg = in.Next();
      if (!ParseCommonOption(arg, in, cl)) Unknown(arg, "list");
    }
  } else if (command == "info") {
    cl.kind = CommandKind::kInfo;
    while (!in.Done()) {
      const std::string arg = in.Next();
      if (ParseCommonOption(arg, in, cl)) continue;
      if (!cl.effect.empty() || arg.empty() || arg[0] == '-') Unknown(arg, "info");
      cl.effect = arg;
    }
    if (cl.effect.empty()) throw UsageError("`nimbo info` needs an effect: nimbo info EFFECT");
  } else if (command == "render") {
    cl.kind = CommandKind::kRender;
    ParseRender(in, cl);
  } else if (command == "demo") {
    cl.kind = CommandKind::kDemo;
    ParseDemo(in, cl);
  } else if (command == "formula") {
    cl.kind = CommandKind::kFormula;
    ParseFormula(in, cl);
  } else if (command == "scene") {
    cl.kind = CommandKind::kScene;
    ParseScene(in, cl);
  } else {
    throw UsageError("unknown command " + Quoted(command) +
                     " (commands: list, info, render, demo, formula, scene, help)");
  }
  return cl;
}

namespace {

constexpr const char* kRenderUsage = R"(usage: nimbo render EFFECT [-i IN]... -o OUT [options]

for the effect named last:
  -i IN                 an input: picture, image sequence (name_%04d.png), video, /dev/videoN
  --set KEY=VALUE       a setting (see `nimbo info EFFECT` for the keys and types)
  --dyn NAME=VALUE      a dynamic variable or slider, constant ...
  --dyn NAME=v0@t0,v1@t1,...   ... or keyframed (seconds, linear); one --dyn per name
  --preset FILE         start from a saved settings document
  --save-preset FILE    save the effect's settings after the render
  --action NAME=FILE    one of the effect's file commands (`nimbo info EFFECT` lists them):
                        load-... reads FILE before the first frame, save-... writes FILE after the last
  --then EFFECT         chain: EFFECT takes the previous output as its first input
for the whole run (each at most once):
  -o OUT                picture (.png .jpg .bmp .tif .tga .ppm: the last frame), image sequence
                        (name_%04d.png: one per frame), or video (.mp4 .mkv .mov .webm .avi)
  --size WxH            render size (default: the first input's; without inputs 640x480, 512x512 for WAX)
  --frames N            number of frames (default: all of the first input; 1 for a picture;
                        without inputs 1 into a picture, else 5 seconds)
  --fps F               frame rate, 0.001 to 1000 (default: the first input's, else 25)
  --values FILE.csv     each frame's published output values (ColorTracker's "track x", ...; .json: JSON)
  --keep-alpha          keep the alpha byte (TIFF/BMP/TGA, .mov/.mkv/.webm; PNG always keeps it); opaque otherwise
  --crf N               video quality, 0 (best) to 51 (default 18)
  --exact-size          keep an odd video size (H.264 4:4:4) instead of padding it to an even one
  --allow-gaps          read an image sequence with missing numbers instead of stopping
  --plugins DIR         folder of nimbo_one.fxp     --quiet   no progress bar     --verbose   FFmpeg's messages

All outputs appear together once the render has succeeded; no output may be an input.
Exit codes: 0 done, 1 error, 2 malformed command line, 128+N ended by signal N (130 SIGINT, 143 SIGTERM).
)";

constexpr const char* kListUsage = R"(usage: nimbo list [--json] [--plugins DIR]

One line per effect, in index order: index, name, category, output name and input names.
--json prints an array of objects instead.
)";

constexpr const char* kInfoUsage = R"(usage: nimbo info EFFECT [--json] [--plugins DIR]

The effect's inputs, settings keys (type, default, range), dynamic variables, sliders,
published output values and file commands (--action NAME=FILE). EFFECT is a name ("ChromaKeyPRO", "Blob 3D", "nimbo one\LowQ"), in
any case, or an index from `nimbo list`.
)";

constexpr const char* kDemoUsage = R"(usage: nimbo demo [--out DIR] [--size WxH] [--frames N] [--only EFFECT]... [--stills DIR2] [--plugins DIR]

Renders every effect (or those named by --only) on generated media into DIR/<effect>.mp4
and DIR/contact_sheet.png. DIR defaults to nimbo-demo; 48 frames at 320x180 by default.
  --stills DIR2   also each effect's tile (its middle frame) as DIR2/<effect>.png; an effect
                  that drew no picture gets none
)";

constexpr const char* kSceneUsage = R"(usage: nimbo scene FILE [--json] [--vertices] [--frame N]

What a 3D Studio (.3ds) scene holds, as the 3D effects read it: version, frame range,
ambient colour, materials (entry 0 is "default"), meshes, lights, cameras and dummies.
Points are given as the reader stores them: the file's y and z swapped (y up).
  --json        one JSON object: {"ok": true, "version": V, "frames": {...}, "materials": [...], ...}
                or {"ok": false, "code": C, "message": "..."}
  --vertices    also every vertex position and every face (three indices and the flags word)
  --frame N     also each mesh's pose (position, rotation quaternion [w, x, y, z], scale, hidden) at frame N
Exit codes: 0 read, 1 the file could not be read (the reader's error code and text), 2 malformed command line.
)";

}  // namespace

std::string UsageText(const std::string& command) {
  if (command == "render") return kRenderUsage;
  if (command == "list") return kListUsage;
  if (command == "info") return kInfoUsage;
  if (command == "demo") return kDemoUsage;
  if (command == "formula") return FormulaUsageText();
  if (command == "scene") return kSceneUsage;
  return UsageText();
}

const char* UsageText() {
  return R"(nimbo - renders the nimbo one video effects over pictures and videos

usage:
  nimbo list [--json]                      the effects: index, name, category, inputs, output
  nimbo info EFFECT [--json]               inputs, settings keys, dynamic variables, sliders, outputs
  nimbo render EFFECT [-i IN]... -o OUT [options]
  nimbo demo [--out DIR] [--stills DIR2]   every effect on generated media: clips, a contact sheet
                                           and (--stills) each effect's tile as DIR2/<effect>.png
  nimbo formula [options] TEXT             checks and evaluates a formula (`nimbo formula -h`)
  nimbo scene FILE [--json] [--vertices] [--frame N]   what a .3ds scene holds (`nimbo scene -h`)
  nimbo help [COMMAND] | --version         `nimbo COMMAND --help` (or -h) shows one command's options

EFFECT is a name ("ChromaKeyPRO", "Blob 3D", "3D Effect\Blob 3D",
"nimbo one\LowQ"), in any case, or an index from `nimbo list`.

render, for the effect named last:
  -i IN                 an input: picture, image sequence (name_%04d.png), video, /dev/videoN
  --set KEY=VALUE       a setting (see `nimbo info EFFECT` for the keys and types)
  --dyn NAME=VALUE      a dynamic variable or slider, constant ...
  --dyn NAME=v0@t0,v1@t1,...   ... or keyframed (seconds, linear)
  --preset FILE         start from a saved settings document
  --save-preset FILE    save the effect's settings after the render
  --action NAME=FILE    a file command: load-... before the first frame, save-... after the last
  --then EFFECT         chain: EFFECT takes the previous output as its first input
render, for the whole run:
  -o OUT                picture (last frame), name_%04d.png (one per frame), or video (.mp4 .mkv .mov .webm .avi)
  --size WxH            render size (default: the first input's; without inputs 640x480, 512x512 for WAX)
  --frames N            number of frames (default: all of the first input; 1 for a picture;
                        without inputs 1 into a picture, else 5 seconds)
  --fps F               frame rate (default: the first input's, else 25)
  --values FILE.csv     each frame's published output values (ColorTracker's "track x", ...; .json: JSON)
  --keep-alpha          keep the alpha byte (TIFF, .mov/.mkv/.webm; PNG always keeps it); opaque otherwise
  --crf N               video quality, 0 (best) to 51 (default 18)
  --exact-size          keep an odd video size instead of padding it to an even one
  --allow-gaps          read an image sequence with missing numbers
common:
  --plugins DIR         folder of nimbo_one.fxp (default: NIMBO_PLUGINS_PATH, else ../plugins)
  --quiet               no progress bar     --verbose   FFmpeg's own messages
)";
}

const char* FormulaUsageText() {
  return R"(nimbo formula - checks a formula before you type it into an effect, and evaluates it

usage:
  nimbo formula [--allow NAMES] [--var NAME=VALUE]... [--json] TEXT
  nimbo formula --program [--result NAME] [--outputs N1,N2,...] [--var NAME=VALUE]... [--json] TEXT

formula dialect (Evaluator3D's fields):
  --allow NAMES         the formula's own names, comma-separated (default i,j,hmap,a,b,c,d,e,f,g,h);
                        t, imax, jmax, pi, screenw, screenh are always allowed
  --var NAME=VALUE      sets a variable; any other name declares a user variable (codes 276 on)
program dialect (--program, ImplicitBeast's programs; TEXT holds the lines):
  --result NAME         the last line must assign NAME (as ImplicitBeast requires FUN)
  --outputs N1,N2,...   output names whose values are printed
  --var NAME=VALUE      sets T, X, Y or Z, or declares a user variable with that value
both:
  --json                {"ok": true, "value": V, "code": [...]} or {"ok": false, "position": P}
  --                    the next argument is TEXT even if it starts with --
  -h, --help            this text (-h only alone: `nimbo formula -- -h` evaluates minus h)

Prints the value ("%.9g") and exits 0, or prints the error and exits 1. An error
position counts characters of the prepared text: upper case folded, blanks
deleted, each variable name one character. TEXT may be at most 65536 bytes.
)";
}

}  // namespace nimbo::host
