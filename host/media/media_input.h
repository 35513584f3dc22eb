// Media input through FFmpeg (libavformat, libavcodec, libswscale): still
// pictures (PNG, JPEG, TIFF, BMP, ...), image sequences ("name_%04d.png"),
// video files (MP4, MKV, MOV, WebM, ...) and V4L2 cameras ("/dev/videoN").
//
// Pictures come out in the screen layout; a picture without alpha gets alpha
// 255, and an RGBA picture maps byte for byte onto 0xAARRGGBB.
#pragma once

#include <memory>
#include <string>

#include "media/frame_source.h"

namespace nimbo::host {

struct InputOptions {
  bool allow_gaps = false;  // an image sequence may skip numbers
};

// Opens `path`; throws HostError naming the file and the reason when it
// cannot be read. A pipe (FIFO) or other blocking file is waited on in a
// way SIGINT and SIGTERM end (see runtime/interrupt.h).
std::unique_ptr<FrameSource> OpenMedia(const std::string& path, const InputOptions& options = {});

// Whether `path` names a camera device rather than a file.
bool IsCameraPath(const std::string& path);

}  // namespace nimbo::host
