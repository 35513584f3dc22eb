#include "runtime/pending_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "runtime/frame_pattern.h"
#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

std::string CannotWrite(const std::string& path, const std::string& why) {
  return "cannot write " + Quoted(path) + ": " + why;
}

const char* KindOf(mode_t mode) {
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISFIFO(mode)) return "a pipe (FIFO)";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

}  // namespace

std::string ResolveOutputTarget(const std::string& path) {
  if (path == "-") {
    throw HostError("cannot write to standard output (\"-\"): nimbo puts an output in place only once the run "
                    "has succeeded, which a pipe cannot take back; give a file name");
  }
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return path;  // a new file
  std::string target = path;
  if (S_ISLNK(info.st_mode)) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (!resolved) throw HostError(CannotWrite(path, "it is a symbolic link to a missing file or folder"));
    target = resolved;
    std::free(resolved);
    if (stat(target.c_str(), &info) != 0) throw HostError(CannotWrite(path, std::strerror(errno)));
  }
  if (S_ISDIR(info.st_mode)) throw HostError(CannotWrite(path, "it is a folder"));
  if (!S_ISREG(info.st_mode)) {
    throw HostError(CannotWrite(path, std::string("it is ") + KindOf(info.st_mode) +
                                          "; nimbo writes its outputs as files, put in place once complete "
                                          "(give a file name such as out.mp4, out.png or frames_%04d.png)"));
  }
  return target;
}

namespace {

// "<folder>.<name>.nimbo-" : what every temporary name for `name` starts with.
std::string TempPrefix(const std::string& folder, const std::string& name) { return folder + "." + name + ".nimbo-"; }

// Removes the temporary files and folders that earlier runs, now dead, left
// for `name` in `folder`: a run killed with SIGKILL cannot clean up, and its
// leftovers would otherwise pile up beside the output.
void RemoveStaleParts(const std::string& folder, const std::string& name) {
  DIR* dir = opendir(folder.empty() ? "." : folder.c_str());
  if (!dir) return;
  const std::string prefix = TempPrefix("", name);
  while (const dirent* entry = readdir(dir)) {
    const std::string file = entry->d_name;
    if (file.size() <= prefix.size() + 5 || file.compare(0, prefix.size(), prefix) != 0 ||
        file.compare(file.size() - 5, 5, ".part") != 0)
      continue;
    long pid = 0;
    const char* digits = file.data() + prefix.size();
    const auto [end, ec] = std::from_chars(digits, file.data() + file.size(), pid);
    if (ec != std::errc() || *end != '-' || pid <= 0 || pid == getpid()) continue;
    if (kill(pid_t(pid), 0) == 0 || errno != ESRCH) continue;  // its run is still going
    std::error_code ignored;
    std::filesystem::remove_all(folder + file, ignored);
  }
  closedir(dir);
}

// Creates a fresh temporary name for `name` in `folder` with `make` (which
// answers false with errno EEXIST when the name is taken).
template <class Make>
std::string CreateTemp(const std::string& folder, const std::string& name, const std::string& shown, Make make) {
  RemoveStaleParts(folder, name);
  const std::string prefix = TempPrefix(folder, name) + std::to_string(getpid()) + "-";
  for (int n = 0;; ++n) {
    std::string path = prefix + std::to_string(n) + ".part";
    if (make(path)) return path;
    if (errno != EEXIST || n > 1000) throw HostError(CannotWrite(shown, std::strerror(errno)));
  }
}

// Moves `from` to `to`. When `to` exists the two are swapped atomically,
// so the older file waits at `from` until the commit is final and can be
// put back. Answers whether they were swapped; throws HostError.
bool SwapIntoPlace(const std::string& from, const std::string& to, const std::string& shown) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_EXCHANGE) == 0) return true;
  // No older file (ENOENT), or a file system that cannot swap: a plain
  // rename, which replaces the older file for good.
  if (errno != ENOENT && errno != EINVAL && errno != ENOSYS)
    throw HostError(CannotWrite(shown, std::strerror(errno)));
  if (std::rename(from.c_str(), to.c_str()) != 0) throw HostError(CannotWrite(shown, std::strerror(errno)));
  return false;
}

// Undoes SwapIntoPlace.
void PutBack(const std::string& from, const std::string& to, bool swapped) {
  if (swapped) renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_EXCHANGE);
  else std::rename(to.c_str(), from.c_str());
}

void WriteFully(int fd, const void* data, size_t size, const std::string& shown) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, bytes, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw HostError(CannotWrite(shown, std::strerror(errno)));
    }
    bytes += n;
    size -= size_t(n);
  }
}

}  // namespace

// ---- PendingFile -----------------------------------------------------------

PendingFile::PendingFile(std::string final_path) : final_path_(std::move(final_path)) {
  if (NameOf(final_path_).empty()) throw HostError(CannotWrite(final_path_, "the name has no file part"));
  target_path_ = ResolveOutputTarget(final_path_);
  temp_path_ = CreateTemp(FolderOf(target_path_), NameOf(target_path_), final_path_, [this](const std::string& p) {
    fd_ = open(p.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    return fd_ >= 0;
  });
  pending_ = true;
}

PendingFile::~PendingFile() { Discard(); }

void PendingFile::Discard() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  Unpublish();
  if (pending_) unlink(temp_path_.c_str());
  pending_ = false;
}

void PendingFile::WriteAll(const void* data, size_t size) {
  if (fd_ < 0) throw HostError(CannotWrite(final_path_, "it was already committed"));
  if (ftruncate(fd_, 0) != 0 || lseek(fd_, 0, SEEK_SET) != 0) throw HostError(CannotWrite(final_path_, std::strerror(errno)));
  WriteFully(fd_, data, size, final_path_);
}

void PendingFile::Append(const void* data, size_t size) {
  if (fd_ < 0) throw HostError(CannotWrite(final_path_, "it was already committed"));
  WriteFully(fd_, data, size, final_path_);
}

void PendingFile::Seal() {
  if (!pending_) throw HostError(CannotWrite(final_path_, "nothing was written"));
  if (fd_ < 0) return;
  // fsync covers writes made through other descriptors too (a video's
  // muxer writes by name): it flushes the file, not the descriptor.
  const bool ok = fsync(fd_) == 0 || errno == EINVAL;
  const int err = errno;
  const bool closed = close(fd_) == 0;
  fd_ = -1;
  if (!ok || !closed) throw HostError(CannotWrite(final_path_, std::strerror(ok ? errno : err)));
}

void PendingFile::Publish() {
  if (fd_ >= 0) Seal();
  if (!pending_ || placed_ != Placed::kNo) throw HostError(CannotWrite(final_path_, "nothing was written"));
  placed_ = SwapIntoPlace(temp_path_, target_path_, final_path_) ? Placed::kSwapped : Placed::kMoved;
}

void PendingFile::Unpublish() noexcept {
  if (placed_ != Placed::kNo) PutBack(temp_path_, target_path_, placed_ == Placed::kSwapped);
  placed_ = Placed::kNo;
}

void PendingFile::Finalize() noexcept {
  if (placed_ == Placed::kSwapped) unlink(temp_path_.c_str());  // the older file
  if (placed_ != Placed::kNo) pending_ = false;
  placed_ = Placed::kNo;
}

void PendingFile::Commit() {
  Seal();
  Publish();
  Finalize();
}

// ---- PendingSequence -------------------------------------------------------

PendingSequence::PendingSequence(std::string pattern) : pattern_(std::move(pattern)) {
  const std::string folder = FolderOf(pattern_);
  const std::string name = NameOf(pattern_);
  if (HasFramePattern(folder) || !HasFramePattern(name))
    throw HostError(CannotWrite(pattern_, "the frame number (%d, %04d, ...) must be in the file name"));
  struct stat info {};
  if (!folder.empty() && (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)))
    throw HostError(CannotWrite(pattern_, "its folder " + Quoted(folder) + " does not exist"));
  temp_folder_ = CreateTemp(folder, name, pattern_, [](const std::string& p) { return mkdir(p.c_str(), 0755) == 0; });
  temp_folder_ += "/";
  pending_ = true;
}

PendingSequence::~PendingSequence() {
  if (!pending_) return;
  Unpublish();
  std::error_code ignored;
  std::filesystem::remove_all(temp_folder_, ignored);
}

void PendingSequence::AddFrame(const void* data, size_t size) {
  const std::string path = temp_folder_ + NameOf(FormatFramePattern(pattern_, count_ + 1));
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw HostError(CannotWrite(FormatFramePattern(pattern_, count_ + 1), std::strerror(errno)));
  try {
    WriteFully(fd, data, size, FormatFramePattern(pattern_, count_ + 1));
  } catch (...) {
    close(fd);
    throw;
  }
  if (close(fd) != 0) throw HostError(CannotWrite(FormatFramePattern(pattern_, count_ + 1), std::strerror(errno)));
  ++count_;
}

void PendingSequence::Seal() {
  if (count_ == 0) throw HostError(CannotWrite(pattern_, "no frame was rendered"));
  // A frame's name that cannot take a file (a folder, a device, a link to
  // nowhere) fails here, before any frame is put in place.
  for (int64_t n = 1; n <= count_; ++n) (void)ResolveOutputTarget(FormatFramePattern(pattern_, n));
  // One flush of the folder's file system instead of one per picture.
  const int fd = open(temp_folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) throw HostError(CannotWrite(pattern_, std::strerror(errno)));
  const int rc = syncfs(fd);
  const int err = errno;
  close(fd);
  if (rc != 0) throw HostError(CannotWrite(pattern_, std::strerror(err)));
}

void PendingSequence::Publish() {
  swapped_.reserve(size_t(count_));
  while (int64_t(swapped_.size()) < count_) {
    const std::string final_path = FormatFramePattern(pattern_, int64_t(swapped_.size()) + 1);
    // Like a single output, a frame whose name is a symbolic link replaces
    // the file the link points to.
    const std::string target = ResolveOutputTarget(final_path);
    swapped_.push_back(SwapIntoPlace(temp_folder_ + NameOf(final_path), target, final_path) ? 1 : 0);
  }
}

void PendingSequence::Unpublish() noexcept {
  try {
    while (!swapped_.empty()) {
      const std::string final_path = FormatFramePattern(pattern_, int64_t(swapped_.size()));
      PutBack(temp_folder_ + NameOf(final_path), ResolveOutputTarget(final_path), swapped_.back() != 0);
      swapped_.pop_back();
    }
  } catch (...) {
    // A frame's link changed under us: what is left stays as it is.
  }
}

void PendingSequence::Finalize() noexcept {
  if (swapped_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(temp_folder_, ignored);  // the older frames that were swapped out
  swapped_.clear();
  pending_ = false;
}

}  // namespace nimbo::host
