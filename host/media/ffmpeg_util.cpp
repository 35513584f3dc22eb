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

namespace {
// Finds "%d" or "%0Nd" (N up to two digits); answers its [begin, end).
bool FindPattern(const std::string& path, size_t* begin, size_t* end) {
  for (size_t i = path.find('%'); i != std::string::npos; i = path.find('%', i + 1)) {
    size_t j = i + 1;
    while (j < path.size() && j - i <= 3 && std::isdigit(static_cast<unsigned char>(path[j]))) ++j;
    if (j < path.size() && path[j] == 'd') {
      *begin = i;
      *end = j + 1;
      return true;
    }
  }
  return false;
}
}  // namespace

bool HasFramePattern(const std::string& path) {
  size_t b = 0, e = 0;
  return FindPattern(path, &b, &e);
}

std::string FormatFramePattern(const std::string& pattern, int64_t number) {
  size_t b = 0, e = 0;
  if (!FindPattern(pattern, &b, &e)) return pattern;
  const std::string conversion = pattern.substr(b, e - b - 1) + "lld";
  std::array<char, 32> digits{};
  std::snprintf(digits.data(), digits.size(), conversion.c_str(), static_cast<long long>(number));
  return pattern.substr(0, b) + digits.data() + pattern.substr(e);
}

bool IsStillImageExtension(const std::string& ext) {
  static constexpr const char* kStills[] = {"png", "jpg",  "jpeg", "bmp", "tif", "tiff", "webp",
                                            "tga", "ppm",  "pgm",  "pnm", "pam", "dpx",  "exr",
                                            "sgi", "pcx",  "qoi",  "xbm", "xwd", "jp2",  "j2k"};
  return std::find(std::begin(kStills), std::end(kStills), ext) != std::end(kStills);
}

}  // namespace nimbo::host
