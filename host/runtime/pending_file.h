// Outputs written under temporary names beside their targets and put in
// place only when complete, so a failed or interrupted run never leaves a
// half-written file nor destroys an older one:
//   - PendingFile: one file (a picture, a video, a CSV, a preset);
//   - PendingSequence: the numbered pictures of an image sequence, kept in a
//     temporary folder beside the target until the render has succeeded.
// Temporary names are hidden and carry the process id
// (".out.mp4.nimbo-PID-N.part"); creating one removes the leftovers of
// processes that no longer run (killed outright, so they could not clean up)
// for the same target. OutputCommit (output_commit.h) puts a run's outputs
// in place together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::host {

// Throws HostError when `path` cannot be an output file (standard output,
// a folder, a device, a dangling link); answers the file to write: `path`,
// or the file a symbolic link at `path` points to.
std::string ResolveOutputTarget(const std::string& path);

// Something OutputCommit puts in place.
class PendingOutput {
 public:
  virtual ~PendingOutput() = default;
  // What the user named (in messages).
  virtual const std::string& FinalPath() const = 0;
  // Makes the content durable under the temporary name. Throws HostError.
  virtual void Seal() = 0;
  // Renames into place, swapping with an older file where one is, so the
  // older file can come back. Throws HostError (after partial progress).
  virtual void Publish() = 0;
  // Undoes what Publish did, in full or in part: the older files return.
  virtual void Unpublish() noexcept = 0;
  // Drops the older files Publish swapped out; the outputs stay.
  virtual void Finalize() noexcept = 0;
};

class PendingFile final : public PendingOutput {
 public:
  // Throws HostError ("cannot write "PATH": reason") when the target cannot
  // be a file (a folder, a device, a dangling link) or the temporary file
  // cannot be created. A symbolic link is followed: the file it points to
  // is replaced and the link stays.
  explicit PendingFile(std::string final_path);
  ~PendingFile() override;  // removes the temporary file unless published
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& FinalPath() const override { return final_path_; }
  const std::string& TempPath() const { return temp_path_; }
  // Replaces the temporary file's content.
  void WriteAll(const void* data, size_t size);
  // Adds to the temporary file's content.
  void Append(const void* data, size_t size);
  void Seal() override;
  void Publish() override;
  void Unpublish() noexcept override;
  void Finalize() noexcept override;
  // Seal, Publish and Finalize, for a file that is committed alone.
  void Commit();
  void Discard();

 private:
  std::string final_path_;
  std::string target_path_;  // final_path_ with symbolic links followed
  std::string temp_path_;    // after a swap, the older file
  int fd_ = -1;
  bool pending_ = false;
  enum class Placed { kNo, kMoved, kSwapped } placed_ = Placed::kNo;
};

class PendingSequence final : public PendingOutput {
 public:
  // `pattern` holds a frame number in its name part ("out/f_%04d.png").
  // Throws HostError when its folder cannot take the temporary folder.
  explicit PendingSequence(std::string pattern);
  ~PendingSequence() override;  // removes the temporary folder unless published
  PendingSequence(const PendingSequence&) = delete;
  PendingSequence& operator=(const PendingSequence&) = delete;

  const std::string& FinalPath() const override { return pattern_; }
  const std::string& TempFolder() const { return temp_folder_; }
  // Writes the next frame (numbered from 1) into the temporary folder.
  void AddFrame(const void* data, size_t size);
  int64_t FrameCount() const { return count_; }
  void Seal() override;
  void Publish() override;
  void Unpublish() noexcept override;
  void Finalize() noexcept override;

 private:
  std::string pattern_;
  std::string temp_folder_;  // with a trailing slash
  int64_t count_ = 0;
  std::vector<uint8_t> swapped_;  // per published frame: 1 when an older frame went to the temporary folder
  bool pending_ = false;
};

}  // namespace nimbo::host
