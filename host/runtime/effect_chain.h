// EffectChain: effects in a row, each one's output feeding the next one's
// first input, rendered frame by frame from their input sources.
//
// The first effect's first input (when it has one) sets the pace: the chain
// ends with it, unless it is a still picture, which repeats. Every other
// input holds its last picture once it ends. Each input is delivered at the
// size its effect negotiated through GetInputScreenRes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "runtime/effect_stage.h"
#include "media/frame_scaler.h"
#include "media/frame_source.h"

namespace nimbo::host {

// How a stage after the first takes the previous stage's output.
struct ChainLink {
  // The input the previous output feeds; the stage's sources fill the other
  // inputs in order.
  int32_t input = 0;
  // Render the previous stage at the size this input asks for rather than
  // scale its picture to it: for screens that carry data, not a picture (a
  // WAX volume is 64 slices tiled into 512 x 512), which scaling destroys.
  // The previous stage is set up again at that size when it differs (and,
  // where its own link says the same, the stage before it, and so on).
  bool previous_at_asked_size = false;
};

class EffectChain {
 public:
  EffectChain(const Package& package, int32_t width, int32_t height, double fps);
  ~EffectChain();

  // Appends and configures an effect. `sources` are its inputs in order, the
  // first one left out for every effect after the first (the previous output
  // takes its place). Throws HostError for a wrong number of inputs or a bad
  // setting.
  EffectStage& Add(const EffectEntry& entry, const StageOptions& options,
                   std::vector<std::unique_ptr<FrameSource>> sources);
  // The same with the previous output fed as `link` says (ignored for the
  // first effect). Throws HostError when link.input is past the inputs the
  // sources leave room for. A previous stage set up again replaces the one
  // its Add returned.
  EffectStage& Add(const EffectEntry& entry, const StageOptions& options,
                   std::vector<std::unique_ptr<FrameSource>> sources, const ChainLink& link);

  // Renders the next frame into Output(). False when the pacing input has
  // ended (nothing rendered).
  bool RenderNext();
  const FrameBuffer& Output() const;
  int64_t FramesRendered() const { return frame_; }
  // Whether the chain's length is set by a moving input (video, sequence,
  // camera) rather than by the caller.
  bool HasPacingInput() const;
  const std::vector<std::unique_ptr<EffectStage>>& Stages() const { return stages_; }
  // What the inputs met while reading that did not stop the render
  // (FrameSource::Warning), one line each.
  std::vector<std::string> InputWarnings() const;

 private:
  struct Input {
    std::unique_ptr<FrameSource> source;  // null for a chained input
    FrameBuffer picture;                  // at the negotiated size
    FrameBuffer scaled;                   // a chained input rescaled
    FrameScaler scaler;
    bool ended = false;
    bool have = false;
  };
  // Sets stage `k` up again at `asked` where its output differs, and each
  // stage before it whose link asks the same, back along the chain.
  void SetUpAtAskedSize(size_t k, orrery::Size asked);
  // Fetches input `i` of stage `k`; false when the pacing input ended.
  bool Fetch(size_t k, size_t i, const FrameBuffer** out);

  const Package& package_;
  int32_t width_;
  int32_t height_;
  double fps_;
  int64_t frame_ = 0;
  std::vector<std::unique_ptr<EffectStage>> stages_;
  std::vector<std::vector<std::unique_ptr<Input>>> inputs_;  // per stage
  std::vector<StageOptions> options_;                        // per stage, to set one up again
  std::vector<ChainLink> links_;                             // per stage, how it takes the one before
};

// Checks that `given` inputs suit the effect: all of them for a filter; for
// a 3D effect the texture inputs may be left out. Throws HostError.
void CheckInputCount(const EffectEntry& entry, size_t given);

}  // namespace nimbo::host
