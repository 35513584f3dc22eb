#include "core/platform.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "orrery/services.h"

namespace nimbo::platform {
namespace {
std::atomic<void*> g_main_window{nullptr};
std::mutex g_help_mutex;
std::string g_help_path;
std::atomic<uint32_t> g_rand_seed{1};

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

int32_t Rand() {
  uint32_t seed = g_rand_seed.load(std::memory_order_relaxed);
  uint32_t next;
  do {
    next = seed * 214013u + 2531011u;
  } while (!g_rand_seed.compare_exchange_weak(seed, next, std::memory_order_relaxed));
  return int32_t((next >> 16) & 0x7fff);
}

void SeedRand(uint32_t seed) { g_rand_seed = seed; }

}  // namespace nimbo::platform
