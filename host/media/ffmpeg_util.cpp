#include "media/ffmpeg_util.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <new>

extern "C" {
#include <libavutil/log.h>
}

namespace nimbo::host {

std::string AvErrorText(int code) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(code, text.data(), text.size());
  return text.data();
}

void SetFfmpegVerbose(bool verbose) { av_log_set_level(verbose ? AV_LOG_INFO : AV_LOG_QUIET); }

FramePtr AllocFrame() {
  FramePtr frame(av_frame_alloc());
  if (!frame) throw std::bad_alloc();
  return frame;
}

PacketPtr AllocPacket() {
  PacketPtr packet(av_packet_alloc());
  if (!packet) throw std::bad_alloc();
  return packet;
}

std::string ExtensionOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

bool IsStillImageExtension(const std::string& ext) {
  static constexpr const char* kStills[] = {"png", "jpg",  "jpeg", "bmp", "tif", "tiff", "webp",
                                            "tga", "ppm",  "pgm",  "pnm", "pam", "dpx",  "exr",
                                            "sgi", "pcx",  "qoi",  "xbm", "xwd", "jp2",  "j2k"};
  return std::find(std::begin(kStills), std::end(kStills), ext) != std::end(kStills);
}

}  // namespace nimbo::host
