// nimbo render: one effect, or a chain of them, over media files into a
// picture, an image sequence or a video.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "runtime/effect_actions.h"
#include "runtime/effect_chain.h"
#include "media/media_input.h"
#include "media/ffmpeg_util.h"
#include "media/media_output.h"
#include "runtime/output_aliases.h"
#include "runtime/output_commit.h"
#include "runtime/pending_file.h"
#include "cli/progress_bar.h"
#include "cli/text_out.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::host {
namespace {

constexpr double kDefaultFps = 25.0;
// A run without inputs that loads a .3ds scene (3DSViewer's load-3ds) takes
// its length from the scene, whose keyframes play at 30 a second, and this
// picture size.
constexpr int32_t kSceneWidth = 640, kSceneHeight = 480;
constexpr double kSceneKeysPerSecond = 30.0;
constexpr int64_t kMaxSceneFrames = 100000;
// A run with neither inputs nor a scene has nothing to take its size and
// length from: a WAX volume comes out as its 512x512 screen, any other
// picture at 640x480; one frame into a single picture, five seconds of
// video otherwise.
constexpr int32_t kWaxScreenSide = 512;
constexpr double kNoInputSeconds = 5.0;

bool MakesWaxVolume(const EffectEntry& entry) {
  return entry.short_name == "3DStoWAX" || entry.output_name.rfind("WAX", 0) == 0;
}

bool IsSinglePicture(const std::string& path) {
  const std::string ext = ExtensionOf(path);
  return path.find('%') == std::string::npos && IsStillImageExtension(ext);
}

// Published output values of every frame, streamed into the pending file
// (in blocks, so memory stays flat however long the run): CSV rows, or for a
// file named *.json an array with one object per frame, keyed by the same
// column names.
class ValuesTable {
 public:
  ValuesTable(const std::string& path, const EffectChain& chain)
      : file_(path), json_(ExtensionOf(path) == "json"), columns_{"frame", "time"} {
    // In a chain each name carries its effect's ("ColorTracker/track x"),
    // and a second stage of the same effect its count ("ColorTracker#2/...").
    const bool prefix = chain.Stages().size() > 1;
    std::map<std::string, int> seen;
    for (const auto& stage : chain.Stages()) {
      const std::string& effect = stage->Entry().short_name;
      const int count = ++seen[effect];
      const std::string owner = count > 1 ? effect + "#" + std::to_string(count) : effect;
      for (const OutputValue& v : stage->OutputValues()) columns_.push_back(prefix ? owner + "/" + v.name : v.name);
    }
    if (columns_.size() == 2) {
      std::string names;
      for (const auto& stage : chain.Stages()) names += (names.empty() ? "" : ", ") + stage->Entry().short_name;
      throw HostError("--values " + path + ": " + names + " publishes no output values");
    }
    if (json_) {
      text_ = "[";
      return;
    }
    for (size_t k = 0; k < columns_.size(); ++k) text_ += (k ? "," : "") + CsvField(columns_[k]);
    text_ += "\n";
  }
  PendingFile& File() { return file_; }
  void AddRow(const EffectChain& chain, int64_t frame, double fps) {
    std::vector<std::string> cells = {std::to_string(frame), NumberText(double(frame) / fps)};
    for (const auto& stage : chain.Stages()) {
      for (const OutputValue& v : stage->OutputValues())
        cells.push_back(json_ && !std::isfinite(v.value) ? "null" : FloatText(v.value));
    }
    if (json_) {
      text_ += rows_ ? ",\n  {" : "\n  {";
      for (size_t k = 0; k < cells.size(); ++k) text_ += (k ? ", " : "") + JsonString(columns_[k]) + ": " + cells[k];
      text_ += "}";
    } else {
      for (size_t k = 0; k < cells.size(); ++k) text_ += (k ? "," : "") + cells[k];
      text_ += "\n";
    }
    ++rows_;
    if (text_.size() >= kBlock) Flush();
  }
  // After the last frame: writes what is left (and closes the JSON array).
  void Finish() {
    if (json_) text_ += rows_ ? "\n]\n" : "]\n";
    Flush();
  }

 private:
  void Flush() {
    file_.Append(text_.data(), text_.size());
    text_.clear();
  }
  static constexpr size_t kBlock = 64 * 1024;
  PendingFile file_;
  bool json_;
  std::vector<std::string> columns_;
  std::string text_;
  int64_t rows_ = 0;
};

// The stage's --action requests (each already checked by the parser).
std::vector<ActionRequest> StageActions(const StageOptions& stage) {
  std::vector<ActionRequest> requests;
  for (const std::string& text : stage.actions) {
    ActionRequest request;
    std::string problem;
    if (!ParseActionRequest(text, &request, &problem)) throw HostError("--action " + text + ": " + problem);
    requests.push_back(request);
  }
  return requests;
}

void Warn(const std::string& text) { std::fprintf(stderr, "nimbo: warning: %s\n", text.c_str()); }

// The scene file the stage loads with --action load-3ds=FILE, or "".
std::string LoadedScene(const StageOptions& stage) {
  for (const std::string& text : stage.actions) {
    ActionRequest request;
    std::string problem;
    if (ParseActionRequest(text, &request, &problem) && request.name == "load-3ds") return request.path;
  }
  return "";
}

// Frames at `fps` that show the scene's animation once; 1 when the file is
// no scene (the effect's command then says so).
int64_t SceneFrames(const std::string& path, double fps) {
  C3DSScene scene;
  if (!scene.Load(path)) return 1;
  const double frames = std::ceil(double(scene.FrameCount()) / kSceneKeysPerSecond * fps);
  return std::isfinite(frames) ? std::clamp<int64_t>(int64_t(std::min(frames, 1e12)), 1, kMaxSceneFrames) : 1;
}

// Every path the run reads and writes, for the check that no output is an
// input or another output.
void CheckPaths(const RenderOptions& r) {
  std::vector<RolePath> inputs, outputs{{"-o", r.output}};
  if (!r.values.empty()) outputs.push_back({"--values", r.values});
  for (const StageOptions& stage : r.stages) {
    for (const std::string& in : stage.inputs) inputs.push_back({"-i", in});
    if (!stage.preset.empty()) {
      // A preset is read whole by the settings reader, which would wait on a
      // pipe unseen by the signals; only plain files are presets.
      struct stat info {};
      if (stat(stage.preset.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw HostError("cannot load preset " + Quoted(stage.preset) + ": it is not a file (a preset is a settings file)");
      inputs.push_back({"--preset", stage.preset});
    }
    if (!stage.save_preset.empty()) outputs.push_back({"--save-preset", stage.save_preset});
    for (const ActionRequest& action : StageActions(stage)) {
      (action.Saves() ? outputs : inputs).push_back({"--action " + action.name, action.path});
    }
  }
  CheckOutputsDoNotAlias(inputs, outputs);
}

// Options that do nothing for this output are named rather than dropped.
void WarnAboutUnusedOptions(const RenderOptions& r) {
  const bool video = !HasFramePattern(r.output) && IsVideoOutputExtension(ExtensionOf(r.output));
  if (r.crf_given && !video) Warn("--crf sets a video's quality; " + Quoted(r.output) + " is not a video, so it is unused");
  if (r.exact_size && !video)
    Warn("--exact-size concerns odd-sized videos; " + Quoted(r.output) + " is not a video, so it is unused");
  if (r.allow_gaps) {
    bool sequence = false;
    for (const StageOptions& stage : r.stages) {
      for (const std::string& in : stage.inputs) sequence = sequence || HasFramePattern(in);
    }
    if (!sequence) Warn("--allow-gaps concerns image sequence inputs (name_%04d.png); there is none, so it is unused");
  }
}

}  // namespace

int RunRender(const CommandLine& cl) {
  const RenderOptions& r = cl.render;
  // Before anything is read or written: no output may land on an input or
  // on another output.
  CheckPaths(r);
  CheckOutputName(r.output);
  WarnAboutUnusedOptions(r);
  const auto package = LoadPackage(cl);
  std::vector<const EffectEntry*> entries;
  for (const StageOptions& stage : r.stages) entries.push_back(&package->Find(stage.effect));
  for (size_t k = 0; k < r.stages.size(); ++k) CheckInputCount(*entries[k], r.stages[k].inputs.size() + (k ? 1 : 0));

  std::vector<std::vector<std::unique_ptr<FrameSource>>> sources(r.stages.size());
  for (size_t k = 0; k < r.stages.size(); ++k) {
    for (const std::string& path : r.stages[k].inputs)
      sources[k].push_back(OpenMedia(path, InputOptions{r.allow_gaps}));
  }
  const FrameSource* first = sources[0].empty() ? nullptr : sources[0][0].get();

  const std::string scene = first ? "" : LoadedScene(r.stages[0]);
  int32_t width = r.width, height = r.height;
  if (width == 0 && !first) {
    if (MakesWaxVolume(*entries.back())) width = height = kWaxScreenSide;
    else width = kSceneWidth, height = kSceneHeight;
  }
  if (width == 0) {
    width = first->Width();
    height = first->Height();
  }
  double fps = r.fps;
  for (size_t k = 0; k < sources.size() && fps == 0; ++k) {
    for (const auto& source : sources[k]) {
      if (source->FrameRate() > 0) {
        fps = source->FrameRate();
        break;
      }
    }
  }
  if (fps == 0) fps = kDefaultFps;

  int64_t frames = r.frames;
  if (frames < 0 && !scene.empty()) frames = SceneFrames(scene, fps);
  // At the slowest rates five seconds are less than a frame: one is drawn.
  if (frames < 0 && !first)
    frames = IsSinglePicture(r.output) ? 1 : std::max<int64_t>(1, std::llround(kNoInputSeconds * fps));
  if (frames < 0) {
    if (first->IsStill()) frames = 1;
    else if (IsCameraPath(r.stages[0].inputs[0])) throw HostError("a camera input needs --frames N");
  }

  CheckOutputSize(r.output, width, height);  // before the effects allocate for that size
  EffectChain chain(*package, width, height, fps);
  for (size_t k = 0; k < r.stages.size(); ++k) chain.Add(*entries[k], r.stages[k], std::move(sources[k]));

  // Every output is claimed before the first frame, so an unwritable one
  // fails now rather than after a long render; all of them are put in
  // place together at the end.
  OutputCommit commit;
  std::vector<std::unique_ptr<PendingFile>> presets(r.stages.size());
  for (size_t k = 0; k < r.stages.size(); ++k) {
    if (r.stages[k].save_preset.empty()) continue;
    presets[k] = std::make_unique<PendingFile>(r.stages[k].save_preset);
    commit.Add(*presets[k]);
  }
  // File commands: loads run now, on the configured effects; each save
  // writes a pending file after the last frame.
  std::vector<std::vector<ActionRequest>> actions(r.stages.size());
  std::vector<std::vector<std::unique_ptr<PendingFile>>> saved(r.stages.size());
  for (size_t k = 0; k < r.stages.size(); ++k) {
    actions[k] = StageActions(r.stages[k]);
    EffectStage& stage = *chain.Stages()[k];
    CheckActionsExist(stage.Effect(), entries[k]->short_name, actions[k]);
    for (const ActionRequest& action : actions[k]) {
      if (!action.Saves()) continue;
      saved[k].push_back(std::make_unique<PendingFile>(action.path));
      commit.Add(*saved[k].back());
    }
  }
  for (size_t k = 0; k < r.stages.size(); ++k) {
    for (const ActionRequest& action : actions[k]) {
      if (!action.Saves()) RunAction(chain.Stages()[k]->Effect(), entries[k]->short_name, action, action.path);
    }
  }
  std::unique_ptr<ValuesTable> values;
  if (!r.values.empty()) {
    values = std::make_unique<ValuesTable>(r.values, chain);
    commit.Add(values->File());
  }
  auto output = CreateOutput(r.output, width, height, OutputOptions{r.keep_alpha, r.crf, fps, r.exact_size}, &commit);
  if (!output->Note().empty()) std::fprintf(stderr, "nimbo: note: %s\n", output->Note().c_str());

  int64_t total = frames;
  if (chain.HasPacingInput() && first->FrameCountHint() > 0)
    total = frames > 0 ? std::min(frames, first->FrameCountHint()) : first->FrameCountHint();
  ProgressBar progress("nimbo", total, ProgressWanted(cl.quiet));
  while (frames < 0 || chain.FramesRendered() < frames) {
    ThrowIfInterrupted();
    if (!chain.RenderNext()) break;
    output->Write(chain.Output());
    if (values) values->AddRow(chain, chain.FramesRendered() - 1, fps);
    progress.Update(chain.FramesRendered());
  }
  progress.Finish();
  if (chain.FramesRendered() == 0) throw HostError(first->Name() + " holds no frames");
  ThrowIfInterrupted();

  output->Finish();
  if (values) values->Finish();
  for (size_t k = 0; k < r.stages.size(); ++k) {
    size_t next_save = 0;
    for (const ActionRequest& action : actions[k]) {
      if (action.Saves())
        RunAction(chain.Stages()[k]->Effect(), entries[k]->short_name, action, saved[k][next_save++]->TempPath());
    }
    if (presets[k]) chain.Stages()[k]->SavePreset(*presets[k]);
  }
  commit.Commit();

  if (frames > 0 && chain.FramesRendered() < frames) {
    Warn("asked for " + std::to_string(frames) + " frames, but " + Quoted(first->Name()) + " ended after " +
         std::to_string(chain.FramesRendered()) + ", so " + std::to_string(chain.FramesRendered()) +
         " frames were rendered");
  }
  for (const std::string& warning : chain.InputWarnings()) Warn(warning);
  for (const auto& stage : chain.Stages()) {
    if (stage->FailedFrames() > 0 && !cl.quiet) {
      Warn(stage->Entry().short_name + " drew nothing in " + std::to_string(stage->FailedFrames()) + " of " +
           std::to_string(chain.FramesRendered()) + " frames (they are black)");
    }
  }
  return 0;
}

}  // namespace nimbo::host
