#include "bridge_values_file.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace nimbo::frei0r {
namespace {

// The number texts of nimbo's values table: times with nine significant
// digits, values as the shortest text that reads back as the same float.
std::string TimeText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", seconds);
  return text;
}

std::string ValueText(float value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

}  // namespace

ValuesFile::ValuesFile(const std::string& path, const std::vector<std::string>& names) : file_(path) {
  text_ = "frame,time";
  for (const std::string& name : names) text_ += "," + CsvField(name);
  text_ += "\n";
}

ValuesFile::~ValuesFile() {
  try {
    file_.WriteAll(text_.data(), text_.size());
    file_.Commit();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "nimbo frei0r: %s\n", e.what());  // the temporary file goes with file_
  }
}

void ValuesFile::AddRow(int64_t frame, double seconds, const std::vector<host::OutputValue>& values) {
  text_ += std::to_string(frame) + "," + TimeText(seconds);
  for (const host::OutputValue& v : values) text_ += "," + ValueText(v.value);
  text_ += "\n";
}

}  // namespace nimbo::frei0r
