// nimbo render: one effect, or a chain of them, over media files into a
// picture, an image sequence or a video.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "runtime/effect_chain.h"
#include "media/media_input.h"
#include "media/media_output.h"
#include "runtime/pending_file.h"
#include "cli/progress_bar.h"
#include "cli/text_out.h"

namespace nimbo::host {
namespace {

constexpr double kDefaultFps = 25.0;

// Published output values of every frame, as CSV text kept until the end.
class ValuesTable {
 public:
  ValuesTable(const std::string& path, const EffectChain& chain) : file_(path) {
    const bool prefix = chain.Stages().size() > 1;
    text_ = "frame,time";
    for (const auto& stage : chain.Stages()) {
      for (const OutputValue& v : stage->OutputValues()) {
        text_ += "," + CsvField(prefix ? stage->Entry().short_name + "/" + v.name : v.name);
        ++columns_;
      }
    }
    text_ += "\n";
    if (columns_ == 0) {
      std::string names;
      for (const auto& stage : chain.Stages()) names += (names.empty() ? "" : ", ") + stage->Entry().short_name;
      throw HostError("--values " + path + ": " + names + " publishes no output values");
    }
  }
  void AddRow(const EffectChain& chain, int64_t frame, double fps) {
    text_ += std::to_string(frame) + "," + NumberText(double(frame) / fps);
    for (const auto& stage : chain.Stages()) {
      for (const OutputValue& v : stage->OutputValues()) text_ += "," + FloatText(v.value);
    }
    text_ += "\n";
  }
  void Commit() {
    file_.WriteAll(text_.data(), text_.size());
    file_.Commit();
  }

 private:
  PendingFile file_;
  std::string text_;
  int columns_ = 0;
};

}  // namespace

int RunRender(const CommandLine& cl) {
  const RenderOptions& r = cl.render;
  const auto package = LoadPackage(cl);
  std::vector<const EffectEntry*> entries;
  for (const StageOptions& stage : r.stages) entries.push_back(&package->Find(stage.effect));
  for (size_t k = 0; k < r.stages.size(); ++k) CheckInputCount(*entries[k], r.stages[k].inputs.size() + (k ? 1 : 0));

  std::vector<std::vector<std::unique_ptr<FrameSource>>> sources(r.stages.size());
  for (size_t k = 0; k < r.stages.size(); ++k) {
    for (const std::string& path : r.stages[k].inputs) sources[k].push_back(OpenMedia(path));
  }
  const FrameSource* first = sources[0].empty() ? nullptr : sources[0][0].get();

  int32_t width = r.width, height = r.height;
  if (width == 0) {
    if (!first) throw HostError(entries[0]->short_name + " has no input here: give --size WxH and --frames N");
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
  if (frames < 0) {
    if (!first) throw HostError(entries[0]->short_name + " has no input here: give --frames N (and --size WxH)");
    if (first->IsStill()) frames = 1;
    else if (IsCameraPath(r.stages[0].inputs[0])) throw HostError("a camera input needs --frames N");
  }

  EffectChain chain(*package, width, height, fps);
  for (size_t k = 0; k < r.stages.size(); ++k) chain.Add(*entries[k], r.stages[k], std::move(sources[k]));

  // Every file is claimed before the first frame, so an unwritable one fails
  // now rather than after a long render.
  std::vector<std::unique_ptr<PendingFile>> presets(r.stages.size());
  for (size_t k = 0; k < r.stages.size(); ++k) {
    if (!r.stages[k].save_preset.empty()) presets[k] = std::make_unique<PendingFile>(r.stages[k].save_preset);
  }
  std::unique_ptr<ValuesTable> values;
  if (!r.values.empty()) values = std::make_unique<ValuesTable>(r.values, chain);
  auto output = CreateOutput(r.output, width, height, OutputOptions{r.keep_alpha, r.crf, fps});

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

  output->Finish();
  if (values) values->Commit();
  for (size_t k = 0; k < r.stages.size(); ++k) {
    if (presets[k]) chain.Stages()[k]->SavePreset(*presets[k]);
  }
  for (const auto& stage : chain.Stages()) {
    if (stage->FailedFrames() > 0 && !cl.quiet) {
      std::fprintf(stderr, "nimbo: warning: %s drew nothing in %lld of %lld frames (they are black)\n",
                   stage->Entry().short_name.c_str(), static_cast<long long>(stage->FailedFrames()),
                   static_cast<long long>(chain.FramesRendered()));
    }
  }
  return 0;
}

}  // namespace nimbo::host
