// Frame-number patterns of image sequences ("shot_%04d.png"): finding them,
// filling them in, and finding which numbered files of a pattern exist.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::host {

// Whether `path` holds a frame-number pattern such as %d or %04d.
bool HasFramePattern(const std::string& path);
// `pattern` with its frame-number pattern replaced by `number`.
std::string FormatFramePattern(const std::string& pattern, int64_t number);
// Whether the file name `name` is `pattern_name` filled in with a number
// (exactly as FormatFramePattern writes it); the number goes to `number`.
bool MatchFramePattern(const std::string& pattern_name, const std::string& name, int64_t* number);
// Whether some file name could match both patterns (same text around the
// number).
bool FramePatternsOverlap(const std::string& pattern_a, const std::string& pattern_b);

// The folder part of `path` with its slash ("" for none) and the name part.
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

// The numbers of the files in the pattern's folder that match it, in
// increasing order. The pattern must sit in the name part.
std::vector<int64_t> ExistingFrameNumbers(const std::string& pattern);

}  // namespace nimbo::host
