// Retina Killer's per-pixel work: the after-glow of earlier frames is added
// to the picture, then this frame's excess over the limit burns into the
// fatigue image, which fades by a fixed step.
//
// For each colour byte i (B, G, R) with fatigue byte f:
//   out = min(255, i + f)
//   f   = max(0, min(255, f + max(0, i - limit)) - fade)
// The alpha byte is passed through and its fatigue byte never grows: it is
// run through the same formula with a limit of 255, which is what lets the
// SIMD versions treat all four bytes alike.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

struct RetinaParams {
  uint8_t limit;  // brightness per channel above which fatigue grows
  uint8_t fade;   // fatigue removed per frame and channel
};

using RetinaFn = void (*)(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count,
                          const RetinaParams& params);
void RetinaScalar(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params);
void RetinaSse2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params);
// Call only when CpuHasAvx2().
void RetinaAvx2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params);
// The best version this CPU runs, chosen once.
RetinaFn RetinaKernel();

}  // namespace nimbo
