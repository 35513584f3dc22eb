#include "heap_reuse.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#endif

namespace nb3d {

bool UserTunesMalloc(const char* tunables, const char* trim, const char* mmap, const char* top_pad) {
  return (tunables && std::strstr(tunables, "glibc.malloc.")) || trim || mmap || top_pad;
}

#if defined(__GLIBC__)
namespace {
// Grows the heap by kHeapHugeReserve without touching it and asks for
// transparent huge pages on it, then frees it: the freed block stays at the
// top of the heap (below the trim threshold) for the driver's allocations.
void ReserveHugeHeap() {
  constexpr uintptr_t kHuge = uintptr_t(2) << 20;
  void* block = std::malloc(kHeapHugeReserve);
  if (!block) return;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + kHuge - 1) & ~(kHuge - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + kHeapHugeReserve) & ~(kHuge - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  std::free(block);
}
}  // namespace
#endif

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
    if (applied) ReserveHugeHeap();
  });
  return applied;
#else
  return false;
#endif
}

}  // namespace nb3d
