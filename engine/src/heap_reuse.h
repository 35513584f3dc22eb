// Keeping freed heap memory for the next frame.
//
// Mesa's software renderer bins every triangle of a frame into blocks of
// 64 KiB that it mallocs while the frame is drawn and frees when the frame
// is finished. Those blocks sit at the top of the heap, so glibc hands them
// back to the system at the free (its trim threshold starts at 128 KiB) and
// the next frame takes them again: one page fault and one zeroed page per
// 4 KiB, every frame. At 640x480 with 130,000 small triangles that cost
// more than the drawing itself (a 256x256 grid: about 120 ms a frame
// against 23 ms with the memory kept).
//
// glibc raises its thresholds by itself only after a block above the mmap
// threshold has been freed, which the 64 KiB blocks never are. The engine
// sets them to where glibc's own adjustment ends (mmap above 32 MiB, trim
// above twice that), once per process, before its first device. A user's
// own malloc settings in the environment are left as they stand; so
// GLIBC_TUNABLES=glibc.malloc.tcache_count=7 (glibc's default) shows a
// benchmark drawing with malloc as glibc leaves it.
#pragma once

#include <cstddef>

namespace nb3d {

// The thresholds set.
inline constexpr int kHeapMmapThreshold = 32 << 20;
inline constexpr int kHeapTrimThreshold = 64 << 20;
// When the thresholds are set, this much of the heap is grown at once and
// marked for transparent huge pages (where the system grants them on
// request): a process's first frame takes its new memory (texture storage,
// the render target, the renderer's bins) 2 MiB per page fault instead of
// 4 KiB, and on a virtual machine each fault costs tens of microseconds
// (about 1,300 faults and 15 ms of a 40 ms first frame of Text3D). Nothing
// in it is touched here; it stays in the heap below the trim threshold.
inline constexpr size_t kHeapHugeReserve = size_t(30) << 20;
static_assert(kHeapHugeReserve < size_t(kHeapMmapThreshold), "a larger block would be mapped apart from the heap");

// True when the environment names glibc malloc settings of its own
// (GLIBC_TUNABLES with a glibc.malloc entry, or a MALLOC_*_ variable for the
// thresholds or the top pad).
bool UserTunesMalloc(const char* tunables, const char* trim, const char* mmap, const char* top_pad);

// Sets the thresholds once per process unless the user tunes malloc; true
// when they are in force (set now or earlier). False on a C library other
// than glibc, where nothing is done.
bool KeepFreedHeapForReuse();

}  // namespace nb3d
