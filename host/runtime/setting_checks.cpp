#include "runtime/setting_checks.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "framework/config_data.h"

namespace nimbo::host {
namespace {

constexpr double kFloatMax = double(std::numeric_limits<float>::max());

std::string Trim(const std::string& text) {
  const size_t b = text.find_first_not_of(" \t");
  const size_t e = text.find_last_not_of(" \t");
  return b == std::string::npos ? "" : text.substr(b, e - b + 1);
}

// Hex for colours and masks: any 32-bit pattern, as the signed word.
std::optional<double> WholeInt(const std::string& text) {
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  int base = 10;
  if (!text.empty() && text[0] == '#') {
    begin += 1;
    base = 16;
  } else if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    begin += 2;
    base = 16;
  }
  if (begin == end) return std::nullopt;
  if (base == 16) {
    uint32_t value = 0;
    auto [ptr, ec] = std::from_chars(begin, end, value, 16);
    if (ec != std::errc() || ptr != end) return std::nullopt;
    return double(int32_t(value));
  }
  if (*begin == '+') ++begin;
  int64_t value = 0;
  auto [ptr, ec] = std::from_chars(begin, end, value, 10);
  if (ptr != end || begin == end) return std::nullopt;
  // Beyond 64 bits: still a whole number, and out of any int's range.
  if (ec == std::errc::result_out_of_range) return *begin == '-' ? -1e300 : 1e300;
  if (ec != std::errc()) return std::nullopt;
  return double(value);
}

// Also "inf", "infinity" and "nan" (any case), which from_chars takes.
std::optional<double> WholeFloat(const std::string& text) {
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  double value = 0;
  auto [ptr, ec] = std::from_chars(begin, end, value);
  if (ptr != end || begin == end) return std::nullopt;
  if (ec == std::errc::result_out_of_range) {
    // Beyond a double: too large, or too small (a negative exponent), which
    // reads as 0.
    const size_t e = text.find_first_of("eE");
    if (e != std::string::npos && e + 1 < text.size() && text[e + 1] == '-') return 0.0;
    return text[0] == '-' ? -HUGE_VAL : HUGE_VAL;
  }
  if (ec != std::errc()) return std::nullopt;
  return value;
}

// What is wrong with a number read as a value of the setting.
// An int without a range of its own still has the range of its type.
CheckedNumber Judge(bool is_int, double value, std::optional<ValueRange> range) {
  if (!range && is_int) range = ValueRange{double(INT32_MIN), double(INT32_MAX)};
  CheckedNumber checked{ValueFault::kNone, value, range};
  if (std::isnan(value)) {
    checked.fault = ValueFault::kNotANumber;
  } else if (range && (value < range->minimum || value > range->maximum)) {
    checked.fault = ValueFault::kOutOfRange;
    checked.value = value < range->minimum ? range->minimum : range->maximum;
  } else if (!is_int && std::fabs(value) > kFloatMax) {
    checked.fault = ValueFault::kNotFinite;
  }
  return checked;
}

}  // namespace

std::optional<ValueRange> RangeOf(const SettingRecord* record) {
  if (!record) return std::nullopt;
  if (record->type != orrery::SettingType::kInt && record->type != orrery::SettingType::kFloat) return std::nullopt;
  if (!(record->minimum < record->maximum)) return std::nullopt;
  return ValueRange{record->minimum, record->maximum};
}

std::string RangeText(const ValueRange& range) {
  char text[64];
  std::snprintf(text, sizeof text, "%.9g .. %.9g", range.minimum, range.maximum);
  return text;
}

CheckedNumber CheckStoredNumber(bool is_int, const std::string& text, const std::optional<ValueRange>& range) {
  // The store's own reading: ints clamp to 32 bits, floats beyond a float's
  // range read as infinite.
  if (is_int) {
    const auto value = ScanInt(text, 10);
    return value ? Judge(true, *value, range) : CheckedNumber{ValueFault::kUnparsable, 0, std::nullopt};
  }
  const auto value = ScanFloat(text);
  return value ? Judge(false, *value, range) : CheckedNumber{ValueFault::kUnparsable, 0, std::nullopt};
}

CheckedNumber CheckTypedNumber(bool is_int, const std::string& text, const std::optional<ValueRange>& range) {
  const std::string trimmed = Trim(text);
  const auto value = is_int ? WholeInt(trimmed) : WholeFloat(trimmed);
  return value ? Judge(is_int, *value, range) : CheckedNumber{ValueFault::kUnparsable, 0, std::nullopt};
}

std::string StoredText(bool is_int, double value) {
  return is_int ? FormatInt(int32_t(value)) : FormatFloat(float(value));
}

std::string ShownNumber(bool is_int, double value) {
  if (is_int) return FormatInt(int32_t(value));
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, float(value));
  return std::string(text, result.ptr);
}

}  // namespace nimbo::host
