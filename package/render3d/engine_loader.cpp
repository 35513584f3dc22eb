#include "render3d/engine_loader.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "orrery/services.h"
#include "core/platform.h"

namespace nimbo {
namespace {

constexpr const char* kCaption = "nb3D error";
constexpr size_t kSystemTextLimit = 1024;

std::mutex g_report_mutex;
std::string g_last_report;

std::string Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string text(length > 0 ? size_t(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

// Shows "couldn't be loaded" with `reason`, and with the system's error code
// and text when `with_code` is set.
void ReportLoadFailure(const std::string& reason, bool with_code, int code, const std::string& system_text) {
  std::string message = Format("The nb3D.DLL couldn't be loaded. Reason:\r\n%s", reason.c_str());
  if (with_code) {
    message += "\r\n";
    message += Format("Code %i: %s", code, system_text.substr(0, kSystemTextLimit).c_str());
  }
  {
    // Every drawing effect of a composition meets the same broken library;
    // the user needs to read about it once.
    std::lock_guard lock(g_report_mutex);
    if (message == g_last_report) return;
    g_last_report = message;
  }
  platform::ShowError(kCaption, message.c_str());
}

// Steps shared by both operations: load the library, find the factory.
// On failure the message is shown and the library is not kept.
Cnb3DFactory OpenFactory(void** library) {
  platform::LibraryError error;
  *library = platform::LoadLibrary(EngineLibraryPath(), &error);
  if (!*library) {
    ReportLoadFailure("nb3D.DLL not found", true, error.code, error.message);
    return nullptr;
  }
  auto factory = reinterpret_cast<Cnb3DFactory>(platform::FindSymbol(*library, kEngineFactoryName, &error));
  if (!factory) {
    ReportLoadFailure("nb3D.DLL corrupt", true, error.code, error.message);
    platform::FreeLibrary(*library);
    *library = nullptr;
  }
  return factory;
}

}  // namespace

std::string EngineLibraryPath() {
  return platform::JoinPath(orrery::GetSettingsManager()->GetBinPath(), kEngineLibraryName);
}

void ForgetReportedEngineFailure() {
  std::lock_guard lock(g_report_mutex);
  g_last_report.clear();
}

nb3D* CreateEngineObject(void* effect) {
  void* library = nullptr;
  Cnb3DFactory factory = OpenFactory(&library);
  if (!factory) return nullptr;

  float version = kNb3DVersion;
  errno = 0;
  nb3D* engine = factory(effect, &version);
  int code = errno;
  if (engine) {
    // The library stays loaded while the object lives. It is built never to
    // unload (GL drivers cannot), so this reference is not given back.
    ForgetReportedEngineFailure();
    return engine;
  }
  platform::FreeLibrary(library);
  if (version == kNb3DVersion) {
    ReportLoadFailure("An error occured while creating a nb3D object", true, code, std::strerror(code));
  } else {
    std::string conflict = Format(
        "nb3D.DLL version conflict (v %.2f, but this plugin needs v %.2f)\r\nPlease download the latest version "
        "at\r\n",
        double(version), double(kNb3DVersion));
    ReportLoadFailure(conflict + kEngineDownloadAddress, false, 0, "");
  }
  return nullptr;
}

bool CheckEngineLibrary() {
  void* library = nullptr;
  if (!OpenFactory(&library)) return false;
  platform::FreeLibrary(library);
  return true;
}

}  // namespace nimbo
