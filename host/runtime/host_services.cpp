#include "runtime/host_services.h"

#include "runtime/x11_desktop.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <vector>

#include "media/media_input.h"
#include "orrery/picture.h"

extern char** environ;

namespace nimbo::host {
namespace {

std::atomic<void (*)()> g_before_message{nullptr};
std::atomic<int32_t> g_cursor_x{-1};
std::atomic<int32_t> g_cursor_y{-1};

class StderrMessages final : public orrery::MessageService {
 public:
  void ShowMessage(void*, const char* caption, const char* text, orrery::MessageIcon) override {
    if (auto hook = g_before_message.load()) hook();
    std::fprintf(stderr, "%s: %s\n", caption ? caption : "", text ? text : "");
  }
};

class DesktopHelp final : public orrery::HelpService {
 public:
  void OpenHelp(const char* help_path, const char* page) override {
    const std::string target = std::string(help_path ? help_path : "") + "/" + (page ? page : "");
    if (std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY")) {
      const char* argv[] = {"xdg-open", target.c_str(), nullptr};
      pid_t pid = 0;
      if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, const_cast<char**>(argv), environ) == 0) {
        int status = 0;
        waitpid(pid, &status, 0);
        return;
      }
    }
    std::fprintf(stderr, "help: %s\n", target.c_str());
  }
};

class VirtualDesktop final : public orrery::DesktopService {
 public:
  VirtualDesktop() {
    int w = 0, h = 0;
    const char* size = std::getenv("NIMBO_DESKTOP_SIZE");
    if (size && std::sscanf(size, "%dx%d", &w, &h) == 2 && w > 0 && h > 0) {
      width_ = w;
      height_ = h;
    }
  }
  int32_t ScreenWidth() override { return width_; }
  int32_t ScreenHeight() override { return height_; }
  void MoveCursor(int32_t x, int32_t y) override {
    g_cursor_x = x < 0 ? 0 : (x >= width_ ? width_ - 1 : x);
    g_cursor_y = y < 0 ? 0 : (y >= height_ ? height_ - 1 : y);
  }

 private:
  int32_t width_ = 1920;
  int32_t height_ = 1080;
};

class FfmpegPictures final : public orrery::PictureDecoder {
 public:
  bool Decode(const char* path, int32_t* width, int32_t* height, std::vector<uint32_t>* pixels) override {
    try {
      auto source = OpenMedia(path ? path : "");
      FrameBuffer picture;
      if (!source->ReadFrame(picture, source->Width(), source->Height())) return false;
      *width = picture.width;
      *height = picture.height;
      pixels->assign(picture.pixels.begin(), picture.pixels.end());
      return true;
    } catch (const std::exception&) {
      return false;  // the loader's caller reports the failure its own way
    }
  }
};

}  // namespace

HostSettings::HostSettings(std::string plugins_path, std::string bin_path, std::string recent_file)
    : plugins_path_(std::move(plugins_path)), bin_path_(std::move(bin_path)), recent_file_(std::move(recent_file)) {}

std::string HostSettings::GetRecentPath() {
  if (recent_file_.empty()) return "";
  std::ifstream in(recent_file_);
  std::string line;
  std::getline(in, line);
  return line;
}

void HostSettings::SetRecentPath(const std::string& path) {
  if (recent_file_.empty() || path.find('\n') != std::string::npos) return;
  const std::string folder = recent_file_.substr(0, recent_file_.find_last_of('/'));
  const std::string parent = folder.substr(0, folder.find_last_of('/'));
  mkdir(parent.c_str(), 0755);
  mkdir(folder.c_str(), 0755);
  // Written beside and renamed, so a crash never leaves half a line.
  const std::string temp = recent_file_ + "." + std::to_string(getpid());
  {
    std::ofstream out(temp, std::ios::trunc);
    out << path << '\n';
    if (!out) {
      std::remove(temp.c_str());
      return;
    }
  }
  if (std::rename(temp.c_str(), recent_file_.c_str()) != 0) std::remove(temp.c_str());
}

std::string DefaultRecentFile() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config && *config) return std::string(config) + "/nimbo/recent_path";
  const char* home = std::getenv("HOME");
  if (home && *home) return std::string(home) + "/.config/nimbo/recent_path";
  return "";
}

std::string ProgramFolder() {
  std::vector<char> buffer(4096);
  const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  if (n <= 0) return ".";
  std::string path(buffer.data(), size_t(n));
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

void InstallHostServices(const std::string& plugins_path, const std::string& bin_path) {
  static HostSettings* settings = nullptr;
  static StderrMessages messages;
  static DesktopHelp help;
  static VirtualDesktop desktop;
  static FfmpegPictures pictures;
  // Kept alive to the end of the process: packages may ask for services
  // while they unload.
  if (!settings) settings = new HostSettings(plugins_path, bin_path, DefaultRecentFile());
  else *settings = HostSettings(plugins_path, bin_path, DefaultRecentFile());
  orrery::SetSettingsManager(settings);
  orrery::SetMessageService(&messages);
  orrery::SetHelpService(&help);
  // A real X desktop when there is one (unless a test asked for a virtual
  // desktop of a given size); kept to the end of the process like the rest.
  static orrery::DesktopService* x11 = std::getenv("NIMBO_DESKTOP_SIZE") ? nullptr : OpenX11Desktop();
  orrery::SetDesktopService(x11 ? x11 : static_cast<orrery::DesktopService*>(&desktop));
  orrery::SetPictureDecoder(&pictures);
}

void LastCursorPosition(int32_t* x, int32_t* y) {
  *x = g_cursor_x;
  *y = g_cursor_y;
}

void SetBeforeMessageHook(void (*hook)()) { g_before_message = hook; }

}  // namespace nimbo::host
