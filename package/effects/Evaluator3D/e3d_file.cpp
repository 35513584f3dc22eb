#include "e3d_file.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "formula/user_variables.h"
#include "formula/text.h"
#include "shared/whole_file.h"

namespace nimbo::e3d {
namespace {

using formula::SameIgnoringCase;

// Longest description text kept.
constexpr size_t kMaxInfoLength = 4096;

// The formula fields in writing order, with the mode keys between them.
constexpr const char* kFormulasBeforeModes[] = {"a", "b", "c", "d", "e", "f", "g", "h", "x", "y", "z"};
constexpr const char* kSet1[] = {"u", "v", "nx", "ny", "nz"};
constexpr const char* kSet2[] = {"u2", "v2", "nx2", "ny2", "nz2"};
constexpr const char* kCamera[] = {"cx", "cy", "cz", "tx", "ty", "tz", "roll", "zoom"};

struct Record {
  std::string_view key;
  std::string_view value;
};

std::vector<Record> SplitRecords(std::string_view bytes) {
  std::vector<Record> records;
  size_t at = 0;
  while (true) {
    at = bytes.find('@', at);
    if (at == std::string_view::npos) break;
    const size_t key_end = bytes.find('\0', at + 1);
    if (key_end == std::string_view::npos) break;  // a key that never ends: nothing more to read
    size_t value_end = bytes.find('\0', key_end + 1);
    if (value_end == std::string_view::npos) value_end = bytes.size();
    records.push_back({bytes.substr(at + 1, key_end - at - 1), bytes.substr(key_end + 1, value_end - key_end - 1)});
    at = value_end;
  }
  return records;
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : records_(SplitRecords(bytes)) {}
  bool Empty() const { return records_.empty(); }

  std::optional<std::string_view> Find(std::string_view key) const {
    for (const Record& r : records_)
      if (SameIgnoringCase(r.key, key)) return r.value;
    return std::nullopt;
  }
  // A decimal integer after optional blanks and sign; digits past the
  // 32-bit range saturate. `def` when the key is missing.
  int32_t Int(std::string_view key, int32_t def) const {
    const auto text = Find(key);
    if (!text) return def;
    size_t k = 0;
    while (k < text->size() && ((*text)[k] == ' ' || (*text)[k] == '\t')) ++k;
    bool negative = false;
    if (k < text->size() && ((*text)[k] == '-' || (*text)[k] == '+')) negative = (*text)[k++] == '-';
    int64_t value = 0;
    for (; k < text->size() && (*text)[k] >= '0' && (*text)[k] <= '9'; ++k)
      value = std::min<int64_t>(value * 10 + ((*text)[k] - '0'), int64_t(1) << 32);
    value = negative ? -value : value;
    return int32_t(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
  }
  std::string Text(std::string_view key, const std::string& def, size_t limit) const {
    const auto text = Find(key);
    if (!text) return def;
    return std::string(text->substr(0, limit));
  }

 private:
  std::vector<Record> records_;
};

void Put(std::string& out, std::string_view key, std::string_view value) {
  out += '@';
  out += key;
  out += '\0';
  // A value ends at its zero byte: anything after a zero inside it could not
  // be read back.
  out += value.substr(0, value.find('\0'));
  out += '\0';
}
void Put(std::string& out, std::string_view key, int32_t value) { Put(out, key, std::to_string(value)); }

}  // namespace

std::string FormatE3D(const FormulaSet& set) {
  std::string out;
  Put(out, "imax", set.imax);
  Put(out, "jmax", set.jmax);
  Put(out, "hmap", set.hmap);
  Put(out, "loopi", set.loopi);
  Put(out, "loopj", set.loopj);
  const std::vector<std::string> names = set.ActiveVariableNames();
  Put(out, "nvars", int32_t(names.size()));
  for (size_t k = 0; k < names.size(); ++k) Put(out, "dynvar" + std::to_string(k), names[k]);
  Put(out, "info", set.info);
  auto formula = [&](const char* name) { Put(out, name, set.text[size_t(FieldByName(name))]); };
  for (const char* name : kFormulasBeforeModes) formula(name);
  Put(out, "uvmode1", set.uvmode1);
  for (const char* name : kSet1) formula(name);
  Put(out, "uvmode2", set.uvmode2);
  for (const char* name : kSet2) formula(name);
  for (const char* name : kCamera) formula(name);
  Put(out, "front", set.front);
  Put(out, "back", set.back);
  Put(out, "ipattern", set.ipattern);
  Put(out, "jpattern", set.jpattern);
  return out;
}

bool ParseE3D(std::string_view bytes, FormulaSet& set) {
  const Reader in(bytes);
  if (in.Empty()) return false;
  const FormulaSet def;
  FormulaSet s;
  s.imax = in.Int("imax", def.imax);
  s.jmax = in.Int("jmax", def.jmax);
  s.hmap = in.Int("hmap", 0);
  s.loopi = in.Int("loopi", 0);
  s.loopj = in.Int("loopj", 0);
  const int32_t nvars = std::clamp(in.Int("nvars", 0), 0, int32_t(formula::kMaxFormulaUserVariables));
  for (int32_t k = 0; k < nvars; ++k) {
    const auto name = in.Find("dynvar" + std::to_string(k));
    if (name) AddUserVariable(s, std::string(name->substr(0, kMaxFormulaLength)));
  }
  s.info = in.Text("info", def.info, kMaxInfoLength);
  for (int32_t f = 0; f < kFieldCount; ++f)
    s.text[size_t(f)] = in.Text(Info(f).name, def.text[size_t(f)], kMaxFormulaLength);
  s.uvmode1 = in.Int("uvmode1", def.uvmode1);
  s.uvmode2 = in.Int("uvmode2", def.uvmode2);
  s.front = in.Int("front", def.front);
  s.back = in.Int("back", def.back);
  s.ipattern = in.Text("ipattern", def.ipattern, kMaxFormulaLength);
  s.jpattern = in.Text("jpattern", def.jpattern, kMaxFormulaLength);
  s.Sanitize();
  set = std::move(s);
  return true;
}

std::string LoadE3DFile(const std::string& path, FormulaSet& set) {
  std::string bytes;
  if (!ReadFileUpTo(path, kMaxE3DBytes, &bytes) || !ParseE3D(bytes, set)) return kMessageCannotOpen;
  return "";
}

std::string SaveE3DFile(const std::string& path, const FormulaSet& set) {
  return WriteFileWhole(path, FormatE3D(set)) ? "" : kMessageCannotCreate;
}

}  // namespace nimbo::e3d
