// PendingFile: an output file written beside its target under a temporary
// name and renamed over the target only when complete, so a failed or
// interrupted run never leaves a half-written file (nor destroys an older
// one). The temporary file is created at once, which also proves early that
// the target's folder is writable.
#pragma once

#include <cstddef>
#include <string>

namespace nimbo::host {

class PendingFile {
 public:
  // Throws HostError ("cannot write "PATH": reason") when the temporary file
  // cannot be created.
  explicit PendingFile(std::string final_path);
  ~PendingFile();  // removes the temporary file unless committed
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& FinalPath() const { return final_path_; }
  const std::string& TempPath() const { return temp_path_; }
  // Replaces the temporary file's content.
  void WriteAll(const void* data, size_t size);
  // Flushes to disk and renames over the target.
  void Commit();
  void Discard();

 private:
  std::string final_path_;
  std::string temp_path_;
  bool open_ = false;
};

}  // namespace nimbo::host
