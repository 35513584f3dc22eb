// The engine library's one export: the factory an effect's loader calls.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "engine.h"
#include "gles_backend.h"
#include "null_backend.h"

// Answers a new engine object when asked for exactly this engine's version;
// otherwise writes that version into *version and answers null, so the
// caller can tell a version conflict from a failure. NB3D_BACKEND=null in the
// environment gives objects that draw nothing (hosts without any EGL).
extern "C" __attribute__((visibility("default"))) nb3D* Cnb3D(void* effect, float* version) {
  (void)effect;  // one object per effect; the engine needs nothing of it
  if (!version) return nullptr;
  if (*version != kNb3DVersion) {
    *version = kNb3DVersion;
    return nullptr;
  }
  try {
    const char* choice = std::getenv("NB3D_BACKEND");
    std::unique_ptr<nb3d::RenderBackend> backend;
    if (choice && std::strcmp(choice, "null") == 0) backend = std::make_unique<nb3d::NullBackend>();
    else backend = std::make_unique<nb3d::GlesBackend>();
    return new nb3d::Engine(std::move(backend));
  } catch (...) {
    return nullptr;
  }
}
