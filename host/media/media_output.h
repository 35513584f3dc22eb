// Media output through FFmpeg, chosen by the output name:
//   - a picture ("out.png", "out.jpg", ...): the last frame of the render;
//   - an image sequence ("out_%04d.png"): one picture per frame, numbered
//     from 1;
//   - anything else is a video file whose container follows the extension
//     (.mp4/.mov/.mkv: H.264 through libx264 when FFmpeg has it, else MPEG-4;
//     .webm: VP9).
// Pictures are written opaque unless keep_alpha is set. Nothing appears
// under the output's name until Finish() succeeds; destroying an output that
// was not finished removes everything it wrote.
#pragma once

#include <memory>
#include <string>

#include "media/frame_buffer.h"

namespace nimbo::host {

struct OutputOptions {
  bool keep_alpha = false;
  int crf = 18;            // H.264/VP9 constant quality (lower is better)
  double fps = 25.0;
};

class MediaOutput {
 public:
  virtual ~MediaOutput() = default;
  virtual void Write(const FrameBuffer& frame) = 0;
  virtual void Finish() = 0;
};

// Throws HostError when the output cannot be written (unknown type, folder
// missing or read-only, alpha asked of a format without it).
std::unique_ptr<MediaOutput> CreateOutput(const std::string& path, int32_t width, int32_t height,
                                          const OutputOptions& options);

}  // namespace nimbo::host
