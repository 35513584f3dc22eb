#include "runtime/indexed_keys.h"

#include <algorithm>
#include <charconv>

namespace nimbo::host {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsIndexAt(const std::string& pattern, size_t i) {
  return pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] == 'i';
}

// Every run of digits, and in a pattern every "%i" with the digits around
// it, as one '#'.
std::string Shape(const std::string& text, bool is_pattern) {
  std::string shape;
  shape.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const bool index = is_pattern && IsIndexAt(text, i);
    if (!index && !IsDigit(text[i])) {
      shape += text[i++];
      continue;
    }
    if (shape.empty() || shape.back() != '#') shape += '#';
    i += index ? 2 : 1;
  }
  return shape;
}

}  // namespace

std::optional<std::vector<int32_t>> MatchPattern(const std::string& pattern, const std::string& key) {
  std::vector<int32_t> indices;
  size_t k = 0;
  for (size_t p = 0; p < pattern.size();) {
    if (!IsIndexAt(pattern, p)) {
      if (k >= key.size() || key[k] != pattern[p]) return std::nullopt;
      ++p, ++k;
      continue;
    }
    // A number as "%i" prints a non-negative int: "0", or no leading zero.
    size_t end = k;
    while (end < key.size() && IsDigit(key[end])) ++end;
    if (end == k || (key[k] == '0' && end - k > 1)) return std::nullopt;
    int32_t value = 0;
    const auto [ptr, ec] = std::from_chars(key.data() + k, key.data() + end, value);
    if (ec != std::errc() || ptr != key.data() + end) return std::nullopt;
    indices.push_back(value);
    k = end;
    p += 2;
  }
  if (k != key.size()) return std::nullopt;
  return indices;
}

std::string FormatPattern(const std::string& pattern, const std::vector<int32_t>& indices) {
  std::string out;
  size_t next = 0;
  for (size_t p = 0; p < pattern.size();) {
    if (next < indices.size() && IsIndexAt(pattern, p)) {
      out += std::to_string(indices[next++]);
      p += 2;
    } else {
      out += pattern[p++];
    }
  }
  return out;
}

std::string CountKeysText(const IndexedSettingRecord& family) {
  std::string text;
  for (const IndexRecord& index : family.indices) text += (text.empty() ? "" : ", ") + index.count_key;
  return text;
}

void IndexedKeyTable::Describe(IndexedSettingRecord family) {
  bool replaced = false;
  for (IndexedSettingRecord& existing : families_) {
    if (existing.setting.key == family.setting.key) {
      existing = std::move(family);
      replaced = true;
      break;
    }
  }
  if (!replaced) {
    by_shape_[Shape(family.setting.key, true)].push_back(families_.size());
    families_.push_back(std::move(family));
  }
  // The plain count keys, from all families as they now stand.
  counts_.clear();
  std::vector<int> counted;  // families per count key
  for (const IndexedSettingRecord& f : families_) {
    for (const IndexRecord& index : f.indices) {
      if (index.count_key.find("%i") != std::string::npos) continue;  // counted per earlier index: a family itself
      auto count = std::find_if(counts_.begin(), counts_.end(), [&](const SettingRecord& c) { return c.key == index.count_key; });
      if (count == counts_.end()) {
        counts_.push_back({index.count_key, orrery::SettingType::kInt, 0, double(index.limit), f.setting.key});
        counted.push_back(1);
      } else {
        count->maximum = std::max(count->maximum, double(index.limit));
        ++counted[size_t(count - counts_.begin())];
      }
    }
  }
  for (size_t i = 0; i < counts_.size(); ++i) {
    counts_[i].help = "count of the indexed keys " + counts_[i].help +
                      (counted[i] > 1 ? " and " + std::to_string(counted[i] - 1) + " more" : "");
  }
}

const SettingRecord* IndexedKeyTable::FindCount(const std::string& key) const {
  for (const SettingRecord& count : counts_) {
    if (count.key == key) return &count;
  }
  return nullptr;
}

std::optional<IndexedKey> IndexedKeyTable::Find(const std::string& key) const {
  if (families_.empty()) return std::nullopt;
  const auto shaped = by_shape_.find(Shape(key, false));
  if (shaped == by_shape_.end()) return std::nullopt;
  for (size_t i : shaped->second) {
    const IndexedSettingRecord& family = families_[i];
    auto indices = MatchPattern(family.setting.key, key);
    if (indices && indices->size() == family.indices.size()) return IndexedKey{&family, std::move(*indices)};
  }
  return std::nullopt;
}

}  // namespace nimbo::host
