// The host's process-wide services, installed into the SDK library before
// the package is loaded:
//   settings   plug-ins path = the package's folder; bin path = the folder
//              of the engine library (the nimbo program's own folder);
//              recent path kept in the user's config folder
//   messages   "caption: text" on stderr (after clearing a progress line)
//   help       opened with xdg-open when a desktop session exists, else the
//              page's path is printed
//   desktop    the X11 desktop when a display exists (the cursor really
//              moves); otherwise, or when NIMBO_DESKTOP_SIZE=WxH is set, a
//              virtual desktop of that size (default 1920x1080) that records
//              the cursor
//   pictures   decoded through FFmpeg (COrrBmp::LoadFromFile)
#pragma once

#include <cstdint>
#include <string>

#include "orrery/services.h"

namespace nimbo::host {

class HostSettings final : public orrery::CSettingsManager {
 public:
  HostSettings(std::string plugins_path, std::string bin_path, std::string recent_file);
  std::string GetPluginsPath() override { return plugins_path_; }
  std::string GetBinPath() override { return bin_path_; }
  std::string GetRecentPath() override;
  void SetRecentPath(const std::string& path) override;

 private:
  std::string plugins_path_;
  std::string bin_path_;
  std::string recent_file_;  // where the recent path is kept between runs
};

// The file that keeps the recent path: $XDG_CONFIG_HOME/nimbo/recent_path,
// else ~/.config/nimbo/recent_path ("" when neither is known).
std::string DefaultRecentFile();
// The folder holding the running program.
std::string ProgramFolder();

// Installs every service above; they live until the process ends.
void InstallHostServices(const std::string& plugins_path, const std::string& bin_path);

// The desktop service's record of the last cursor move (for tests and
// --values); -1, -1 before any.
void LastCursorPosition(int32_t* x, int32_t* y);

// Called before a message is printed, to clear a progress line; null for none.
void SetBeforeMessageHook(void (*hook)());

}  // namespace nimbo::host
