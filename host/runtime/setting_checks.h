// One check for every number that reaches an effect's settings from outside
// the effect: `--set KEY=VALUE`, a preset's stored values and a preset's
// dynamic-variable values. The check decides what is wrong with a value; the
// callers differ only in what they do about it: `--set` refuses the value,
// a preset gets a warning and the clamped value (or the effect's default).
//
// A setting's range is the one the effect describes for it (what `nimbo
// info` shows), or the one of its family for an indexed key such as
// "alphamap_2_x"; a setting without a range (string and path settings, line
// coordinates) is only checked to be a finite number.
#pragma once

#include <optional>
#include <string>

#include "runtime/effect_host.h"

namespace nimbo::host {

struct ValueRange {
  double minimum = 0;
  double maximum = 0;
};

// The range of a described int or float setting; nothing for other types,
// undescribed keys and ranges that are no interval (minimum >= maximum).
std::optional<ValueRange> RangeOf(const SettingRecord* record);
// "MIN .. MAX", the numbers as `nimbo info` prints them.
std::string RangeText(const ValueRange& range);

enum class ValueFault {
  kNone,
  kUnparsable,  // no number of the setting's type
  kNotANumber,  // a float "nan"
  kNotFinite,   // a float beyond a float's range (infinite) where there is no range to clamp to
  kOutOfRange,  // outside the range (infinities included); `value` is clamped into it
};

struct CheckedNumber {
  ValueFault fault = ValueFault::kNone;
  double value = 0;                 // the number read; clamped for kOutOfRange
  std::optional<ValueRange> range;  // what it was checked against: an int without one gets its type's
};

// `text` the way the store reads it: a leading decimal integer, or a
// leading float, whatever follows. What presets hold.
CheckedNumber CheckStoredNumber(bool is_int, const std::string& text, const std::optional<ValueRange>& range);
// `text` the way `--set` takes it: all of it one number; ints also as hex
// (0xRRGGBB, #RRGGBB, any 32-bit pattern, stored as the signed word).
CheckedNumber CheckTypedNumber(bool is_int, const std::string& text, const std::optional<ValueRange>& range);

// A number as the store writes it ("%i" for ints, "%f" for floats).
std::string StoredText(bool is_int, double value);
// A number as warnings show it: the shortest text that reads back as the float.
std::string ShownNumber(bool is_int, double value);

}  // namespace nimbo::host
