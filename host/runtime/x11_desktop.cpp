#include "runtime/x11_desktop.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>

namespace nimbo::host {
namespace {

// The handful of Xlib calls we need, looked up by name. Xlib's Display and
// Window are opaque here: a pointer and an unsigned long.
struct Xlib {
  void* library = nullptr;
  void* (*open_display)(const char*) = nullptr;
  int (*default_screen)(void*) = nullptr;
  unsigned long (*root_window)(void*, int) = nullptr;
  int (*display_width)(void*, int) = nullptr;
  int (*display_height)(void*, int) = nullptr;
  int (*warp_pointer)(void*, unsigned long, unsigned long, int, int, unsigned, unsigned, int, int) = nullptr;
  int (*flush)(void*) = nullptr;

  template <class F>
  bool Find(F& fn, const char* name) {
    fn = reinterpret_cast<F>(dlsym(library, name));
    return fn != nullptr;
  }
  bool Load() {
    library = dlopen("libX11.so.6", RTLD_NOW | RTLD_LOCAL);
    if (!library) return false;
    return Find(open_display, "XOpenDisplay") &&
           Find(default_screen, "XDefaultScreen") && Find(root_window, "XRootWindow") &&
           Find(display_width, "XDisplayWidth") && Find(display_height, "XDisplayHeight") &&
           Find(warp_pointer, "XWarpPointer") && Find(flush, "XFlush");
  }
};

class X11Desktop final : public orrery::DesktopService {
 public:
  X11Desktop(Xlib xlib, void* display) : x_(xlib), display_(display) {
    screen_ = x_.default_screen(display_);
    root_ = x_.root_window(display_, screen_);
  }
  int32_t ScreenWidth() override { return x_.display_width(display_, screen_); }
  int32_t ScreenHeight() override { return x_.display_height(display_, screen_); }
  // Render and dialog threads may both move the cursor; one Xlib connection
  // must not be used from two threads at once.
  void MoveCursor(int32_t x, int32_t y) override {
    std::lock_guard lock(mutex_);
    x_.warp_pointer(display_, 0, root_, 0, 0, 0, 0, x, y);
    x_.flush(display_);
  }

 private:
  Xlib x_;
  void* display_;
  int screen_ = 0;
  unsigned long root_ = 0;
  std::mutex mutex_;
};

}  // namespace

orrery::DesktopService* OpenX11Desktop() {
  const char* name = std::getenv("DISPLAY");
  if (!name || !*name) return nullptr;
  Xlib xlib;
  if (!xlib.Load()) {
    if (xlib.library) dlclose(xlib.library);
    return nullptr;
  }
  void* display = xlib.open_display(name);
  if (!display) {
    dlclose(xlib.library);
    return nullptr;
  }
  return new X11Desktop(xlib, display);
}

}  // namespace nimbo::host
