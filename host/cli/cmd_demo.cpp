// nimbo demo: every effect on generated media, as one short clip each and a
// labelled contact sheet, with nothing asked of the user.
#include <unistd.h>

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
#include "cli/demo_scene.h"
#include "runtime/effect_chain.h"
#include "media/media_output.h"
#include "cli/progress_bar.h"

namespace nimbo::host {
namespace {

constexpr double kDemoFps = 25.0;

// The generated media each input of `entry` gets: the keyer a figure on blue
// and a landscape, 3D effects a landscape behind and text as textures,
// filters moving shapes.
DemoMedia MediaFor(const EffectEntry& entry, size_t input) {
  const std::string& type = entry.inputs[input];
  if (type == "Chroma") return DemoMedia::kBlueScreen;
  if (type == "Background" || type == "background") return DemoMedia::kLandscape;
  if (entry.is_3d && input > 0 && type.find("WAX") == std::string::npos) return DemoMedia::kTitle;
  return DemoMedia::kShapes;
}

std::string FileNameFor(const std::string& name) {
  std::string file;
  for (char c : name) file += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_') ? c : '_';
  return file;
}

// Settings that show an effect at its best on the generated media; every
// other effect runs with the defaults a fresh instance writes.
std::vector<std::string> DemoSettingsFor(const std::string& short_name) {
  if (short_name == "ReScaler") return {"in_w=64", "in_h=36"};                   // coarse blocks
  if (short_name == "ChromaKeyPRO") return {"chroma_rgb=0x1428D2", "angle=60"};  // the backdrop's blue
  if (short_name == "ColorTracker") return {"object_color=0xE61E1E", "debuginfo=1"};  // the red ball
  if (short_name == "ColorTrafo") return {"hue=120", "sat=1.6"};
  if (short_name == "ColorReducer") return {"bits=2"};
  if (short_name == "Glitter") return {"threshold=150", "size=10", "spacing=16"};
  // A rippling sheet wearing the title clip, over the landscape.
  if (short_name == "Evaluator3D")
    return {"rangei=40", "rangej=40", "expr_y=sin(a*4*pi+t*3)*8*cos(b*2*pi+t)", "texinfo1=0", "bgtype=1"};
  // Seven blobs wearing the title clip as a reflection, over the landscape.
  if (short_name == "Blob 3D") return {"count=7", "mat0mattex0texmode=0", "bgtype=1"};
  // A ring of four spinning cubes wearing the title clip, over the landscape.
  if (short_name == "Donkey") return {"copies=4", "bgtype=1"};
  // "NIMBO" waving, wearing the title clip, over the landscape.
  if (short_name == "Text3D") return {"text=NIMBO", "size=150", "mat0mattex0texmode=0", "bgtype=1"};
  // The generated scene (DemoScene3DS) with the title clip on its box, over the landscape.
  if (short_name == "3DSViewer") return {"texinputs=1", "bgtype=1"};
  // The breathing gyroid ball wearing the title clip as a reflection, over the landscape.
  if (short_name == "ImplicitBeast") return {"mat0mattex0texmode=0", "bgtype=1"};
  return {};
}

// Distorter shows nothing without line pairs: the demo hands it a preset
// with a straight morph and a bent one (a horizontal line pulled into a
// slope) and swings the sequence between them. The preset lives in the
// temporary folder for the length of one render.
class DistorterPreset {
 public:
  DistorterPreset(int32_t w, int32_t h) {
    path_ = (std::filesystem::temp_directory_path() /
             ("nimbo-demo-distorter-" + std::to_string(::getpid()) + ".xml")).string();
    auto line = [](int morph, const char* end, double value) {
      return "<data name=\"morph" + std::to_string(morph) + "line0_" + end + "\" type=\"float\">" +
             std::to_string(value) + "</data>\r\n";
    };
    std::string text = "<Settings>\r\n<ConfigData>\r\n";
    text += "<data name=\"use_filtering\" type=\"int\">1</data>\r\n<data name=\"n_morphs\" type=\"int\">2</data>\r\n";
    text += "<data name=\"morph0name\" type=\"string\">Straight</data>\r\n<data name=\"morph0n_lines\" type=\"int\">0</data>\r\n";
    text += "<data name=\"morph1name\" type=\"string\">Bent</data>\r\n<data name=\"morph1n_lines\" type=\"int\">1</data>\r\n";
    text += line(1, "l1_p1_x", w * 0.2) + line(1, "l1_p1_y", h * 0.5) + line(1, "l1_p2_x", w * 0.8) +
            line(1, "l1_p2_y", h * 0.5) + line(1, "l2_p1_x", w * 0.2) + line(1, "l2_p1_y", h * 0.3) +
            line(1, "l2_p2_x", w * 0.8) + line(1, "l2_p2_y", h * 0.7);
    text += "</ConfigData>\r\n</Settings>\r\n";
    std::FILE* file = std::fopen(path_.c_str(), "wb");
    if (!file) throw HostError("cannot write the demo's Distorter preset " + Quoted(path_));
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (std::fclose(file) != 0 || !written) throw HostError("cannot write the demo's Distorter preset " + Quoted(path_));
  }
  ~DistorterPreset() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// The stage of `entry` with the demo's settings, and for Distorter its preset
// and a sequence swing over the clip.
StageOptions DemoStage(const EffectEntry& entry, const DemoOptions& o, const DistorterPreset* preset,
                       const DemoSceneFile* scene = nullptr) {
  StageOptions stage{entry.name, {}, DemoSettingsFor(entry.short_name), {}, {}, {}, {}};
  if (scene && entry.short_name == "3DSViewer") stage.sets.push_back("path=" + scene->Path());
  if (preset && entry.short_name == "Distorter") {
    stage.preset = preset->Path();
    stage.dyns.push_back("Sequence mixing progress=-0.89@0,0.89@" + std::to_string(double(o.frames) / kDemoFps));
  }
  return stage;
}

struct DemoResult {
  FrameBuffer middle;  // the tile
  std::string note;    // "no picture", "failed"
};

// Renders `entry` into `clip`. XtractAlpha shows the key the keyer made, so
// it runs after ChromaKeyPRO.
DemoResult RenderDemo(const Package& package, const EffectEntry& entry, const DemoOptions& o, const std::string& clip,
                      ProgressBar& progress, int64_t done_before) {
  DemoResult result;
  EffectChain chain(package, o.width, o.height, kDemoFps);
  const EffectEntry* target = &entry;
  if (entry.short_name == "XtractAlpha") {
    for (const EffectEntry& e : package.Catalog()) {
      if (e.short_name == "ChromaKeyPRO") target = &e;
    }
  }
  std::vector<std::unique_ptr<FrameSource>> sources;
  for (size_t i = 0; i < target->inputs.size(); ++i) sources.push_back(MakeDemoSource(MediaFor(*target, i), o.width, o.height, o.frames));
  std::unique_ptr<DistorterPreset> preset;
  if (entry.short_name == "Distorter") preset = std::make_unique<DistorterPreset>(o.width, o.height);
  std::unique_ptr<DemoSceneFile> scene;
  if (entry.short_name == "3DSViewer") scene = std::make_unique<DemoSceneFile>();
  chain.Add(*target, DemoStage(*target, o, preset.get(), scene.get()), std::move(sources));
  if (target != &entry) chain.Add(entry, DemoStage(entry, o, preset.get()), {});

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
  const int64_t failed = chain.Stages().back()->FailedFrames();
  if (failed == chain.FramesRendered()) result.note = "no picture";
  return result;
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
  std::error_code ec;
  std::filesystem::create_directories(o.out_dir, ec);
  if (ec) throw HostError("cannot create the folder " + Quoted(o.out_dir) + ": " + ec.message());

  ContactSheet sheet(o.width, o.height, int32_t(effects.size()), "NIMBO ONE - " + std::to_string(effects.size()) + " EFFECTS");
  ProgressBar progress("demo", int64_t(effects.size()) * o.frames, ProgressWanted(cl.quiet));
  int blank = 0, failed = 0;
  for (size_t n = 0; n < effects.size(); ++n) {
    const EffectEntry& entry = *effects[n];
    const std::string clip = o.out_dir + "/" + FileNameFor(entry.short_name) + ".mp4";
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
