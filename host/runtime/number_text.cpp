#include "runtime/number_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace nimbo::host {

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

std::string NumberText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

std::string FloatText(float value) {
  if (!std::isfinite(value)) return NumberText(value);
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

}  // namespace nimbo::host
