// The published values of an effect (ColorTracker's "track x", ...) as a
// CSV file with the columns `nimbo render --values` writes: frame, time,
// then one column per value. Rows are kept in memory and the file appears
// under its name only when complete (when the instance ends or the path
// changes), so an interrupted run leaves no half-written file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/effect_stage.h"
#include "runtime/pending_file.h"

namespace nimbo::frei0r {

class ValuesFile {
 public:
  // Throws HostError when the file cannot be created.
  ValuesFile(const std::string& path, const std::vector<std::string>& names);
  ~ValuesFile();
  ValuesFile(const ValuesFile&) = delete;
  ValuesFile& operator=(const ValuesFile&) = delete;

  const std::string& Path() const { return file_.FinalPath(); }
  void AddRow(int64_t frame, double seconds, const std::vector<host::OutputValue>& values);

 private:
  host::PendingFile file_;
  std::string text_;
};

}  // namespace nimbo::frei0r
