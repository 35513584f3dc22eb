// Encodes one host picture as a complete image file (PNG, JPEG, BMP, TIFF,
// TGA, PPM) through FFmpeg's encoders. PNG is lossless both ways and keeps
// alpha always: RGBA when some pixel is not opaque (or alpha is asked for),
// RGB otherwise. The other types are opaque unless keep_alpha.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/frame_buffer.h"

namespace nimbo::host {

// Whether pictures with extension `ext` can be written.
bool CanEncodeImage(const std::string& ext);
// The file's bytes. Throws HostError for an extension that cannot be
// written or an encoder failure; `path` only names the file in messages.
std::vector<uint8_t> EncodeImage(const FrameBuffer& picture, const std::string& ext, bool keep_alpha,
                                 const std::string& path);

}  // namespace nimbo::host
