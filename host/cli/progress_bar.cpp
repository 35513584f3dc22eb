#include "cli/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "runtime/host_services.h"

namespace nimbo::host {
namespace {

std::atomic<bool> g_line_drawn{false};

void ClearLine() {
  if (g_line_drawn.exchange(false)) std::fputs("\r\033[K", stderr);
}

std::string Clock(double seconds) {
  const int64_t s = int64_t(seconds + 0.5);
  char text[32];
  if (s >= 3600) std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", (long long)(s / 3600), (long long)(s / 60 % 60), (long long)(s % 60));
  else std::snprintf(text, sizeof text, "%lld:%02lld", (long long)(s / 60), (long long)(s % 60));
  return text;
}

}  // namespace

bool ProgressWanted(bool quiet) { return !quiet && isatty(STDERR_FILENO); }

ProgressBar::ProgressBar(std::string label, int64_t total, bool enabled)
    : label_(std::move(label)), total_(total), enabled_(enabled), start_(std::chrono::steady_clock::now()) {
  if (enabled_) SetBeforeMessageHook(&ClearLine);  // messages from effects start on a clean line
}

ProgressBar::~ProgressBar() { Finish(); }

std::string ProgressBar::Format(const std::string& label, int64_t done, int64_t total, double seconds, int width) {
  const double fps = seconds > 0 ? double(done) / seconds : 0.0;
  char numbers[96];
  std::string line = label + " ";
  if (total > 0) {
    const int64_t shown = std::min(done, total);
    const int filled = int(double(width) * double(shown) / double(total));
    line += "[" + std::string(size_t(filled), '#') + std::string(size_t(width - filled), '-') + "] ";
    std::snprintf(numbers, sizeof numbers, "%lld/%lld frames  %.1f fps", (long long)done, (long long)total, fps);
    line += numbers;
    if (fps > 0 && done < total) line += "  " + Clock(double(total - done) / fps) + " left";
  } else {
    std::snprintf(numbers, sizeof numbers, "%lld frames  %.1f fps", (long long)done, fps);
    line += numbers;
  }
  return line;
}

void ProgressBar::Update(int64_t done) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - last_draw_ < std::chrono::milliseconds(100) && done != total_) return;
  last_draw_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::fprintf(stderr, "\r\033[K%s", Format(label_, done, total_, seconds, 30).c_str());
  std::fflush(stderr);
  drawn_ = true;
  g_line_drawn = true;
}

void ProgressBar::Finish() {
  if (!enabled_) return;
  ClearLine();
  SetBeforeMessageHook(nullptr);
  enabled_ = false;
}

}  // namespace nimbo::host
