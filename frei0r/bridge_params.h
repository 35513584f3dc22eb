// The frei0r parameters of one effect and how their values map onto what the
// effect reads.
//
// frei0r hosts know five parameter types and expect numbers in 0..1, so each
// thing the effect lets a host change becomes one parameter:
//   a stored setting   int 0..1            -> bool
//                      int 0..0xFFFFFF     -> colour (the setting holds 0xRRGGBB)
//                      other int or float  -> double, 0..1 spread over the
//                                             setting's range (ints rounded)
//                      string or path      -> string
//   a dynamic variable float -> double over varmin..varmax, bool -> bool
//   a slider           double over its minimum..maximum
// plus "preset" (a settings document to start from) and, for an effect that
// publishes values, "values file" (a CSV of them, one row per frame).
//
// Setting pairs such as pick_x/pick_y stay two doubles rather than one
// position: MLT hands its frei0r filters no position parameters at all.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::frei0r {

// The frei0r type numbers (F0R_PARAM_*).
enum class ParamType : int32_t { kBool = 0, kDouble = 1, kColor = 2, kString = 4 };

enum class ParamSource { kSetting, kDynVar, kSlider, kPreset, kValuesFile };

struct ParamDesc {
  std::string name;  // lower case, as hosts list it
  ParamType type = ParamType::kDouble;
  ParamSource source = ParamSource::kSetting;
  std::string explanation;
  std::string target;      // the settings key, or the dynamic variable's or slider's name
  std::string store_type;  // settings: "int", "float", "string" or "path"
  double minimum = 0;      // what 0 and 1 stand for (doubles)
  double maximum = 1;
  bool whole = false;          // an int setting: values are rounded
  double default_value = 0;    // the effect's own default, in the target's units
  std::string default_text;    // strings: the default text
  std::string condition;       // "key=1" when the variable exists only under that setting
};

// What a host holds for one parameter: a number in 0..1 (bool, double), a
// colour, or a text.
struct ParamValue {
  double number = 0;
  float red = 0, green = 0, blue = 0;
  std::string text;
};

// The frei0r value that stands for `param`'s default.
ParamValue DefaultValue(const ParamDesc& param);

// Hostile input from hosts: NaN keeps the previous number, anything outside
// 0..1 is clamped into it; a null text is the empty text.
void StoreNumber(double number, double* stored);
void StoreColor(float red, float green, float blue, ParamValue* stored);

// A value in the target's units from the stored frei0r value.
double TargetNumber(const ParamDesc& param, const ParamValue& value);
// The --set text of a setting parameter ("angle=30.000000").
std::string SettingAssignment(const ParamDesc& param, const ParamValue& value);
// True when `value` differs from what the parameter's default stands for.
bool DiffersFromDefault(const ParamDesc& param, const ParamValue& value);

// 0xRRGGBB from a colour in 0..1 per component, and back.
int32_t PackRgb(float red, float green, float blue);
void UnpackRgb(int32_t rgb, ParamValue* value);

// Lower-case text, the way frei0r names its parameters.
std::string LowerName(const std::string& text);

}  // namespace nimbo::frei0r
