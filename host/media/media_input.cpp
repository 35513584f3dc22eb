#include "media/media_input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "media/ffmpeg_util.h"
#include "media/image_sequence_input.h"
#include "runtime/host_error.h"
#include "runtime/interrupt.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#ifdef NIMBO_HAVE_AVDEVICE
#include <libavdevice/avdevice.h>
#endif
}

namespace nimbo::host {
namespace {

struct FormatDeleter {
  void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
using FormatPtr = std::unique_ptr<AVFormatContext, FormatDeleter>;

struct DictGuard {
  AVDictionary* dict = nullptr;
  ~DictGuard() { av_dict_free(&dict); }
};

int SwsColorspace(AVColorSpace space) {
  switch (space) {
    case AVCOL_SPC_BT709: return SWS_CS_ITU709;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
    case AVCOL_SPC_SMPTE240M: return SWS_CS_SMPTE240M;
    case AVCOL_SPC_FCC: return SWS_CS_FCC;
    default: return SWS_CS_ITU601;
  }
}

// The deprecated "J" formats are the full-range twins of the plain ones.
AVPixelFormat PlainFormat(AVPixelFormat format, bool* full_range) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P: *full_range = true; return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P: *full_range = true; return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P: *full_range = true; return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P: *full_range = true; return AV_PIX_FMT_YUV440P;
    default: return format;
  }
}

// FFmpeg asks this between blocking steps (and again when a read comes back
// with EINTR): a signal ends the open or read instead of waiting on.
int StopOnSignal(void*) { return InterruptSignal() != 0 ? 1 : 0; }

// A JPEG ends with the marker FF D9. FFmpeg decodes a file cut short without
// a word (it fills in the missing rows), so the host checks the end itself.
// Answers the file's size when the marker is missing, else -1.
int64_t TruncatedJpegSize(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat info {};
  unsigned char tail[2] = {0, 0};
  const bool read_tail = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 2 &&
                         pread(fd, tail, 2, info.st_size - 2) == 2;
  close(fd);
  return read_tail && !(tail[0] == 0xFF && tail[1] == 0xD9) ? int64_t(info.st_size) : -1;
}

// A pipe (FIFO) blocks open() until a writer comes, and a signal that lands
// just before open() would be missed. So it is opened without blocking and
// waited on here, in slices that look at the signal flag; FFmpeg then reads
// the descriptor ("pipe:N"). Answers the descriptor.
int OpenPipeInterruptibly(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) throw HostError("cannot read " + Quoted(path) + ": " + std::strerror(errno));
  for (;;) {
    pollfd wait{fd, POLLIN, 0};
    const int rc = poll(&wait, 1, 100);
    if (InterruptSignal() != 0) {
      close(fd);
      ThrowIfInterrupted();
    }
    if (rc > 0) break;  // data, or a writer that came and went
    if (rc < 0 && errno != EINTR) {
      const int err = errno;
      close(fd);
      throw HostError("cannot read " + Quoted(path) + ": " + std::strerror(err));
    }
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);  // reads block again, interruptibly
  return fd;
}

class MediaInput final : public FrameSource {
 public:
  explicit MediaInput(const std::string& path) : name_(path) { Open(); }
  ~MediaInput() override {
    format_.reset();
    if (pipe_fd_ >= 0) close(pipe_fd_);
  }

  const std::string& Name() const override { return name_; }
  int32_t Width() const override { return decoder_->width; }
  int32_t Height() const override { return decoder_->height; }
  double FrameRate() const override { return still_ ? 0.0 : frame_rate_; }
  int64_t FrameCountHint() const override { return still_ ? 1 : count_hint_; }
  bool IsStill() const override { return still_; }
  bool ReadFrame(FrameBuffer& out, int32_t width, int32_t height) override;
  std::string Warning() const override;

 private:
  void Open();
  bool Decode();  // next decoded frame into frame_; false at the end
  void Convert(FrameBuffer& out, int32_t width, int32_t height);

  std::string name_;
  bool still_ = false;
  bool camera_ = false;
  FormatPtr format_;
  CodecContextPtr decoder_;
  int stream_ = -1;
  double frame_rate_ = 25.0;
  int64_t count_hint_ = -1;
  FramePtr frame_ = AllocFrame();
  PacketPtr packet_ = AllocPacket();
  bool draining_ = false;
  int64_t frames_read_ = 0;
  int64_t damaged_packets_ = 0;  // skipped the way players skip them
  int64_t damaged_frames_ = 0;   // decoded in part (the rest concealed)
  bool ended_ = false;
  int64_t truncated_jpeg_size_ = -1;
  std::string read_error_;       // what ended the reading early
  int pipe_fd_ = -1;
  SwsContext* sws_ = nullptr;
  SwsPtr sws_owner_;
};

void MediaInput::Open() {
  const std::string ext = ExtensionOf(name_);
  camera_ = IsCameraPath(name_);
  still_ = !camera_ && IsStillImageExtension(ext);

  const AVInputFormat* input_format = nullptr;
  DictGuard options;
  std::string url = name_;
  if (camera_) {
#ifdef NIMBO_HAVE_AVDEVICE
    avdevice_register_all();
    if (url.rfind("v4l2:", 0) == 0) url = url.substr(5);
    input_format = av_find_input_format("v4l2");
    struct stat info {};
    if (stat(url.c_str(), &info) != 0)
      throw HostError("cannot open camera " + Quoted(url) + ": " + std::strerror(errno));
#else
    throw HostError("cannot open camera " + Quoted(name_) + ": this nimbo was built without FFmpeg's libavdevice");
#endif
  } else if (still_) {
    // The image2 reader takes the name as a pattern only when asked to, so
    // a single picture whose name holds a '%' is read as it stands (image
    // sequences come through image_sequence_input.h).
    input_format = av_find_input_format("image2");
    av_dict_set(&options.dict, "pattern_type", "none", 0);
  }
  if (!camera_) {
    struct stat info {};
    if (stat(url.c_str(), &info) != 0) throw HostError("cannot read " + Quoted(name_) + ": " + std::strerror(errno));
    if (S_ISDIR(info.st_mode)) throw HostError("cannot read " + Quoted(name_) + ": it is a folder");
    if (S_ISFIFO(info.st_mode)) {
      pipe_fd_ = OpenPipeInterruptibly(url);
      url = "pipe:" + std::to_string(pipe_fd_);
      input_format = nullptr;  // "pipe:N" has no extension: FFmpeg tells the type from the bytes
    } else {
      if (still_ && (ext == "jpg" || ext == "jpeg")) truncated_jpeg_size_ = TruncatedJpegSize(url);
      // The name as it stands: "http:x.mp4" or "file:y" is a file of that
      // name here, never a protocol FFmpeg would follow elsewhere.
      url = "file:" + url;
    }
  }

  AVFormatContext* raw = avformat_alloc_context();
  if (!raw) throw std::bad_alloc();
  raw->interrupt_callback = {&StopOnSignal, nullptr};
  int rc = avformat_open_input(&raw, url.c_str(), input_format, &options.dict);
  if (rc < 0) {
    ThrowIfInterrupted();
    throw HostError("cannot read " + Quoted(name_) + ": " + AvErrorText(rc));
  }
  format_.reset(raw);
  rc = avformat_find_stream_info(raw, nullptr);
  ThrowIfInterrupted();
  if (rc < 0) throw HostError("cannot read " + Quoted(name_) + ": " + AvErrorText(rc));

  const AVCodec* codec = nullptr;
  stream_ = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (stream_ < 0 || !codec) throw HostError("cannot read " + Quoted(name_) + ": it holds no picture or video");
  AVStream* stream = raw->streams[stream_];
  for (unsigned i = 0; i < raw->nb_streams; ++i) {
    if (int(i) != stream_) raw->streams[i]->discard = AVDISCARD_ALL;
  }

  decoder_.reset(avcodec_alloc_context3(codec));
  if (!decoder_) throw std::bad_alloc();
  rc = avcodec_parameters_to_context(decoder_.get(), stream->codecpar);
  if (rc >= 0) {
    decoder_->thread_count = 0;  // as many as the machine has
    decoder_->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    rc = avcodec_open2(decoder_.get(), codec, nullptr);
  }
  if (rc < 0) throw HostError("cannot decode " + Quoted(name_) + ": " + AvErrorText(rc));
  if (decoder_->width <= 0 || decoder_->height <= 0)
    throw HostError("cannot read " + Quoted(name_) + ": it is not a picture or video that FFmpeg can decode");

  const AVRational rate = av_guess_frame_rate(raw, stream, nullptr);
  if (rate.num > 0 && rate.den > 0) frame_rate_ = av_q2d(rate);
  if (stream->nb_frames > 0) {
    count_hint_ = stream->nb_frames;
  } else if (stream->duration > 0 && stream->time_base.den > 0) {
    count_hint_ = int64_t(av_q2d(stream->time_base) * double(stream->duration) * frame_rate_ + 0.5);
  } else if (raw->duration > 0) {
    count_hint_ = int64_t(double(raw->duration) / AV_TIME_BASE * frame_rate_ + 0.5);
  }
}

bool MediaInput::Decode() {
  for (;;) {
    int rc = avcodec_receive_frame(decoder_.get(), frame_.get());
    if (rc >= 0) {
      if (frame_->decode_error_flags != 0 || (frame_->flags & AV_FRAME_FLAG_CORRUPT)) ++damaged_frames_;
      return true;
    }
    if (rc == AVERROR_EOF) return false;
    if (rc != AVERROR(EAGAIN)) throw HostError("cannot decode " + Quoted(name_) + ": " + AvErrorText(rc));
    if (draining_) return false;
    rc = av_read_frame(format_.get(), packet_.get());
    if (rc < 0) {
      ThrowIfInterrupted();
      if (rc != AVERROR_EOF && frames_read_ == 0)
        throw HostError("cannot read " + Quoted(name_) + ": " + AvErrorText(rc));
      if (rc != AVERROR_EOF) read_error_ = AvErrorText(rc);
      draining_ = true;  // end of file (or a broken tail): flush what is decoded
      avcodec_send_packet(decoder_.get(), nullptr);
      continue;
    }
    if (packet_->stream_index == stream_) {
      // A damaged packet is skipped the way players skip it; a file with no
      // decodable picture at all fails below.
      if (avcodec_send_packet(decoder_.get(), packet_.get()) < 0) ++damaged_packets_;
    }
    av_packet_unref(packet_.get());
  }
}

void MediaInput::Convert(FrameBuffer& out, int32_t width, int32_t height) {
  out.EnsureSize(width, height);
  bool full_range = frame_->color_range == AVCOL_RANGE_JPEG;
  const AVPixelFormat format = PlainFormat(AVPixelFormat(frame_->format), &full_range);
  // Packed RGB at the same size is a byte shuffle (exact); YUV at the same
  // size takes swscale's SIMD converters, which keep the host's per-frame
  // cost small next to decoding; a size change is bicubic.
  (void)sws_owner_.release();
  sws_ = sws_getCachedContext(sws_, frame_->width, frame_->height, format, width, height, kScreenPixelFormat,
                              SWS_BICUBIC, nullptr, nullptr, nullptr);
  sws_owner_.reset(sws_);
  if (!sws_) throw HostError("cannot convert the pictures of " + Quoted(name_));
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
  if (desc && !(desc->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) && desc->nb_components >= 3) {
    // YUV sources: the matrix and range the stream says it uses.
    const int* table = sws_getCoefficients(SwsColorspace(frame_->colorspace));
    sws_setColorspaceDetails(sws_, table, full_range ? 1 : 0, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16,
                             1 << 16);
  }
  uint8_t* dst[4] = {reinterpret_cast<uint8_t*>(out.pixels.data()), nullptr, nullptr, nullptr};
  const int dst_stride[4] = {width * 4, 0, 0, 0};
  sws_scale(sws_, frame_->data, frame_->linesize, 0, frame_->height, dst, dst_stride);
}

bool MediaInput::ReadFrame(FrameBuffer& out, int32_t width, int32_t height) {
  if (!Decode()) {
    if (frames_read_ == 0) throw HostError("cannot read " + Quoted(name_) + ": it holds no decodable picture");
    ended_ = true;
    return false;
  }
  Convert(out, width, height);
  av_frame_unref(frame_.get());
  ++frames_read_;
  return true;
}

std::string MediaInput::Warning() const {
  std::string text;
  const auto add = [&text](const std::string& line) { text += (text.empty() ? "" : "; ") + line; };
  if (!read_error_.empty()) {
    add("reading " + Quoted(name_) + " stopped at an error after " + std::to_string(frames_read_) + " frame" +
        (frames_read_ == 1 ? "" : "s") + " (" + read_error_ + "); the file looks truncated");
  } else if (ended_ && !still_ && !camera_ && count_hint_ > 0 && frames_read_ + 2 < count_hint_) {
    // The header's count is an estimate from the duration; a margin of two
    // frames keeps rounding from raising the alarm.
    add(Quoted(name_) + " ended after " + std::to_string(frames_read_) + " of the about " +
        std::to_string(count_hint_) + " frames its header announces; the file looks truncated");
  }
  if (truncated_jpeg_size_ >= 0 && frames_read_ > 0) {
    add(Quoted(name_) + " is cut short: its " + std::to_string(truncated_jpeg_size_) +
        " bytes end before the JPEG end marker, so only the part of the picture they hold was decoded (the rest is "
        "filled in)");
  }
  if (damaged_packets_ + damaged_frames_ > 0) {
    add(Quoted(name_) + " is damaged: " + std::to_string(damaged_packets_ + damaged_frames_) + " of its " +
        std::to_string(frames_read_) + " frame" + (frames_read_ == 1 ? "" : "s") +
        " read could not be decoded whole (the missing parts are filled in)");
  }
  return text;
}

}  // namespace

bool IsCameraPath(const std::string& path) {
  return path.rfind("/dev/video", 0) == 0 || path.rfind("v4l2:", 0) == 0;
}

std::unique_ptr<FrameSource> OpenMedia(const std::string& path, const InputOptions& options) {
  if (HasFramePattern(path) && !IsCameraPath(path)) return OpenImageSequence(path, options.allow_gaps);
  return std::make_unique<MediaInput>(path);
}

}  // namespace nimbo::host
