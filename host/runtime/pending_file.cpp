#include "runtime/pending_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

std::string CannotWrite(const std::string& path, int err) {
  return "cannot write " + Quoted(path) + ": " + std::strerror(err);
}

}  // namespace

PendingFile::PendingFile(std::string final_path) : final_path_(std::move(final_path)) {
  struct stat info {};
  if (stat(final_path_.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
    throw HostError("cannot write " + Quoted(final_path_) + ": it is a folder");
  const size_t slash = final_path_.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "" : final_path_.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? final_path_ : final_path_.substr(slash + 1);
  if (base.empty()) throw HostError("cannot write " + Quoted(final_path_) + ": the name has no file part");
  // Hidden and tagged with the process id, so two runs never share one.
  temp_path_ = folder + "." + base + ".nimbo-" + std::to_string(getpid()) + ".part";
  const int fd = open(temp_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) throw HostError(CannotWrite(final_path_, errno));
  close(fd);
  open_ = true;
}

PendingFile::~PendingFile() { Discard(); }

void PendingFile::Discard() {
  if (open_) std::remove(temp_path_.c_str());
  open_ = false;
}

void PendingFile::WriteAll(const void* data, size_t size) {
  const int fd = open(temp_path_.c_str(), O_WRONLY | O_TRUNC);
  if (fd < 0) throw HostError(CannotWrite(final_path_, errno));
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, bytes, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      close(fd);
      throw HostError(CannotWrite(final_path_, err));
    }
    bytes += n;
    size -= size_t(n);
  }
  if (close(fd) != 0) throw HostError(CannotWrite(final_path_, errno));
}

void PendingFile::Commit() {
  if (!open_) throw HostError("cannot write " + Quoted(final_path_) + ": nothing was written");
  const int fd = open(temp_path_.c_str(), O_RDONLY);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
  if (std::rename(temp_path_.c_str(), final_path_.c_str()) != 0) throw HostError(CannotWrite(final_path_, errno));
  open_ = false;
}

}  // namespace nimbo::host
