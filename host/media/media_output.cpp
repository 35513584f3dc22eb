#include "media/media_output.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

#include "media/ffmpeg_util.h"
#include "runtime/host_error.h"
#include "media/image_encoder.h"
#include "runtime/pending_file.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

namespace nimbo::host {
namespace {

// The video encoders' thread count, fixed so that their output does not
// depend on the machine (see the VideoOutput constructor).
constexpr int kEncoderThreads = 8;

constexpr const char* kOutputKinds =
    "pictures (.png .jpg .bmp .tif .tga .ppm), image sequences (name_%04d.png) and videos (.mp4 .mkv .mov "
    ".webm .avi)";

// Keeps the last frame and encodes it at the end.
class StillOutput final : public MediaOutput {
 public:
  StillOutput(const std::string& path, bool keep_alpha, OutputCommit* commit)
      : MediaOutput(commit), ext_(ExtensionOf(path)), keep_alpha_(keep_alpha) {
    // A type that cannot be written (or cannot keep alpha) fails now, before
    // any rendering, with the reason.
    (void)EncodeImage(FrameBuffer(1, 1), ext_, keep_alpha_, path);
    file_ = std::make_unique<PendingFile>(path);
    Join(*file_);
  }
  void Write(const FrameBuffer& frame) override { last_ = frame; }

 private:
  void Complete() override {
    if (last_.pixels.empty()) throw HostError("cannot write " + Quoted(file_->FinalPath()) + ": no frame was rendered");
    const std::vector<uint8_t> bytes = EncodeImage(last_, ext_, keep_alpha_, file_->FinalPath());
    file_->WriteAll(bytes.data(), bytes.size());
  }

  std::unique_ptr<PendingFile> file_;
  std::string ext_;
  bool keep_alpha_;
  FrameBuffer last_;
};

// One picture per frame, gathered in a temporary folder beside the target
// and moved into place together, so an older sequence of the same name stays
// whole until the render has succeeded.
class SequenceOutput final : public MediaOutput {
 public:
  SequenceOutput(const std::string& pattern, bool keep_alpha, OutputCommit* commit)
      : MediaOutput(commit), ext_(ExtensionOf(pattern)), keep_alpha_(keep_alpha) {
    (void)EncodeImage(FrameBuffer(1, 1), ext_, keep_alpha_, pattern);  // alpha asked of a type without it
    frames_ = std::make_unique<PendingSequence>(pattern);
    Join(*frames_);
  }
  void Write(const FrameBuffer& frame) override {
    const std::vector<uint8_t> bytes =
        EncodeImage(frame, ext_, keep_alpha_, FormatFramePattern(frames_->FinalPath(), frames_->FrameCount() + 1));
    frames_->AddFrame(bytes.data(), bytes.size());
  }

 private:
  void Complete() override {
    if (frames_->FrameCount() == 0)
      throw HostError("cannot write " + Quoted(frames_->FinalPath()) + ": no frame was rendered");
  }

  std::string ext_;
  bool keep_alpha_;
  std::unique_ptr<PendingSequence> frames_;
};

struct OutputFormatDeleter {
  void operator()(AVFormatContext* f) const {
    if (f->pb) avio_closep(&f->pb);
    avformat_free_context(f);
  }
};

class VideoOutput final : public MediaOutput {
 public:
  VideoOutput(const std::string& path, int32_t width, int32_t height, const OutputOptions& options,
              OutputCommit* commit);
  void Write(const FrameBuffer& frame) override;

 private:
  void Complete() override;
  void ChooseEncoder(bool keep_alpha);
  void ChoosePixelFormat(bool keep_alpha, bool exact_size);
  void Drain(bool flush);
  [[noreturn]] void Fail(const std::string& why) const {
    throw HostError("cannot write " + Quoted(file_->FinalPath()) + ": " + why);
  }

  std::unique_ptr<PendingFile> file_;
  std::unique_ptr<AVFormatContext, OutputFormatDeleter> format_;
  const AVCodec* codec_ = nullptr;
  AVPixelFormat pix_fmt_ = AV_PIX_FMT_NONE;
  int32_t width_;   // the render's size
  int32_t height_;
  FrameBuffer padded_;  // an odd-sized frame grown to the encoded size
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

std::string SizeText(int32_t width, int32_t height) { return std::to_string(width) + "x" + std::to_string(height); }

// `frame` grown to `out`'s size by repeating its last column and row.
void PadByRepeatingEdges(const FrameBuffer& frame, FrameBuffer& out) {
  for (int32_t y = 0; y < out.height; ++y) {
    const uint32_t* src = frame.pixels.data() + size_t(std::min(y, frame.height - 1)) * size_t(frame.width);
    uint32_t* dst = out.pixels.data() + size_t(y) * size_t(out.width);
    std::copy(src, src + frame.width, dst);
    std::fill(dst + frame.width, dst + out.width, src[frame.width - 1]);
  }
}

void VideoOutput::ChooseEncoder(bool keep_alpha) {
  const std::string container = format_->oformat->name;
  const std::string ext = ExtensionOf(file_->FinalPath());
  std::vector<const char*> names;
  if (keep_alpha) {
    if (container == "webm") names = {"libvpx-vp9"};
    else if (container == "mov" || container == "matroska") names = {"png"};
    else Fail("a ." + ext + " video cannot keep alpha (use .mov, .mkv or .webm)");
  } else if (container == "webm") {
    names = {"libvpx-vp9", "libvpx"};
  } else {
    names = {"libx264", "mpeg4"};
  }
  for (const char* name : names) {
    if ((codec_ = avcodec_find_encoder_by_name(name))) break;
  }
  if (!codec_) Fail("this FFmpeg has none of the video encoders nimbo uses for ." + ext + " files");
}

void VideoOutput::ChoosePixelFormat(bool keep_alpha, bool exact_size) {
  const std::string name = codec_->name;
  const bool odd = width_ % 2 != 0 || height_ % 2 != 0;
  // VP9 and PNG take any size; H.264 and MPEG-4 take 4:2:0 only at even
  // sizes, and an odd H.264 falls back to 4:4:4, which many players refuse.
  const bool needs_even = name != "png" && name.rfind("libvpx", 0) != 0;
  int32_t width = width_, height = height_;
  if (keep_alpha) {
    pix_fmt_ = Supports(codec_, AV_PIX_FMT_RGBA) ? AV_PIX_FMT_RGBA : AV_PIX_FMT_YUVA420P;
  } else if (!odd || !needs_even) {
    pix_fmt_ = AV_PIX_FMT_YUV420P;
  } else if (!exact_size) {
    width += width % 2;
    height += height % 2;
    pix_fmt_ = AV_PIX_FMT_YUV420P;
    note_ = Quoted(file_->FinalPath()) + " is " + SizeText(width, height) + ": the " + name +
            " encoder needs an even size for video players to accept it, so the last " +
            (width != width_ && height != height_ ? "column and row" : width != width_ ? "column" : "row") + " of the " +
            SizeText(width_, height_) + " picture " + (width != width_ && height != height_ ? "are" : "is") +
            " repeated (--exact-size keeps " + SizeText(width_, height_) +
            " in H.264's 4:4:4 profile, which many players refuse)";
  } else if (Supports(codec_, AV_PIX_FMT_YUV444P)) {
    pix_fmt_ = AV_PIX_FMT_YUV444P;
    note_ = Quoted(file_->FinalPath()) + " keeps the odd size " + SizeText(width_, height_) + " in the " + name +
            " encoder's 4:4:4 profile, which many players refuse (leave out --exact-size to pad it to an even size)";
  } else {
    Fail("the " + name + " encoder takes only even sizes, and --exact-size keeps " + SizeText(width_, height_) +
         " (leave out --exact-size to pad to an even size, or write .webm)");
  }
  if (!Supports(codec_, pix_fmt_)) Fail("the " + name + " encoder cannot take the pictures nimbo gives it");
  frame_->width = width;
  frame_->height = height;
  if (width != width_ || height != height_) padded_ = FrameBuffer(width, height);
}

VideoOutput::VideoOutput(const std::string& path, int32_t width, int32_t height, const OutputOptions& options,
                         OutputCommit* commit)
    : MediaOutput(commit), width_(width), height_(height) {
  const std::string ext = ExtensionOf(path);
  file_ = std::make_unique<PendingFile>(path);
  AVFormatContext* raw = nullptr;
  // The container is guessed from the real name; the bytes go to the
  // temporary file beside it.
  if (avformat_alloc_output_context2(&raw, nullptr, nullptr, path.c_str()) < 0 || !raw)
    Fail("this FFmpeg cannot write ." + ext + " files");
  format_.reset(raw);
  ChooseEncoder(options.keep_alpha);
  ChoosePixelFormat(options.keep_alpha, options.exact_size);

  encoder_.reset(avcodec_alloc_context3(codec_));
  if (!encoder_) throw std::bad_alloc();
  const AVRational rate = av_d2q(options.fps, 1001000);
  encoder_->width = frame_->width;
  encoder_->height = frame_->height;
  encoder_->pix_fmt = pix_fmt_;
  encoder_->time_base = av_inv_q(rate);
  encoder_->framerate = rate;
  // x264's decisions and MPEG-4's slices depend on the thread count, and
  // "automatic" counts the processors this process may use (a taskset or a
  // container changes it), so a fixed count keeps the file the same
  // wherever it is made. Eight keeps a large machine busy and costs nothing
  // measurable on two cores.
  encoder_->thread_count = kEncoderThreads;
  encoder_->sample_aspect_ratio = {1, 1};
  if (pix_fmt_ != AV_PIX_FMT_RGBA) {
    encoder_->colorspace = AVCOL_SPC_SMPTE170M;
    encoder_->color_range = AVCOL_RANGE_MPEG;
  }
  if (format_->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  // The same pictures make the same file: no random Matroska UIDs, no
  // library version strings, only FFmpeg's bit-exact code paths.
  encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
  format_->flags |= AVFMT_FLAG_BITEXACT;
  const std::string crf = std::to_string(options.crf);
  if (std::string(codec_->name) == "libx264") {
    av_opt_set(encoder_->priv_data, "preset", "medium", 0);
    av_opt_set(encoder_->priv_data, "crf", crf.c_str(), 0);
    // With AVX-512, x264's macroblock-tree lookahead reads memory it never
    // wrote: the same pictures gave a different file from run to run (the
    // heap's leftovers differ). cpu-independent, x264's switch for output
    // that does not differ between processors, swaps in its portable
    // routines there.
    av_opt_set(encoder_->priv_data, "x264-params", "cpu-independent=1", 0);
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
  if (rc < 0) Fail("the " + std::string(codec_->name) + " encoder refused " + SizeText(frame_->width, frame_->height) + " at " + std::to_string(options.fps) + " fps: " + AvErrorText(rc));

  stream_ = avformat_new_stream(format_.get(), nullptr);
  if (!stream_) throw std::bad_alloc();
  stream_->time_base = encoder_->time_base;
  stream_->avg_frame_rate = rate;
  rc = avcodec_parameters_from_context(stream_->codecpar, encoder_.get());
  if (rc >= 0) rc = avio_open(&format_->pb, ("file:" + file_->TempPath()).c_str(), AVIO_FLAG_WRITE);
  if (rc >= 0) rc = avformat_write_header(format_.get(), nullptr);
  if (rc < 0) Fail(AvErrorText(rc));
  Join(*file_);

  frame_->format = pix_fmt_;
  if (av_frame_get_buffer(frame_.get(), 0) < 0) throw std::bad_alloc();
  sws_.reset(sws_getContext(frame_->width, frame_->height, kScreenPixelFormat, frame_->width, frame_->height,
                            pix_fmt_, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!sws_) throw std::bad_alloc();
  if (pix_fmt_ != AV_PIX_FMT_RGBA) {
    const int* table = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(sws_.get(), table, 1, table, 0, 0, 1 << 16, 1 << 16);
  }
}

void VideoOutput::Write(const FrameBuffer& frame) {
  if (av_frame_make_writable(frame_.get()) < 0) throw std::bad_alloc();
  const FrameBuffer* source = &frame;
  if (!padded_.pixels.empty()) {
    PadByRepeatingEdges(frame, padded_);
    source = &padded_;
  }
  const uint8_t* src[4] = {reinterpret_cast<const uint8_t*>(source->pixels.data()), nullptr, nullptr, nullptr};
  const int src_stride[4] = {source->width * 4, 0, 0, 0};
  sws_scale(sws_.get(), src, src_stride, 0, source->height, frame_->data, frame_->linesize);
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

void VideoOutput::Complete() {
  if (next_pts_ == 0) Fail("no frame was rendered");
  Drain(true);
  int rc = av_write_trailer(format_.get());
  if (rc >= 0) rc = avio_closep(&format_->pb);
  if (rc < 0) Fail(AvErrorText(rc));
}

}  // namespace

void MediaOutput::Finish() {
  Complete();
  if (commit_ == &own_commit_) own_commit_.Commit();
}

bool IsVideoOutputExtension(const std::string& ext) {
  static constexpr const char* kVideos[] = {"mp4", "m4v", "mov", "mkv", "webm", "avi"};
  return std::find(std::begin(kVideos), std::end(kVideos), ext) != std::end(kVideos);
}

void CheckOutputName(const std::string& path) {
  const std::string ext = ExtensionOf(path);
  if (HasFramePattern(path)) {
    if (!CanEncodeImage(ext)) {
      throw HostError("cannot write " + Quoted(path) + ": sequences of ." + ext +
                      " pictures are not supported (use png, jpg, bmp, tif, tga or ppm, as in name_%04d.png)");
    }
    return;
  }
  (void)ResolveOutputTarget(path);  // standard output, devices, folders
  if (IsStillImageExtension(ext) || CanEncodeImage(ext) || IsVideoOutputExtension(ext)) return;
  throw HostError("cannot write " + Quoted(path) + ": " +
                  (ext.empty() ? std::string("the name has no extension to say what to write")
                               : "nimbo does not write ." + ext + " files") +
                  "; it writes " + kOutputKinds);
}

void CheckOutputSize(const std::string& path, int32_t width, int32_t height) {
  if (width < 1 || height < 1) throw HostError("cannot write " + Quoted(path) + ": the picture size is empty");
  // FFmpeg's frames hold fewer than 2^31 / 8 bytes' worth of pixels (with a
  // 128-pixel margin each way); a larger size fails deep in an encoder.
  if (av_image_check_size(unsigned(width), unsigned(height), 0, nullptr) < 0) {
    throw HostError("cannot write " + Quoted(path) + ": " + SizeText(width, height) +
                    " is larger than FFmpeg's encoders take ((width + 128) x (height + 128) must stay below "
                    "268435456, about 16000x16000); give a smaller --size");
  }
}

std::unique_ptr<MediaOutput> CreateOutput(const std::string& path, int32_t width, int32_t height,
                                          const OutputOptions& options, OutputCommit* commit) {
  CheckOutputName(path);
  CheckOutputSize(path, width, height);
  const std::string ext = ExtensionOf(path);
  if (HasFramePattern(path)) return std::make_unique<SequenceOutput>(path, options.keep_alpha, commit);
  if (IsStillImageExtension(ext) || CanEncodeImage(ext))
    return std::make_unique<StillOutput>(path, options.keep_alpha, commit);
  return std::make_unique<VideoOutput>(path, width, height, options, commit);
}

}  // namespace nimbo::host
