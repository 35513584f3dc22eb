// Keys with indices formatted in ("alphamap_%i_x", "morph%iline%i_l1_p1_x"):
// how the host reads a concrete key back into its family and indices, and
// what counts each index.
//
// An effect describes each family once (orrery::IndexedSettingInfo): the
// pattern, the type and range every key of it shares, and per index the key
// holding the count and the most the effect reads. A key belongs to a family
// when it is the pattern with each "%i" replaced by a number exactly as "%i"
// prints it (no sign, no leading zero), so "alphamap_02_x" is no key of
// "alphamap_%i_x": the effect would never read it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "orrery/host_context.h"

namespace nimbo::host {

struct SettingRecord {
  std::string key;
  orrery::SettingType type;
  double minimum;
  double maximum;
  std::string help;
};

struct IndexRecord {
  std::string count_key;  // a pattern over the indices before this one
  int32_t limit;
};

struct IndexedSettingRecord {
  SettingRecord setting;  // key: the pattern
  std::vector<IndexRecord> indices;
};

// The indices of `key` read against `pattern`; nothing when it does not fit.
std::optional<std::vector<int32_t>> MatchPattern(const std::string& pattern, const std::string& key);
// `pattern` with its first indices.size() "%i" replaced by `indices`.
std::string FormatPattern(const std::string& pattern, const std::vector<int32_t>& indices);
// What counts a family's indices, for people: "alphamaplen", or
// "n_morphs, morph%in_lines" for two.
std::string CountKeysText(const IndexedSettingRecord& family);

// A concrete key read back into its family.
struct IndexedKey {
  const IndexedSettingRecord* family = nullptr;
  std::vector<int32_t> indices;
  // The count key of index `k`, formatted with the indices before it.
  std::string CountKey(size_t k) const { return FormatPattern(family->indices[k].count_key, {indices.begin(), indices.begin() + long(k)}); }
};

// The families an effect described, found fast by key: presets read keys by
// the million (a large Distorter set), so a key is first reduced to its
// shape (every run of digits, and every "%i" of a pattern, as one '#') and
// only the families of that shape are matched.
class IndexedKeyTable {
 public:
  // Adds `family`, or replaces the one with the same pattern.
  void Describe(IndexedSettingRecord family);
  const std::vector<IndexedSettingRecord>& Families() const { return families_; }
  std::optional<IndexedKey> Find(const std::string& key) const;
  // A plain count key ("n_morphs") as an int setting of range 0 .. its
  // largest limit, so a count the effect does not describe itself is still
  // checked; null for other keys.
  const SettingRecord* FindCount(const std::string& key) const;

 private:
  std::vector<IndexedSettingRecord> families_;
  std::unordered_map<std::string, std::vector<size_t>> by_shape_;
  std::vector<SettingRecord> counts_;
};

}  // namespace nimbo::host
