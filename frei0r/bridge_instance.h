// One frei0r instance: an effect driven through the host runtime's
// EffectStage exactly as `nimbo render` drives it (same settings path, same
// calling order), over the frame memory the frei0r host hands in.
//
// Parameters become the stage's options when a frame is rendered:
//   - settings the host moved off their defaults become --set assignments;
//     a changed assignment re-applies the settings to the running effect (its
//     UpdateConfig and Initialize, as a live host's dialog does);
//   - a changed preset, a frame-size change (a new instance) or a time jump
//     builds a fresh effect, so its history starts over cleanly;
//   - dynamic variables and sliders the host moved are written before each
//     frame, the way `nimbo render --dyn` writes them.
// Nothing throws out of here: a frame the bridge cannot render (no effect
// could be set up) shows input 0 unchanged, a frame the effect fails is black
// as in nimbo render, and each problem is reported once on stderr.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bridge_catalog.h"
#include "bridge_clock.h"
#include "bridge_values_file.h"
#include "media/frame_scaler.h"
#include "runtime/effect_stage.h"

namespace nimbo::frei0r {

class BridgeInstance {
 public:
  BridgeInstance(const host::Package& package, const EffectDescription& description, Layout layout,
                 const std::string& plugin_name, int32_t width, int32_t height);
  BridgeInstance(const BridgeInstance&) = delete;
  BridgeInstance& operator=(const BridgeInstance&) = delete;

  // `value` points at the frei0r type of parameter `index` (char** for texts).
  void SetParam(int index, const void* value);
  void GetParam(int index, void* value);
  // One frame: `second` is null for a filter.
  void Update(double time, const uint32_t* first, const uint32_t* second, uint32_t* out);

 private:
  host::StageOptions Options() const;
  std::unique_ptr<host::EffectStage> NewStage() const;
  void Prepare(bool jumped);
  void WriteVariables();
  bool Render(const uint32_t* first, const uint32_t* second, uint32_t* out);
  const orrery::Screen* Input(int32_t index, const uint32_t* pixels);
  void WriteValues(const HostClock::Tick& tick);
  void Report(const std::string& message);

  const host::Package& package_;
  const EffectDescription& description_;
  Layout layout_;
  std::string plugin_name_;
  int32_t frame_width_, frame_height_;    // what the host hands in
  int32_t render_width_, render_height_;  // what the effect renders (half the height when stacked)

  std::vector<ParamValue> values_;
  std::vector<char> touched_;  // moved off its default at some time: the host means it
  bool settings_changed_ = false;  // a setting or the preset changed since the last frame

  std::unique_ptr<host::EffectStage> stage_;
  std::string applied_preset_;
  std::vector<std::string> applied_sets_;
  HostClock clock_;

  // The frame's inputs as the effect takes them, kept between frames so a
  // frame allocates nothing; inputs an effect asks for at another size than
  // the frame (ReScaler) are scaled into scaled_.
  std::vector<orrery::Screen> screens_;
  std::vector<const orrery::Screen*> inputs_;
  std::vector<host::FrameBuffer> scaled_;
  std::vector<host::FrameScaler> scalers_;

  int values_param_ = -1;  // the "values file" parameter, if the effect publishes values
  std::unique_ptr<ValuesFile> values_file_;
  std::string unwritable_path_;  // a values file that could not be created, not tried again
  std::set<std::string> reported_;
};

}  // namespace nimbo::frei0r
