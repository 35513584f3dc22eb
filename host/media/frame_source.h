// FrameSource: where an effect's input pictures come from, one frame at a
// time: a media file, an image sequence, a camera, or pictures the demo
// generates.
#pragma once

#include <cstdint>
#include <string>

#include "media/frame_buffer.h"

namespace nimbo::host {

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  virtual const std::string& Name() const = 0;
  // The pictures' own size.
  virtual int32_t Width() const = 0;
  virtual int32_t Height() const = 0;
  // Frames per second, 0 when the source has no time (a still picture).
  virtual double FrameRate() const = 0;
  // How many frames the source expects to give: 1 for a still, -1 when
  // unknown (a camera, a stream without a count). Only a hint for progress.
  virtual int64_t FrameCountHint() const = 0;
  // A still gives one picture; a host repeats it for as many frames as needed.
  virtual bool IsStill() const = 0;
  // The next picture at width x height (scaled when the source's own size
  // differs). False at the end. Throws HostError when the source breaks.
  virtual bool ReadFrame(FrameBuffer& out, int32_t width, int32_t height) = 0;
  // What went wrong while reading but did not stop the render (a truncated
  // file, damaged frames), for a warning at the end; "" when nothing did.
  virtual std::string Warning() const { return {}; }
};

}  // namespace nimbo::host
