// Small helpers over FFmpeg's C interfaces: error texts, owning pointers and
// the mapping between our screen layout and FFmpeg's pixel formats.
#pragma once

#include <memory>
#include <string>

#include "runtime/frame_pattern.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace nimbo::host {

// A screen word 0xAARRGGBB in native byte order: FFmpeg calls that RGB32
// (B, G, R, A in memory on a little-endian machine).
inline constexpr AVPixelFormat kScreenPixelFormat = AV_PIX_FMT_RGB32;

std::string AvErrorText(int code);

// FFmpeg's own log lines stay quiet unless asked for: the user sees our one
// clear line instead.
void SetFfmpegVerbose(bool verbose);

struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct CodecContextDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct SwsDeleter {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;

FramePtr AllocFrame();
PacketPtr AllocPacket();

// Lower-case extension of `path` without the dot ("" when there is none).
std::string ExtensionOf(const std::string& path);
// Extensions of single-picture files ("png", "jpg", ...).
bool IsStillImageExtension(const std::string& ext);

}  // namespace nimbo::host
