// Engine libraries that fail in each way the loader must report. Built once
// per FAKE_ENGINE_KIND, each as libnb3D.so in a folder of its own:
//   1 no factory: exports something else
//   2 a factory of another version (1.02)
//   3 a factory that fails: null with the version unchanged (errno ENOMEM)
#include <cerrno>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

#if FAKE_ENGINE_KIND == 1
FAKE_EXPORT int NotTheFactory() { return 0; }
#elif FAKE_ENGINE_KIND == 2
FAKE_EXPORT void* Cnb3D(void*, float* version) {
  *version = 1.02f;
  return nullptr;
}
#elif FAKE_ENGINE_KIND == 3
FAKE_EXPORT void* Cnb3D(void*, float*) {
  errno = ENOMEM;
  return nullptr;
}
#else
#error "FAKE_ENGINE_KIND must be 1, 2 or 3"
#endif
