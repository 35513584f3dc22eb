// ProgressBar: one line on a terminal (frames, fps, time left), redrawn at
// most ten times a second; silent when stderr is not a terminal or the user
// asked for quiet.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace nimbo::host {

class ProgressBar {
 public:
  // `total` -1 when unknown. `enabled` false draws nothing.
  ProgressBar(std::string label, int64_t total, bool enabled);
  ~ProgressBar();
  void Update(int64_t done);
  void Finish();  // clears the line

  // The line for `done` frames after `seconds`, `width` columns for the bar.
  static std::string Format(const std::string& label, int64_t done, int64_t total, double seconds, int width);

 private:
  std::string label_;
  int64_t total_;
  bool enabled_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_draw_;
};

// Whether progress bars should draw: stderr is a terminal.
bool ProgressWanted(bool quiet);

}  // namespace nimbo::host
