// ConfigData: the configuration store of an effect, kept in an XML document.
//
// Layout: the root "Settings" holds a "ConfigData" block, which holds one
// element per value in the order of writing:
//   <data name="KEY" type="int|float|string|path">VALUE</data>
// Integers are written with "%i", floats with "%f" (six decimals: 0.1234567 is
// stored as 0.123457, deliberately), strings and paths as they are (the
// document encodes them).
//
// Reads take the first "data" element whose name equals the key, whatever its
// type attribute says; missing values answer the caller's default. Writes
// append and never replace, so an effect writes each key once after
// BeginWriting. The integer key "!" is never stored and always reads 1; a
// write of "!" or of an ignored key succeeds and writes nothing.
//
// Lookups go through an index from key to element (the first element of each
// key, exactly the one the walk above would stop at), built on the first
// lookup after the document changed and kept while it does not: an effect
// reading all its keys costs time linear in the document plus its keys,
// instead of one walk of the document per key.
//
// Number texts are read and written in the C locale whatever the process
// locale is, so settings files stay portable.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "orrery/config_store.h"
#include "framework/xml_document.h"

namespace nimbo {

inline constexpr char kSettingsElem[] = "Settings";
inline constexpr char kConfigDataElem[] = "ConfigData";

class ConfigData final : public orrery::ConfigStore {
 public:
  static constexpr int32_t kMaxIgnoredKeys = 16;

  // The document is not owned and must outlive the store.
  explicit ConfigData(XmlDocument* doc) : doc_(doc) {}

  // Writes of `key` will be skipped. False when the list is full.
  bool AddIgnoredKey(const char* key);
  // Whether the document holds "Settings"/"ConfigData".
  bool HasBlock();
  // The stored text of `key` as every get operation finds it; nothing when
  // the key (or the block) is missing.
  std::optional<std::string> Find(const char* key);
  // The element Find reads, as a handle of the document (XmlDocument::DataAt);
  // 0 when missing. Valid while the document's revision is unchanged.
  int32_t FindElement(const char* key);
  // For a "data" element of the block (a document handle): the element its
  // key is read from, which is itself unless an earlier element has the
  // same key; 0 for elements that hold no key. Lets the host find the
  // repeated keys of a preset without looking each one up.
  int32_t FirstElementOf(int32_t handle);

  // Positions the document in a new "ConfigData" block, creating "Settings"
  // when it is missing. The new block goes first in "Settings": reads and
  // writes use the first block, so they see the newest one.
  void BeginWriting() override;
  int32_t GetInt(const char* key, int32_t def) override;
  int32_t SetInt(const char* key, int32_t value) override;
  float GetFloat(const char* key, float def) override;
  int32_t SetFloat(const char* key, float value) override;
  // The answer points into a buffer shared by all string reads of this store.
  const char* GetString(const char* key, const char* def) override;
  int32_t SetString(const char* key, const char* value) override;
  std::string GetPath(const char* key, const char* def, bool* used_default) override;
  int32_t SetPath(const char* key, const char* path) override;

 private:
  struct KeyHash {
    size_t operator()(std::string_view key) const { return std::hash<std::string_view>{}(key); }
  };
  // Keys are views of the document's text (valid for the revision the index
  // was built for), or of `decoded` for names written with entities.
  // `keys` holds each key once, at its first element, in document order;
  // effects read their keys in the order they wrote them, so a lookup tries
  // the key after the one found last before it hashes.
  struct Key {
    std::string_view name;
    int32_t elem;
  };
  struct KeyIndex {
    uint64_t revision = 0;  // the document's revision it was built for; 0: never
    bool has_block = false;
    std::vector<Key> keys;
    std::unordered_map<std::string_view, int32_t, KeyHash> position;  // key -> its place in `keys`
    std::vector<int32_t> first_of;  // element handle -> first element of its key
    std::deque<std::string> decoded;
    size_t last = 0;  // one past the place of the key found last
  };

  bool EnterBlock();
  const KeyIndex& Index();
  int32_t Write(const char* key, std::string_view text, const char* type);
  bool IsIgnored(const char* key) const;

  XmlDocument* doc_;
  std::array<std::string, kMaxIgnoredKeys> ignored_keys_;
  int32_t ignored_key_count_ = 0;
  std::string string_buffer_;
  KeyIndex index_;
};

// The lookup the index stands for, as a plain walk from the top: the first
// "Settings", its first "ConfigData", then its "data" children in document
// order until one is named exactly `key`. Linear in the block per call: the
// reference the index is tested and measured against, not for reading.
std::optional<std::string> WalkLookup(XmlDocument& doc, const char* key);

// --- Number texts, independent of the process locale.
std::string FormatInt(int32_t value);  // "%i"
std::string FormatFloat(float value);  // "%f"
// Like strtol with `base` (0 = C prefixes, as "%i" scans): leading blanks, a
// sign, then digits; trailing garbage ignored; out-of-range values clamp.
// Nothing when no digit was read.
std::optional<int32_t> ScanInt(const std::string& text, int base);
// Like strtof in the C locale. Nothing when no number was read.
std::optional<float> ScanFloat(const std::string& text);

}  // namespace nimbo
