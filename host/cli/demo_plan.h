// What `nimbo demo` runs to show one effect: a chain of steps, each an
// effect with the settings that show it at its best and the generated media
// of its own inputs. Most effects run alone; XtractAlpha runs after the
// keyer whose key it shows; a WAX effect's output is a volume, not a
// picture, so WAXRotate, WAXCombine and 3DStoWAX run before WAXViewer,
// which shows the volume they make.
#pragma once

#include <string>
#include <vector>

#include "cli/demo_media.h"
#include "runtime/effect_chain.h"
#include "runtime/package_loader.h"

namespace nimbo::host {

constexpr double kDemoFps = 25.0;

// The files the demo writes for the length of one effect's render.
struct DemoFiles {
  std::string distorter_preset;  // Distorter's line pairs (DistorterPreset)
  std::string scene;             // the generated .3ds scene (DemoSceneFile)
};

struct DemoStep {
  const EffectEntry* entry = nullptr;
  StageOptions options;
  std::vector<DemoMedia> media;  // its inputs in order, the one the previous step feeds left out
  ChainLink link;                // how it takes the previous step's output
};

// The steps that show `entry` over a clip of `frames` frames at width x
// height. The last step's output is the effect's clip and tile.
std::vector<DemoStep> PlanDemo(const Package& package, const EffectEntry& entry, const DemoFiles& files,
                               int32_t width, int32_t height, int64_t frames);

// Which temporary files PlanDemo needs for `entry`.
bool NeedsDistorterPreset(const EffectEntry& entry);
bool NeedsScene(const EffectEntry& entry);

// Distorter shows nothing without line pairs: the demo hands it a preset
// with a straight morph and a bent one (a horizontal line pulled into a
// slope) and swings the sequence between them. The preset lives in the
// temporary folder for the length of one render.
class DistorterPreset {
 public:
  DistorterPreset(int32_t width, int32_t height);  // throws HostError when it cannot be written
  ~DistorterPreset();
  DistorterPreset(const DistorterPreset&) = delete;
  DistorterPreset& operator=(const DistorterPreset&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace nimbo::host
