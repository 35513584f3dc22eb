#include "media/media_output.h"

#include <cstdio>
#include <new>
#include <vector>

#include "media/ffmpeg_util.h"
#include "runtime/host_error.h"
#include "media/image_encoder.h"
#include "runtime/pending_file.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace nimbo::host {
namespace {

// Keeps the last frame and encodes it at the end.
class StillOutput final : public MediaOutput {
 public:
  StillOutput(const std::string& path, bool keep_alpha) : file_(path), ext_(ExtensionOf(path)), keep_alpha_(keep_alpha) {
    // A type that cannot be written (or cannot keep alpha) fails now, before
    // any rendering, with the reason.
    (void)EncodeImage(FrameBuffer(1, 1), ext_, keep_alpha_, path);
  }
  void Write(const FrameBuffer& frame) override { last_ = frame; }
  void Finish() override {
    if (last_.pixels.empty()) throw HostError("cannot write " + Quoted(file_.FinalPath()) + ": no frame was rendered");
    const std::vector<uint8_t> bytes = EncodeImage(last_, ext_, keep_alpha_, file_.FinalPath());
    file_.WriteAll(bytes.data(), bytes.size());
    file_.Commit();
  }

 private:
  PendingFile file_;
  std::string ext_;
  bool keep_alpha_;
  FrameBuffer last_;
};

// One picture per frame. Each is renamed into place as it completes; an
// unfinished sequence removes the pictures it wrote.
class SequenceOutput final : public MediaOutput {
 public:
  SequenceOutput(const std::string& pattern, bool keep_alpha)
      : pattern_(pattern), ext_(ExtensionOf(pattern)), keep_alpha_(keep_alpha) {
    (void)EncodeImage(FrameBuffer(1, 1), ext_, keep_alpha_, pattern);  // an unsupported type fails now
    PendingFile probe(FormatFramePattern(pattern_, 1));                // so does an unwritable folder
  }
  ~SequenceOutput() override {
    if (finished_) return;
    for (const std::string& path : written_) std::remove(path.c_str());
  }
  void Write(const FrameBuffer& frame) override {
    PendingFile file(FormatFramePattern(pattern_, int64_t(written_.size()) + 1));
    const std::vector<uint8_t> bytes = EncodeImage(frame, ext_, keep_alpha_, file.FinalPath());
    file.WriteAll(bytes.data(), bytes.size());
    file.Commit();
    written_.push_back(file.FinalPath());
  }
  void Finish() override {
    if (written_.empty()) throw HostError("cannot write " + Quoted(pattern_) + ": no frame was rendered");
    finished_ = true;
  }

 private:
  std::string pattern_;
  std::string ext_;
  bool keep_alpha_;
  std::vector<std::string> written_;
  bool finished_ = false;
};

struct OutputFormatDeleter {
  void operator()(AVFormatContext* f) const {
    if (f->pb) avio_closep(&f->pb);
    avformat_free_context(f);
  }
};

class VideoOutput final : public MediaOutput {
 public:
  VideoOutput(const std::string& path, int32_t width, int32_t height, const OutputOptions& options);
  void Write(const FrameBuffer& frame) override;
  void Finish() override;

 private:
  void ChooseEncoder(bool keep_alpha);
  void Drain(bool flush);
  [[noreturn]] void Fail(const std::string& why) const {
    throw HostError("cannot write " + Quoted(file_.FinalPath()) + ": " + why);
  }

  PendingFile file_;
  std::unique_ptr<AVFormatContext, OutputFormatDeleter> format_;
  const AVCodec* codec_ = nullptr;
  AVPixelFormat pix_fmt_ = AV_PIX_FMT_NONE;
  CodecContextPtr encoder_;
  AVStream* stream_ = nullptr;
  SwsPtr sws_;
  FramePtr frame_ = AllocFrame();
  PacketPtr packet_ = AllocPacket();
  int64_t next_pts_ = 0;
};

bool Supports(const AVCodec* codec, AVPixelFormat format) {
  if (!codec->pix_fmts) return false;
  for (const AVPixelFormat* p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; ++p) {
    if (*p == format) return true;
  }
  return false;
}

void VideoOutput::ChooseEncoder(bool keep_alpha) {
  const std::string container = format_->oformat->name;
  const bool mp4_family = container == "mp4" || container == "mov" || container == "matroska" ||
                          container == "avi" || container == "3gp";
  std::vector<const char*> names;
  if (keep_alpha) {
    if (container == "webm") names = {"libvpx-vp9"};
    else if (container == "mov" || container == "matroska") names = {"png"};
    else Fail("a ." + ExtensionOf(file_.FinalPath()) + " video cannot keep alpha (use .mov, .mkv or .webm)");
  } else if (container == "webm") {
    names = {"libvpx-vp9", "libvpx"};
  } else if (mp4_family) {
    names = {"libx264", "mpeg4"};
  }
  for (const char* name : names) {
    if ((codec_ = avcodec_find_encoder_by_name(name))) break;
  }
  if (!codec_ && format_->oformat->video_codec != AV_CODEC_ID_NONE && !keep_alpha)
    codec_ = avcodec_find_encoder(format_->oformat->video_codec);
  if (!codec_) Fail("FFmpeg has no video encoder for this type of file");

  const int width = frame_->width, height = frame_->height;
  const bool even = width % 2 == 0 && height % 2 == 0;
  const AVPixelFormat wanted[] = {keep_alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_NONE,
                                  keep_alpha ? AV_PIX_FMT_YUVA420P : AV_PIX_FMT_NONE,
                                  even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_NONE, AV_PIX_FMT_YUV444P};
  for (AVPixelFormat format : wanted) {
    if (format != AV_PIX_FMT_NONE && Supports(codec_, format)) {
      pix_fmt_ = format;
      break;
    }
  }
  if (keep_alpha && pix_fmt_ == AV_PIX_FMT_YUVA420P && !even) pix_fmt_ = AV_PIX_FMT_NONE;
  if (pix_fmt_ == AV_PIX_FMT_NONE)
    Fail("the " + std::string(codec_->name) + " encoder cannot take a " + std::to_string(width) + "x" +
         std::to_string(height) + " picture (use an even size)");
}

VideoOutput::VideoOutput(const std::string& path, int32_t width, int32_t height, const OutputOptions& options)
    : file_(path) {
  AVFormatContext* raw = nullptr;
  // The container is guessed from the real name; the bytes go to the
  // temporary file beside it.
  if (avformat_alloc_output_context2(&raw, nullptr, nullptr, path.c_str()) < 0 || !raw)
    Fail("the type of ." + ExtensionOf(path) + " files is unknown (use .png, name_%04d.png, .mp4, .mkv, .mov or .webm)");
  format_.reset(raw);
  if (format_->oformat->flags & AVFMT_NOFILE) Fail("it is not a file format");
  frame_->width = width;
  frame_->height = height;
  ChooseEncoder(options.keep_alpha);

  encoder_.reset(avcodec_alloc_context3(codec_));
  if (!encoder_) throw std::bad_alloc();
  const AVRational rate = av_d2q(options.fps, 1001000);
  encoder_->width = width;
  encoder_->height = height;
  encoder_->pix_fmt = pix_fmt_;
  encoder_->time_base = av_inv_q(rate);
  encoder_->framerate = rate;
  encoder_->thread_count = 0;
  encoder_->sample_aspect_ratio = {1, 1};
  if (pix_fmt_ != AV_PIX_FMT_RGBA) {
    encoder_->colorspace = AVCOL_SPC_SMPTE170M;
    encoder_->color_range = AVCOL_RANGE_MPEG;
  }
  if (format_->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  const std::string crf = std::to_string(options.crf);
  if (std::string(codec_->name) == "libx264") {
    av_opt_set(encoder_->priv_data, "preset", "medium", 0);
    av_opt_set(encoder_->priv_data, "crf", crf.c_str(), 0);
  } else if (std::string(codec_->name).rfind("libvpx", 0) == 0) {
    encoder_->bit_rate = 0;
    av_opt_set(encoder_->priv_data, "crf", crf.c_str(), 0);
    av_opt_set(encoder_->priv_data, "deadline", "realtime", 0);
    av_opt_set(encoder_->priv_data, "cpu-used", "8", 0);
  } else if (std::string(codec_->name) == "mpeg4") {
    encoder_->flags |= AV_CODEC_FLAG_QSCALE;
    encoder_->global_quality = FF_QP2LAMBDA * 3;
  }
  int rc = avcodec_open2(encoder_.get(), codec_, nullptr);
  if (rc < 0) Fail(AvErrorText(rc));

  stream_ = avformat_new_stream(format_.get(), nullptr);
  if (!stream_) throw std::bad_alloc();
  stream_->time_base = encoder_->time_base;
  stream_->avg_frame_rate = rate;
  rc = avcodec_parameters_from_context(stream_->codecpar, encoder_.get());
  if (rc >= 0) rc = avio_open(&format_->pb, file_.TempPath().c_str(), AVIO_FLAG_WRITE);
  if (rc >= 0) rc = avformat_write_header(format_.get(), nullptr);
  if (rc < 0) Fail(AvErrorText(rc));

  frame_->format = pix_fmt_;
  if (av_frame_get_buffer(frame_.get(), 0) < 0) throw std::bad_alloc();
  sws_.reset(sws_getContext(width, height, kScreenPixelFormat, width, height, pix_fmt_,
                            SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!sws_) throw std::bad_alloc();
  if (pix_fmt_ != AV_PIX_FMT_RGBA) {
    const int* table = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(sws_.get(), table, 1, table, 0, 0, 1 << 16, 1 << 16);
  }
}

void VideoOutput::Write(const FrameBuffer& frame) {
  if (av_frame_make_writable(frame_.get()) < 0) throw std::bad_alloc();
  const uint8_t* src[4] = {reinterpret_cast<const uint8_t*>(frame.pixels.data()), nullptr, nullptr, nullptr};
  const int src_stride[4] = {frame.width * 4, 0, 0, 0};
  sws_scale(sws_.get(), src, src_stride, 0, frame.height, frame_->data, frame_->linesize);
  frame_->pts = next_pts_++;
  const int rc = avcodec_send_frame(encoder_.get(), frame_.get());
  if (rc < 0) Fail(AvErrorText(rc));
  Drain(false);
}

void VideoOutput::Drain(bool flush) {
  if (flush) avcodec_send_frame(encoder_.get(), nullptr);
  for (;;) {
    int rc = avcodec_receive_packet(encoder_.get(), packet_.get());
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
    if (rc < 0) Fail(AvErrorText(rc));
    av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
    packet_->stream_index = stream_->index;
    rc = av_interleaved_write_frame(format_.get(), packet_.get());
    if (rc < 0) Fail(AvErrorText(rc));
  }
}

void VideoOutput::Finish() {
  if (next_pts_ == 0) Fail("no frame was rendered");
  Drain(true);
  int rc = av_write_trailer(format_.get());
  if (rc >= 0) rc = avio_closep(&format_->pb);
  if (rc < 0) Fail(AvErrorText(rc));
  file_.Commit();
}

}  // namespace

std::unique_ptr<MediaOutput> CreateOutput(const std::string& path, int32_t width, int32_t height,
                                          const OutputOptions& options) {
  if (width < 1 || height < 1) throw HostError("cannot write " + Quoted(path) + ": the picture size is empty");
  const std::string ext = ExtensionOf(path);
  if (HasFramePattern(path)) return std::make_unique<SequenceOutput>(path, options.keep_alpha);
  if (IsStillImageExtension(ext)) return std::make_unique<StillOutput>(path, options.keep_alpha);
  return std::make_unique<VideoOutput>(path, width, height, options);
}

}  // namespace nimbo::host
