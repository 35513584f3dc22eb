#include "heap_reuse.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace nb3d {

bool UserTunesMalloc(const char* tunables, const char* trim, const char* mmap, const char* top_pad) {
  return (tunables && std::strstr(tunables, "glibc.malloc.")) || trim || mmap || top_pad;
}

bool KeepFreedHeapForReuse() {
#if defined(__GLIBC__)
  static std::once_flag once;
  static bool applied = false;
  std::call_once(once, [] {
    if (UserTunesMalloc(std::getenv("GLIBC_TUNABLES"), std::getenv("MALLOC_TRIM_THRESHOLD_"),
                        std::getenv("MALLOC_MMAP_THRESHOLD_"), std::getenv("MALLOC_TOP_PAD_")))
      return;
    // The mmap threshold first: setting either one ends glibc's own
    // adjustment, which would otherwise have raised it.
    applied = mallopt(M_MMAP_THRESHOLD, kHeapMmapThreshold) == 1 && mallopt(M_TRIM_THRESHOLD, kHeapTrimThreshold) == 1;
  });
  return applied;
#else
  return false;
#endif
}

}  // namespace nb3d
