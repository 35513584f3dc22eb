// Media output through FFmpeg, chosen by the output name:
//   - a picture ("out.png", "out.jpg", ...): the last frame of the render;
//   - an image sequence ("out_%04d.png"): one picture per frame, numbered
//     from 1;
//   - a video: .mp4/.m4v/.mov/.mkv/.avi (H.264 through libx264 when FFmpeg
//     has it, else MPEG-4) or .webm (VP9).
// Anything else is refused when the output is created, with the kinds that
// work. Pictures are written opaque unless keep_alpha is set. Nothing
// appears under the output's name until Finish() (or the OutputCommit the
// output joined) succeeds; destroying an output that was not finished
// removes everything it wrote.
#pragma once

#include <memory>
#include <string>

#include "media/frame_buffer.h"
#include "runtime/output_commit.h"

namespace nimbo::host {

struct OutputOptions {
  bool keep_alpha = false;
  int crf = 18;            // H.264/VP9 constant quality (lower is better)
  double fps = 25.0;
  // An odd size is padded to the next even one (the last column and row
  // repeated) for encoders that need even sizes, unless this is set: then
  // H.264 keeps it in its 4:4:4 profile.
  bool exact_size = false;
};

class MediaOutput {
 public:
  virtual ~MediaOutput() = default;
  virtual void Write(const FrameBuffer& frame) = 0;
  // Completes the output under its temporary name; puts it in place too
  // unless it joined an OutputCommit, which then does that.
  void Finish();
  // What the output does differently from what was asked ("" for nothing),
  // for the user to read.
  const std::string& Note() const { return note_; }

 protected:
  explicit MediaOutput(OutputCommit* commit) : commit_(commit ? commit : &own_commit_) {}
  void Join(PendingOutput& pending) { commit_->Add(pending); }
  virtual void Complete() = 0;
  std::string note_;

 private:
  OutputCommit own_commit_;
  OutputCommit* commit_;
};

// Throws HostError when the output cannot be written (a kind nimbo does not
// write, folder missing or read-only, alpha asked of a format without it, a
// size the encoder refuses). With `commit`, the output joins it.
std::unique_ptr<MediaOutput> CreateOutput(const std::string& path, int32_t width, int32_t height,
                                          const OutputOptions& options, OutputCommit* commit = nullptr);

// The video file extensions nimbo writes.
bool IsVideoOutputExtension(const std::string& ext);

// What CreateOutput refuses that the name and size alone show (a kind nimbo
// does not write, standard output, a device, a size beyond FFmpeg's), for a
// check before any input is opened. Throws HostError.
void CheckOutputName(const std::string& path);
void CheckOutputSize(const std::string& path, int32_t width, int32_t height);

}  // namespace nimbo::host
