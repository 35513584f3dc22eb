#include "runtime/frame_pattern.h"

#include <dirent.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace nimbo::host {
namespace {

// Finds "%d" or "%0Nd" (N up to two digits); answers its [begin, end).
bool FindPattern(const std::string& path, size_t* begin, size_t* end) {
  for (size_t i = path.find('%'); i != std::string::npos; i = path.find('%', i + 1)) {
    size_t j = i + 1;
    while (j < path.size() && j - i <= 3 && std::isdigit(static_cast<unsigned char>(path[j]))) ++j;
    if (j < path.size() && path[j] == 'd') {
      *begin = i;
      *end = j + 1;
      return true;
    }
  }
  return false;
}

}  // namespace

bool HasFramePattern(const std::string& path) {
  size_t b = 0, e = 0;
  return FindPattern(path, &b, &e);
}

std::string FormatFramePattern(const std::string& pattern, int64_t number) {
  size_t b = 0, e = 0;
  if (!FindPattern(pattern, &b, &e)) return pattern;
  const std::string conversion = pattern.substr(b, e - b - 1) + "lld";
  std::array<char, 32> digits{};
  std::snprintf(digits.data(), digits.size(), conversion.c_str(), static_cast<long long>(number));
  return pattern.substr(0, b) + digits.data() + pattern.substr(e);
}

bool MatchFramePattern(const std::string& pattern_name, const std::string& name, int64_t* number) {
  size_t b = 0, e = 0;
  if (!FindPattern(pattern_name, &b, &e)) return false;
  const size_t tail = pattern_name.size() - e;
  if (name.size() <= b + tail || name.compare(0, b, pattern_name, 0, b) != 0 ||
      name.compare(name.size() - tail, tail, pattern_name, e, tail) != 0)
    return false;
  const char* first = name.data() + b;
  const char* last = name.data() + name.size() - tail;
  int64_t n = 0;
  const auto [ptr, ec] = std::from_chars(first, last, n);
  if (ec != std::errc() || ptr != last || n < 0) return false;
  // "%04d" writes 7 as 0007: only that spelling is frame 7.
  if (FormatFramePattern(pattern_name, n) != name) return false;
  *number = n;
  return true;
}

bool FramePatternsOverlap(const std::string& pattern_a, const std::string& pattern_b) {
  size_t ab = 0, ae = 0, bb = 0, be = 0;
  if (!FindPattern(pattern_a, &ab, &ae) || !FindPattern(pattern_b, &bb, &be)) return false;
  return pattern_a.substr(0, ab) == pattern_b.substr(0, bb) && pattern_a.substr(ae) == pattern_b.substr(be);
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

std::string NameOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::vector<int64_t> ExistingFrameNumbers(const std::string& pattern) {
  std::vector<int64_t> numbers;
  const std::string folder = FolderOf(pattern);
  const std::string name = NameOf(pattern);
  DIR* dir = opendir(folder.empty() ? "." : folder.c_str());
  if (!dir) return numbers;
  while (const dirent* entry = readdir(dir)) {
    int64_t n = 0;
    if (MatchFramePattern(name, entry->d_name, &n)) numbers.push_back(n);
  }
  closedir(dir);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace nimbo::host
