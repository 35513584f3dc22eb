// EffectStage: one effect of a render, driven in the host's calling order:
// create, fill the host context, UpdateConfig (preset, then --set values),
// GetInputScreenRes for each input, Initialize, Render once a frame, delete.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/effect_host.h"
#include "media/frame_buffer.h"
#include "runtime/keyframes.h"
#include "runtime/package_loader.h"
#include "runtime/settings_edit.h"

namespace nimbo::host {

// What the user asked of one effect.
struct StageOptions {
  std::string effect;                 // as typed: name or index
  std::vector<std::string> inputs;    // media for the effect's inputs
  std::vector<std::string> sets;      // KEY=VALUE
  std::vector<std::string> dyns;      // NAME=v0@t0,...
  std::string preset;                 // settings document to start from
  std::string save_preset;            // where to save the settings afterwards
  std::vector<std::string> actions;   // NAME=FILE: the effect's file commands
};

// A published output value of one frame.
struct OutputValue {
  std::string name;
  float value;
};

class EffectStage {
 public:
  EffectStage(const Package& package, const EffectEntry& entry, int32_t width, int32_t height, double fps);
  ~EffectStage();
  EffectStage(const EffectStage&) = delete;
  EffectStage& operator=(const EffectStage&) = delete;

  // Settings, input sizes, Initialize and the --dyn bindings. Throws
  // HostError for a bad preset, key, value or variable.
  void Configure(const StageOptions& options);
  // The settings step of Configure alone (preset, UpdateConfig, --set, the
  // preset's variable values): what the effect stores and declares, without
  // starting it. Describing an effect must not Initialize it, since
  // Initialize may draw from the package's process-wide random generator.
  void ApplySettings(const StageOptions& options);

  const EffectEntry& Entry() const { return entry_; }
  int32_t InputCount() const { return int32_t(input_sizes_.size()); }
  // The size the effect asked for input `index` (the render size when it
  // answered -1 x -1).
  orrery::Size InputSize(int32_t index) const { return input_sizes_[size_t(index)]; }

  // Renders frame `frame` from `inputs` (null entries for missing ones) into
  // Output(). A frame the effect reports as failed is black. False then.
  bool RenderFrame(int64_t frame, const std::vector<const FrameBuffer*>& inputs);
  // The same over screens the caller owns (null entries for missing inputs),
  // at the clock the caller set on Host(): how a host that hands out its own
  // frame memory (a frei0r client) renders without copying. A failed frame
  // leaves `out` black.
  bool RenderScreens(const std::vector<const orrery::Screen*>& inputs, orrery::Screen& out);
  // What RenderFrame rendered; black before the first frame.
  const FrameBuffer& Output() const;
  int64_t FailedFrames() const { return failed_frames_; }

  std::vector<OutputValue> OutputValues() const;
  // The effect's current settings (and dynamic variables' current values)
  // as a settings document, into `file` (which the run's OutputCommit puts
  // in place with the other outputs).
  void SavePreset(class PendingFile& file);

  EffectHost& Host() { return host_; }
  // The warnings Configure printed: values a preset or --set gave that were
  // clamped, replaced by the default, unused or given twice.
  const std::vector<std::string>& Warnings() const { return warnings_; }
  orrery::Effect& Effect() { return *effect_; }

 private:
  struct Binding {
    KeyframeTrack track;
    float* float_value = nullptr;   // a float dynamic variable or a slider
    int32_t* bool_value = nullptr;  // a bool dynamic variable
  };
  void Warn(const std::string& text);
  void LoadPreset(const std::string& path);
  void ReportUnusedAndRepeatedKeys(const class CheckedStore& checked, const std::string& source);
  void ApplySets(const std::vector<std::string>& sets);
  void ApplyDynVarValues(const std::vector<DynVarValue>& values);
  void Bind(const std::string& assignment);
  [[noreturn]] void FailUnknownVariable(const KeyframeTrack& track) const;

  const EffectEntry& entry_;
  int32_t width_;
  int32_t height_;
  // The context outlives the effect: an effect may call it while it is destroyed.
  EffectHost host_;
  EffectPtr effect_;
  std::vector<orrery::Size> input_sizes_;
  std::vector<Binding> bindings_;
  mutable FrameBuffer output_;  // allocated on first use
  int64_t failed_frames_ = 0;
  std::vector<DynVarValue> preset_dynvars_;  // the preset's current values of dynamic variables
  std::string preset_path_;
  std::vector<std::string> warnings_;
};

}  // namespace nimbo::host
