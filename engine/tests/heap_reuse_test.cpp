// The engine keeps freed heap memory for the next frame (heap_reuse.h): the
// user's own malloc settings are respected, and with the thresholds set a
// frame's worth of 64 KiB blocks freed at the top of the heap stays there.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "heap_reuse.h"

namespace {

TEST(HeapReuseTest, TheUsersOwnMallocSettingsAreLeftAlone) {
  struct Case {
    const char* tunables;
    const char* trim;
    const char* mmap;
    const char* top_pad;
    bool user_tunes;
  };
  const Case cases[] = {
      {nullptr, nullptr, nullptr, nullptr, false},
      {"glibc.rtld.nns=2", nullptr, nullptr, nullptr, false},
      {"glibc.rtld.nns=2:glibc.malloc.trim_threshold=1", nullptr, nullptr, nullptr, true},
      {nullptr, "131072", nullptr, nullptr, true},
      {nullptr, nullptr, "0", nullptr, true},
      {nullptr, nullptr, nullptr, "4096", true},
  };
  for (const Case& c : cases)
    EXPECT_EQ(nb3d::UserTunesMalloc(c.tunables, c.trim, c.mmap, c.top_pad), c.user_tunes) << (c.tunables ? c.tunables : "");
}

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)
TEST(HeapReuseTest, AFramesBlocksFreedAtTheTopOfTheHeapStayForTheNextFrame) {
  if (!nb3d::KeepFreedHeapForReuse()) GTEST_SKIP() << "malloc is tuned by the environment";
  EXPECT_GE(mallinfo2().arena, nb3d::kHeapHugeReserve) << "the huge-page reserve was grown in the heap";
  // 32 MiB in the renderer's block size, touched, then all freed.
  constexpr size_t kBlock = 64 << 10, kBlocks = 512;
  std::vector<void*> blocks(kBlocks);
  for (void*& b : blocks) std::memset(b = std::malloc(kBlock), 1, kBlock);
  const size_t peak = mallinfo2().arena;
  for (void* b : blocks) std::free(b);
  const struct mallinfo2 after = mallinfo2();
  EXPECT_GE(after.arena + kBlock, peak);           // nothing handed back to the system
  EXPECT_GE(after.fordblks, kBlocks * kBlock);     // and all of it free for the next frame
}
#endif

}  // namespace
