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

ParamValue DefaultValue(const ParamDesc& param) {
  ParamValue value;
  switch (param.type) {
    case ParamType::kColor: UnpackRgb(int32_t(param.default_value), &value); break;
    case ParamType::kString: value.text = param.default_text; break;
    case ParamType::kBool: value.number = param.default_value >= 0.5 ? 1.0 : 0.0; break;
    case ParamType::kDouble: value.number = ToUnit(param.default_value, param.minimum, param.maximum); break;
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

double TargetNumber(const ParamDesc& param, const ParamValue& value) {
  if (param.type == ParamType::kBool) return value.number >= 0.5 ? 1.0 : 0.0;
  if (param.type == ParamType::kColor) return PackRgb(value.red, value.green, value.blue);
  const double v = param.minimum + value.number * (param.maximum - param.minimum);
  return param.whole ? std::round(v) : v;
}

std::string SettingAssignment(const ParamDesc& param, const ParamValue& value) {
  if (param.type == ParamType::kString) return param.target + "=" + value.text;
  const double v = TargetNumber(param, value);
  if (param.store_type == "int") return param.target + "=" + FormatInt(int32_t(v));
  return param.target + "=" + FormatFloat(float(v));
}

bool DiffersFromDefault(const ParamDesc& param, const ParamValue& value) {
  if (param.type == ParamType::kString) return value.text != param.default_text;
  const double v = TargetNumber(param, value);
  if (param.type != ParamType::kDouble || param.whole) return v != param.default_value;
  // Floats as the store keeps them: six decimals.
  return FormatFloat(float(v)) != FormatFloat(float(param.default_value));
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
