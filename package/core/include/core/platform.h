// The package's one door to the operating system and the host's services.
// Effects call these instead of the OS so the package stays portable and its
// behaviour testable (a test installs its own host services).
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace nimbo::platform {

// Effect locks are re-entrant: OK in a setup dialog re-enters Initialize
// while the dialog's apply step already holds the lock.
using Lock = std::recursive_mutex;

// ---- shared libraries ----------------------------------------------------------
struct LibraryError {
  int code = 0;          // errno at the failure (0 when the loader set none)
  std::string message;   // the loader's own text
};
void* LoadLibrary(const std::string& path, LibraryError* error);
void* FindSymbol(void* library, const char* name, LibraryError* error);
void FreeLibrary(void* library);

// Path of `file` inside `folder`, with the platform separator.
std::string JoinPath(const std::string& folder, const std::string& file);

// ---- user-visible messages, help, desktop ---------------------------------------
// The host's main window, remembered by SetupDialog; dialogs and message
// boxes are placed against it.
void SetMainWindow(void* window);
void* MainWindow();
void ShowError(const char* caption, const char* text);    // no owner window
void ShowWarning(const char* caption, const char* text);  // owned by the main window
void OpenHelpPage(const char* page);
void MoveCursor(int32_t x, int32_t y);
int32_t DesktopWidth();
int32_t DesktopHeight();

// ---- the package's help folder ------------------------------------------------------
// Rebuilt by orrpkgGetInfo from the settings manager's plug-ins path.
void SetHelpPath(const std::string& path);
std::string HelpPath();

// ---- random numbers ---------------------------------------------------------------------
// The classic 15-bit generator (seed = seed * 214013 + 2531011, result
// (seed >> 16) & 0x7fff, seed 1 at start), process-wide, so a given seed
// gives the same sequence on every platform.
inline constexpr int32_t kRandMax = 0x7fff;
int32_t Rand();
void SeedRand(uint32_t seed);

}  // namespace nimbo::platform
