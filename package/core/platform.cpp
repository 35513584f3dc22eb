#include "core/platform.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "orrery/services.h"
#include "random/rand15.h"

namespace nimbo::platform {
namespace {
std::atomic<void*> g_main_window{nullptr};
std::mutex g_help_mutex;
std::string g_help_path;

std::string DlErrorText(const char* fallback) {
  const char* text = dlerror();
  return text ? text : fallback;
}
}  // namespace

void* LoadLibrary(const std::string& path, LibraryError* error) {
  errno = 0;
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library && error) {
    // dlopen does not promise to set errno; ask the file system why, so the
    // user sees a real code (2 for a missing file), and ENOEXEC for a file
    // that is there but not a loadable library.
    int code = errno;
    if (code == 0) code = access(path.c_str(), R_OK) != 0 ? errno : ENOEXEC;
    error->code = code;
    error->message = DlErrorText("cannot load library");
  }
  return library;
}

void* FindSymbol(void* library, const char* name, LibraryError* error) {
  errno = 0;
  dlerror();  // clear a stale error so the text below is this lookup's
  void* symbol = library ? dlsym(library, name) : nullptr;
  if (!symbol && error) {
    error->code = errno;
    error->message = DlErrorText("symbol not found");
  }
  return symbol;
}

void FreeLibrary(void* library) {
  if (library) dlclose(library);
}

std::string JoinPath(const std::string& folder, const std::string& file) {
  if (folder.empty()) return file;
  return folder + "/" + file;
}

void SetMainWindow(void* window) { g_main_window = window; }
void* MainWindow() { return g_main_window.load(); }

void ShowError(const char* caption, const char* text) {
  orrery::GetMessageService()->ShowMessage(nullptr, caption, text, orrery::kIconError);
}

void ShowWarning(const char* caption, const char* text) {
  orrery::GetMessageService()->ShowMessage(MainWindow(), caption, text, orrery::kIconWarning);
}

void OpenHelpPage(const char* page) { orrery::GetHelpService()->OpenHelp(HelpPath().c_str(), page); }
void MoveCursor(int32_t x, int32_t y) { orrery::GetDesktopService()->MoveCursor(x, y); }
int32_t DesktopWidth() { return orrery::GetDesktopService()->ScreenWidth(); }
int32_t DesktopHeight() { return orrery::GetDesktopService()->ScreenHeight(); }

void SetHelpPath(const std::string& path) {
  std::lock_guard lock(g_help_mutex);
  g_help_path = path;
}

std::string HelpPath() {
  std::lock_guard lock(g_help_mutex);
  return g_help_path;
}

int32_t Rand() { return random::Rand15(); }
void SeedRand(uint32_t seed) { random::SeedRand15(seed); }

}  // namespace nimbo::platform
