// FrameScaler: resizes host pictures (screen layout) with swscale. An input
// whose size an effect negotiated differently from the picture it comes as
// goes through one of these, once per frame.
#pragma once

#include "media/ffmpeg_util.h"
#include "media/frame_buffer.h"

namespace nimbo::host {

class FrameScaler {
 public:
  // `dst` becomes `src` at width x height: a plain copy when the sizes match
  // (so pictures pass through unchanged), bicubic otherwise.
  void Scale(const FrameBuffer& src, FrameBuffer& dst, int32_t width, int32_t height);
  // The same from pixels the caller owns (rows of src_width words, no
  // padding), read in place: a frei0r host's frame needs no copy first.
  void Scale(const uint32_t* src, int32_t src_width, int32_t src_height, FrameBuffer& dst, int32_t width,
             int32_t height);

 private:
  SwsContext* context_ = nullptr;  // cached between calls of the same sizes
  SwsPtr owner_;
};

}  // namespace nimbo::host
