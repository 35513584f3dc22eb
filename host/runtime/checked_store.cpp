#include "runtime/checked_store.h"

#include <cstring>

#include "runtime/host_error.h"
#include "runtime/setting_checks.h"

namespace nimbo::host {

std::string QuotedValue(const std::string& text) {
  constexpr size_t kShown = 40;
  return Quoted(text.size() > kShown ? text.substr(0, kShown) + "..." : text);
}

void CheckedStore::Warn(const std::string& key, std::string text) {
  if (warned_.insert(key).second) warnings_.push_back(source_ + ": " + std::move(text));
}

void CheckedStore::NoteRead(int32_t elem) {
  if (elem <= 0) return;
  if (read_.size() <= size_t(elem)) read_.resize(host_.Store().Document().ElementCount() + 1);
  if (size_t(elem) < read_.size()) read_[size_t(elem)] = true;
}

double CheckedStore::Checked(const char* key, bool is_int, double def) {
  const int32_t elem = host_.Store().Config().FindElement(key);
  if (!elem) return def;
  NoteRead(elem);
  const std::string text = host_.Store().Document().DataAt(elem);
  const CheckedNumber checked = CheckStoredNumber(is_int, text, RangeOf(host_.FindSettingOrFamily(key)));
  const std::string named = Quoted(key) + " = " + QuotedValue(text);
  const std::string keeping = "; keeping the default " + ShownNumber(is_int, def);
  // Stored ints are read as decimal digits, so a hex colour written by hand
  // ("0x00FF00", as --set takes it) reads as its leading 0: say so.
  if (is_int && checked.fault != ValueFault::kUnparsable) {
    const double stored = CheckStoredNumber(true, text, std::nullopt).value;
    const CheckedNumber typed = CheckTypedNumber(true, text, std::nullopt);
    if (typed.fault == ValueFault::kNone && typed.value != stored) {
      Warn(key, named + " reads as " + ShownNumber(true, stored) + ": stored ints are decimal (write " +
                    ShownNumber(true, typed.value) + ")");
    }
  }
  switch (checked.fault) {
    case ValueFault::kNone:
      return checked.value;
    case ValueFault::kOutOfRange:
      Warn(key, named + " is outside " + RangeText(*checked.range) + "; using " + ShownNumber(is_int, checked.value));
      return checked.value;
    case ValueFault::kUnparsable:
      Warn(key, named + " is not " + (is_int ? "an int" : "a float") + keeping);
      return def;
    case ValueFault::kNotANumber:
    case ValueFault::kNotFinite:
      Warn(key, named + (checked.range ? " is not a number in " + RangeText(*checked.range) : " is not a finite number") +
                    keeping);
      return def;
  }
  return def;
}

int32_t CheckedStore::GetInt(const char* key, int32_t def) {
  if (!key || std::strcmp(key, "!") == 0) return host_.Store().GetInt(key, def);
  return int32_t(Checked(key, true, def));
}

float CheckedStore::GetFloat(const char* key, float def) {
  if (!key) return def;
  return float(Checked(key, false, def));
}

const char* CheckedStore::GetString(const char* key, const char* def) {
  NoteRead(host_.Store().Config().FindElement(key));
  return host_.Store().GetString(key, def);
}

std::string CheckedStore::GetPath(const char* key, const char* def, bool* used_default) {
  NoteRead(host_.Store().Config().FindElement(key));
  return host_.Store().GetPath(key, def, used_default);
}

}  // namespace nimbo::host
