// Exchanging the red and blue bytes of 32-bit pixels: RGBA bytes as GL reads
// them <-> the host's 0xAARRGGBB words (bytes B, G, R, A). Used by Present
// when the device cannot read pixels in BGRA order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nb3d {

// Reference version. `src` and `dst` may be the same buffer.
void SwapRedBlueScalar(const uint32_t* src, uint32_t* dst, size_t count);
#if defined(__x86_64__) || defined(__i386__)
void SwapRedBlueSse2(const uint32_t* src, uint32_t* dst, size_t count);
// Call only when CpuHasAvx2().
void SwapRedBlueAvx2(const uint32_t* src, uint32_t* dst, size_t count);
#endif
// The engine asks the CPU itself: it shares no code with the package.
bool CpuHasAvx2();
// The fastest version this CPU runs, chosen once.
void SwapRedBlue(const uint32_t* src, uint32_t* dst, size_t count);

}  // namespace nb3d
