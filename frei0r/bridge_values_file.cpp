#include "bridge_values_file.h"

#include <cstdio>

#include "runtime/number_text.h"

namespace nimbo::frei0r {

ValuesFile::ValuesFile(const std::string& path, const std::vector<std::string>& names) : file_(path) {
  text_ = "frame,time";
  for (const std::string& name : names) text_ += "," + host::CsvField(name);
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
  text_ += std::to_string(frame) + "," + host::NumberText(seconds);
  for (const host::OutputValue& v : values) text_ += "," + host::FloatText(v.value);
  text_ += "\n";
}

}  // namespace nimbo::frei0r
