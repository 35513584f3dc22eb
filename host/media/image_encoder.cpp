#include "media/image_encoder.h"

#include <cstring>
#include <new>

#include "media/ffmpeg_util.h"
#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

struct ImageCodec {
  const char* ext;
  const char* encoder;
  AVPixelFormat opaque;
  AVPixelFormat alpha;  // AV_PIX_FMT_NONE: the format has no alpha
  // PNG is the format volumes and mattes travel in between runs (a WAX
  // volume's density is its alpha), so it keeps alpha without being asked.
  bool always_alpha = false;
};

constexpr ImageCodec kImageCodecs[] = {
    {"png", "png", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, true},
    {"jpg", "mjpeg", AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_NONE},
    {"jpeg", "mjpeg", AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_NONE},
    {"bmp", "bmp", AV_PIX_FMT_BGR24, AV_PIX_FMT_BGRA},
    {"tif", "tiff", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA},
    {"tiff", "tiff", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA},
    {"tga", "targa", AV_PIX_FMT_BGR24, AV_PIX_FMT_BGRA},
    {"ppm", "ppm", AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE},
    {"pnm", "ppm", AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE},
};

const ImageCodec* FindCodec(const std::string& ext) {
  for (const ImageCodec& codec : kImageCodecs) {
    if (ext == codec.ext) return &codec;
  }
  return nullptr;
}

bool HasTranslucentPixel(const FrameBuffer& picture) {
  for (uint32_t p : picture.pixels) {
    if ((p >> 24) != 0xFFu) return true;
  }
  return false;
}

}  // namespace

bool CanEncodeImage(const std::string& ext) { return FindCodec(ext) != nullptr; }

std::vector<uint8_t> EncodeImage(const FrameBuffer& picture, const std::string& ext, bool keep_alpha,
                                 const std::string& path) {
  const ImageCodec* entry = FindCodec(ext);
  if (!entry) {
    throw HostError("cannot write " + Quoted(path) + ": pictures of type ." + ext +
                    " are not supported (use png, jpg, bmp, tiff, tga or ppm)");
  }
  if (keep_alpha && entry->alpha == AV_PIX_FMT_NONE)
    throw HostError("cannot write " + Quoted(path) + ": ." + ext + " pictures have no alpha (use png or tiff)");
  const AVCodec* codec = avcodec_find_encoder_by_name(entry->encoder);
  if (!codec) throw HostError("cannot write " + Quoted(path) + ": FFmpeg has no " + entry->encoder + " encoder");
  // An opaque picture is written without alpha either way: it reads back the same.
  const bool with_alpha = keep_alpha || (entry->always_alpha && HasTranslucentPixel(picture));
  const AVPixelFormat format = with_alpha ? entry->alpha : entry->opaque;

  CodecContextPtr encoder(avcodec_alloc_context3(codec));
  if (!encoder) throw std::bad_alloc();
  encoder->width = picture.width;
  encoder->height = picture.height;
  encoder->pix_fmt = format;
  encoder->time_base = {1, 25};
  if (format == AV_PIX_FMT_YUVJ444P) {
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * 2;  // a high-quality JPEG
  }
  int rc = avcodec_open2(encoder.get(), codec, nullptr);
  if (rc < 0) throw HostError("cannot write " + Quoted(path) + ": " + AvErrorText(rc));

  FramePtr frame = AllocFrame();
  frame->width = picture.width;
  frame->height = picture.height;
  frame->format = format;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  SwsPtr sws(sws_getContext(picture.width, picture.height, kScreenPixelFormat, picture.width, picture.height,
                            format, SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr));
  if (!sws) throw std::bad_alloc();
  if (format == AV_PIX_FMT_YUVJ444P) {
    const int* table = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(sws.get(), table, 1, table, 1, 0, 1 << 16, 1 << 16);
  }
  const uint8_t* src[4] = {reinterpret_cast<const uint8_t*>(picture.pixels.data()), nullptr, nullptr, nullptr};
  const int src_stride[4] = {picture.width * 4, 0, 0, 0};
  sws_scale(sws.get(), src, src_stride, 0, picture.height, frame->data, frame->linesize);

  rc = avcodec_send_frame(encoder.get(), frame.get());
  if (rc >= 0) rc = avcodec_send_frame(encoder.get(), nullptr);
  if (rc < 0) throw HostError("cannot write " + Quoted(path) + ": " + AvErrorText(rc));
  std::vector<uint8_t> bytes;
  PacketPtr packet = AllocPacket();
  while ((rc = avcodec_receive_packet(encoder.get(), packet.get())) >= 0) {
    bytes.insert(bytes.end(), packet->data, packet->data + packet->size);
    av_packet_unref(packet.get());
  }
  if (rc != AVERROR_EOF || bytes.empty())
    throw HostError("cannot write " + Quoted(path) + ": " + AvErrorText(rc == AVERROR_EOF ? AVERROR_BUG : rc));
  return bytes;
}

}  // namespace nimbo::host
