#include "bridge_params.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "framework/config_data.h"

namespace nimbo::frei0r {
namespace {

double ToUnit(double value, double minimum, double maximum) {
  if (!(maximum > minimum)) return 0.0;
  return std::clamp((value - minimum) / (maximum - minimum), 0.0, 1.0);
}

float Channel(int32_t rgb, int shift) { return float((uint32_t(rgb) >> shift) & 0xFFu) / 255.0f; }

int32_t Byte(float unit) { return int32_t(std::lround(std::clamp(double(unit), 0.0, 1.0) * 255.0)); }

}  // namespace

ParamValue DefaultValue(const ParamSpec& spec) {
  ParamValue value;
  switch (spec.type) {
    case ParamType::kColor: UnpackRgb(int32_t(spec.default_value), &value); break;
    case ParamType::kString: value.text = spec.default_text; break;
    case ParamType::kBool: value.number = spec.default_value >= 0.5 ? 1.0 : 0.0; break;
    case ParamType::kDouble: value.number = ToUnit(spec.default_value, spec.minimum, spec.maximum); break;
  }
  return value;
}

void StoreNumber(double number, double* stored) {
  if (std::isnan(number)) return;
  *stored = std::clamp(number, 0.0, 1.0);
}

void StoreColor(float red, float green, float blue, ParamValue* stored) {
  auto store = [](float in, float* out) {
    if (!std::isnan(in)) *out = std::clamp(in, 0.0f, 1.0f);
  };
  store(red, &stored->red);
  store(green, &stored->green);
  store(blue, &stored->blue);
}

double TargetNumber(const ParamSpec& spec, const ParamValue& value) {
  if (spec.type == ParamType::kBool) return value.number >= 0.5 ? 1.0 : 0.0;
  if (spec.type == ParamType::kColor) return PackRgb(value.red, value.green, value.blue);
  const double v = spec.minimum + value.number * (spec.maximum - spec.minimum);
  return spec.whole ? std::round(v) : v;
}

std::string SettingAssignment(const ParamSpec& spec, const ParamValue& value) {
  if (spec.type == ParamType::kString) return spec.target + "=" + value.text;
  const double v = TargetNumber(spec, value);
  if (spec.store_type == "int") return spec.target + "=" + FormatInt(int32_t(v));
  return spec.target + "=" + FormatFloat(float(v));
}

bool DiffersFromDefault(const ParamSpec& spec, const ParamValue& value) {
  if (spec.type == ParamType::kString) return value.text != spec.default_text;
  const double v = TargetNumber(spec, value);
  if (spec.type != ParamType::kDouble || spec.whole) return v != spec.default_value;
  // Floats as the store keeps them: six decimals.
  return FormatFloat(float(v)) != FormatFloat(float(spec.default_value));
}

int32_t PackRgb(float red, float green, float blue) { return (Byte(red) << 16) | (Byte(green) << 8) | Byte(blue); }

void UnpackRgb(int32_t rgb, ParamValue* value) {
  value->red = Channel(rgb, 16);
  value->green = Channel(rgb, 8);
  value->blue = Channel(rgb, 0);
}

std::string LowerName(const std::string& text) {
  std::string out = text;
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return out;
}

}  // namespace nimbo::frei0r
