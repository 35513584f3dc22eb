// nimbo demo: every effect on generated media, as one short clip each and a
// labelled contact sheet, with nothing asked of the user; with --stills, each
// tile also as its own picture (the help pages show them).
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "cli/contact_sheet.h"
#include "cli/demo_media.h"
#include "cli/demo_plan.h"
#include "cli/demo_scene.h"
#include "runtime/effect_chain.h"
#include "media/media_output.h"
#include "cli/progress_bar.h"

namespace nimbo::host {
namespace {

std::string FileNameFor(const std::string& name) {
  std::string file;
  for (char c : name) file += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_') ? c : '_';
  return file;
}

struct DemoResult {
  FrameBuffer middle;  // the tile
  std::string note;    // "no picture", "failed"
};

// Renders the steps that show `entry` (demo_plan.h) into `clip`.
DemoResult RenderDemo(const Package& package, const EffectEntry& entry, const DemoOptions& o, const std::string& clip,
                      ProgressBar& progress, int64_t done_before) {
  DemoResult result;
  std::unique_ptr<DistorterPreset> preset;
  if (NeedsDistorterPreset(entry)) preset = std::make_unique<DistorterPreset>(o.width, o.height);
  std::unique_ptr<DemoSceneFile> scene;
  if (NeedsScene(entry)) scene = std::make_unique<DemoSceneFile>();
  const DemoFiles files{preset ? preset->Path() : "", scene ? scene->Path() : ""};

  EffectChain chain(package, o.width, o.height, kDemoFps);
  for (const DemoStep& step : PlanDemo(package, entry, files, o.width, o.height, o.frames)) {
    std::vector<std::unique_ptr<FrameSource>> sources;
    for (DemoMedia media : step.media) sources.push_back(MakeDemoSource(media, o.width, o.height, o.frames));
    chain.Add(*step.entry, step.options, std::move(sources), step.link);
  }

  auto output = CreateOutput(clip, o.width, o.height, OutputOptions{false, 23, kDemoFps});
  while (chain.FramesRendered() < o.frames) {
    ThrowIfInterrupted();
    if (!chain.RenderNext()) break;
    output->Write(chain.Output());
    if (chain.FramesRendered() == o.frames / 2 + 1) result.middle = chain.Output();
    progress.Update(done_before + chain.FramesRendered());
  }
  output->Finish();
  if (result.middle.pixels.empty()) result.middle = chain.Output();
  // A step that drew no frame at all (an engine that is not there, a volume
  // of the wrong size) leaves the tile without the effect's picture.
  for (const auto& stage : chain.Stages()) {
    if (stage->FailedFrames() == chain.FramesRendered()) result.note = "no picture";
  }
  return result;
}

// The tile as its own picture, `dir`/<clip name>.png.
void WriteStill(const std::string& dir, const std::string& file_name, const FrameBuffer& tile) {
  auto output = CreateOutput(dir + "/" + file_name + ".png", tile.width, tile.height, OutputOptions{});
  output->Write(tile);
  output->Finish();
}

}  // namespace

int RunDemo(const CommandLine& cl) {
  const DemoOptions& o = cl.demo;
  const auto start = std::chrono::steady_clock::now();
  const auto package = LoadPackage(cl);
  std::vector<const EffectEntry*> effects;
  if (o.only.empty()) {
    for (const EffectEntry& e : package->Catalog()) effects.push_back(&e);
  } else {
    for (const std::string& name : o.only) effects.push_back(&package->Find(name));
  }
  for (const std::string& dir : {o.out_dir, o.stills_dir}) {
    if (dir.empty()) continue;
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) throw HostError("cannot create the folder " + Quoted(dir) + ": " + ec.message());
  }

  ContactSheet sheet(o.width, o.height, int32_t(effects.size()), "NIMBO ONE - " + std::to_string(effects.size()) + " EFFECTS");
  ProgressBar progress("demo", int64_t(effects.size()) * o.frames, ProgressWanted(cl.quiet));
  int blank = 0, failed = 0;
  for (size_t n = 0; n < effects.size(); ++n) {
    const EffectEntry& entry = *effects[n];
    const std::string file_name = FileNameFor(entry.short_name);
    const std::string clip = o.out_dir + "/" + file_name + ".mp4";
    DemoResult result;
    try {
      result = RenderDemo(*package, entry, o, clip, progress, int64_t(n) * o.frames);
    } catch (const HostError& e) {
      ThrowIfInterrupted();
      progress.Finish();
      std::fprintf(stderr, "nimbo: warning: the demo of %s failed: %s\n", entry.short_name.c_str(), e.what());
      progress = ProgressBar("demo", int64_t(effects.size()) * o.frames, ProgressWanted(cl.quiet));
      result.note = "failed";
      ++failed;
    }
    if (result.note == "no picture") ++blank;
    // Only a real picture becomes a still: a help page must not show a blank.
    if (!o.stills_dir.empty() && result.note.empty()) WriteStill(o.stills_dir, file_name, result.middle);
    sheet.SetTile(int32_t(n), result.middle, std::to_string(entry.index) + " " + entry.short_name, result.note);
  }
  progress.Finish();

  const std::string sheet_path = o.out_dir + "/contact_sheet.png";
  auto output = CreateOutput(sheet_path, sheet.Picture().width, sheet.Picture().height, OutputOptions{});
  output->Write(sheet.Picture());
  output->Finish();

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("nimbo demo: %zu effects in %.1f s -> %s (one .mp4 per effect)", effects.size(), seconds,
              sheet_path.c_str());
  if (blank) std::printf("; %d drew no picture", blank);
  if (failed) std::printf("; %d failed", failed);
  std::printf("\n");
  return 0;
}

}  // namespace nimbo::host
