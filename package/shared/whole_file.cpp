#include "shared/whole_file.h"

#include <algorithm>
#include <cstdio>

namespace nimbo {

bool ReadFileUpTo(const std::string& path, size_t limit, std::string* bytes) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  bytes->clear();
  char buffer[65536];
  bool failed = false;
  while (bytes->size() < limit) {
    const size_t got = std::fread(buffer, 1, std::min(sizeof buffer, limit - bytes->size()), file);
    bytes->append(buffer, got);
    if (got == 0) {
      failed = std::ferror(file) != 0;
      break;
    }
  }
  std::fclose(file);
  return !failed;
}

bool WriteFileWhole(const std::string& path, std::string_view bytes) {
  if (path.empty()) return false;
  const std::string part = path + ".part";
  std::FILE* file = std::fopen(part.c_str(), "wb");
  if (!file) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed || std::rename(part.c_str(), path.c_str()) != 0) {
    std::remove(part.c_str());
    return false;
  }
  return true;
}

}  // namespace nimbo
