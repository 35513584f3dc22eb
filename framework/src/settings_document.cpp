// SettingsDocument: the host-side store, loading and safe saving of presets.
#include "framework/settings_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace nimbo {
namespace {

std::string ErrnoText(int error) { return std::generic_category().message(error); }

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// Reads at most `limit` + 1 bytes, so that an oversized file is noticed
// without trusting the size the file system reports.
bool ReadAll(int fd, size_t limit, std::string& text) {
  char buffer[65536];
  while (text.size() <= limit) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    text.append(buffer, static_cast<size_t>(got));
  }
  return true;
}

}  // namespace

bool SettingsDocument::Fail(std::string message) {
  error_ = std::move(message);
  return false;
}

int32_t SettingsDocument::GetInt(const char* key, int32_t def) {
  if (key && std::strcmp(key, "!") == 0) return config_.HasBlock() ? 1 : def;
  return config_.GetInt(key, def);
}

void SettingsDocument::Clear() {
  doc_ = XmlDocument();
  error_.clear();
}

bool SettingsDocument::Load(std::string_view text) {
  XmlDocument parsed;
  if (!parsed.SetDoc(text)) return Fail(parsed.GetError());
  if (!parsed.FindElem(kSettingsElem)) return Fail("Settings element not found");
  doc_ = std::move(parsed);
  doc_.ResetPos();
  error_.clear();
  return true;
}

bool SettingsDocument::LoadFromFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return Fail("File not found: " + path);
    return Fail("Cannot open " + path + ": " + ErrnoText(errno));
  }
  struct stat info {};
  std::string text;
  const bool sized = fstat(fd, &info) == 0;
  bool too_large = sized && info.st_size > static_cast<off_t>(kMaxFileSize);
  // The size is a hint that saves regrowing the text, never a limit.
  if (sized && !too_large && info.st_size > 0) text.reserve(size_t(info.st_size) + 1);
  const bool read_ok = too_large || ReadAll(fd, kMaxFileSize, text);
  const int read_error = errno;
  close(fd);
  too_large = too_large || text.size() > kMaxFileSize;
  if (too_large) return Fail("File too large: " + path + " (the limit is 16 MiB)");
  if (!read_ok) return Fail("Cannot read " + path + ": " + ErrnoText(read_error));
  if (!Load(text)) return Fail(path + ": " + error_);
  return true;
}

bool SettingsDocument::SaveToFile(const std::string& path) {
  const std::string temp = path + ".tmp";
  const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return Fail("Cannot create " + temp + ": " + ErrnoText(errno));
  bool ok = WriteAll(fd, Text()) && fsync(fd) == 0;
  int error = errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
    error = errno;
    unlink(temp.c_str());
    return Fail("Cannot replace " + path + ": " + ErrnoText(error));
  }
  if (!ok) {
    unlink(temp.c_str());
    return Fail("Cannot write " + temp + ": " + ErrnoText(error));
  }
  error_.clear();
  return true;
}

}  // namespace nimbo
