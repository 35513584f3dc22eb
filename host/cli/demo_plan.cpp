#include "cli/demo_plan.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

// WAXViewer's volume input (its input 0 is the background).
constexpr int32_t kViewerVolumeInput = 1;

// The generated media each input of `entry` gets: the keyer a figure on blue
// and a landscape, 3D effects a landscape behind and text as textures,
// filters moving shapes.
DemoMedia MediaFor(const EffectEntry& entry, size_t input) {
  const std::string& type = entry.inputs[input];
  if (type == "Chroma") return DemoMedia::kBlueScreen;
  if (type == "Background" || type == "background") return DemoMedia::kLandscape;
  // A 3D effect's first input is its background (Text3D calls it "RGB Bitmap").
  if (entry.is_3d && input == 0 && type.find("WAX") == std::string::npos) return DemoMedia::kLandscape;
  if (entry.is_3d && input > 0 && type.find("WAX") == std::string::npos) return DemoMedia::kTitle;
  return DemoMedia::kShapes;
}

std::vector<DemoMedia> AllMediaFor(const EffectEntry& entry) {
  std::vector<DemoMedia> media;
  for (size_t i = 0; i < entry.inputs.size(); ++i) media.push_back(MediaFor(entry, i));
  return media;
}

// Settings that show an effect at its best on the generated media; every
// other effect runs with the defaults a fresh instance writes.
std::vector<std::string> DemoSettingsFor(const std::string& short_name) {
  if (short_name == "ChromaKeyPRO") return {"chroma_rgb=0x1428D2", "angle=60"};  // the backdrop's blue
  if (short_name == "ColorTracker") return {"object_color=0xE61E1E", "debuginfo=1"};  // the red ball
  if (short_name == "ColorTrafo") return {"hue=120", "sat=1.6"};
  if (short_name == "ColorReducer") return {"bits=2"};
  // Every cell of the bright bar and the square sparkling.
  if (short_name == "Glitter") return {"threshold=130", "size=12", "spacing=12", "density=1"};
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
  // The volumes in their own colours, over the landscape.
  if (short_name == "WAXViewer") return {"bgtype=1"};
  // The box with the ball cut out of it as the ball passes through.
  if (short_name == "WAXCombine") return {"mode=2"};
  return {};
}

std::string Seconds(int64_t frames) { return std::to_string(double(frames) / kDemoFps); }

const EffectEntry& Named(const Package& package, const std::string& short_name) {
  for (const EffectEntry& e : package.Catalog()) {
    if (e.short_name == short_name) return e;
  }
  throw HostError("the package has no " + short_name + " for the demo");
}

DemoStep Step(const EffectEntry& entry, std::vector<DemoMedia> media) {
  DemoStep step;
  step.entry = &entry;
  step.options = StageOptions{entry.name, {}, DemoSettingsFor(entry.short_name), {}, {}, {}, {}};
  step.media = std::move(media);
  return step;
}

// WAXViewer showing the volume the previous step makes, over the landscape.
// `spin` false when the previous step turns the volume itself.
DemoStep ViewerOfPrevious(const Package& package, bool spin) {
  DemoStep step = Step(Named(package, "WAXViewer"), {DemoMedia::kLandscape});
  step.link = ChainLink{kViewerVolumeInput, true};
  if (!spin) step.options.dyns.push_back("Spin speed=0");
  return step;
}

}  // namespace

bool NeedsDistorterPreset(const EffectEntry& entry) { return entry.short_name == "Distorter"; }
bool NeedsScene(const EffectEntry& entry) { return entry.short_name == "3DSViewer" || entry.short_name == "3DStoWAX"; }

std::vector<DemoStep> PlanDemo(const Package& package, const EffectEntry& entry, const DemoFiles& files,
                               int32_t width, int32_t height, int64_t frames) {
  const std::string& name = entry.short_name;
  if (name == "XtractAlpha") {
    // The key the keyer makes of the figure on blue.
    const EffectEntry& keyer = Named(package, "ChromaKeyPRO");
    return {Step(keyer, AllMediaFor(keyer)), Step(entry, {})};
  }
  if (name == "WAXViewer") {
    // The torus tipped towards the camera so its hole shows while it spins.
    DemoStep view = Step(entry, {DemoMedia::kLandscape, DemoMedia::kWaxTorus});
    view.options.dyns.push_back("Rotation x=60");
    return {view};
  }
  if (name == "3DStoWAX") {
    // The generated scene voxelised.
    DemoStep voxelise = Step(entry, {});
    voxelise.options.sets.push_back("path=" + files.scene);
    return {voxelise, ViewerOfPrevious(package, true)};
  }
  if (name == "WAXRotate") {
    // The torus turned half over about x across the clip.
    DemoStep rotate = Step(entry, {DemoMedia::kWaxTorus});
    rotate.options.dyns.push_back("Rotation x=0@0,180@" + Seconds(frames));
    return {rotate, ViewerOfPrevious(package, false)};
  }
  if (name == "WAXCombine") return {Step(entry, {DemoMedia::kWaxBox, DemoMedia::kWaxBall}), ViewerOfPrevious(package, true)};

  DemoStep step = Step(entry, AllMediaFor(entry));
  if (name == "ReScaler") {
    // Coarse blocks, five pixels wide whatever the demo's size.
    step.options.sets.push_back("in_w=" + std::to_string(std::max(1, width / 5)));
    step.options.sets.push_back("in_h=" + std::to_string(std::max(1, height / 5)));
  }
  if (name == "3DSViewer") step.options.sets.push_back("path=" + files.scene);
  if (name == "Distorter") {
    step.options.preset = files.distorter_preset;
    step.options.dyns.push_back("Sequence mixing progress=-0.89@0,0.89@" + Seconds(frames));
  }
  return {step};
}

DistorterPreset::DistorterPreset(int32_t w, int32_t h) {
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

DistorterPreset::~DistorterPreset() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

}  // namespace nimbo::host
