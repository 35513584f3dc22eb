// LowQ's damage: global pixel operations (grey, darken, colour reduction),
// block operations on the picture seen as one run of N = width x height
// pixels, and the random driver that picks them each frame.
//
// Random draws come from the package's 15-bit generator (platform::Rand), so
// a seed gives the same damage on every machine. The order of draws is part
// of the behaviour: tests replay it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

// The thirteen controls, in the order the effect declares them.
struct LowQControls {
  float operations = 5.0f;         // block passes per frame
  float bw_probability = 0.2f;     // global black/white
  float reduce_probability = 0.3f; // global colour reduction
  float darken_probability = 0.2f; // global darken
  float darken_max = 30.0f;        // 0..255
  float block_darken_probability = 0.4f;
  float block_darken_max = 60.0f;  // 0..255
  float block_darken_size = 0.03f; // fraction of the pixel count
  float block_add_probability = 0.2f;
  float block_add_size = 0.1f;     // fraction of the height
  float block_move_probability = 0.3f;
  float block_move_distance = 0.1f;  // fraction of the pixel count
  float block_move_size = 0.2f;      // fraction of the pixel count
};

// A bound on block passes per frame, whatever value the host writes.
inline constexpr int32_t kLowQMaxOperations = 1000;

// ---- global pixel kernels (in place; scalar reference + SSE2) ----
// Grey of each pixel: ((R + B) / 2 + G) / 2 with truncating halvings, into
// B, G and R; alpha is kept.
void LowQGreyScalar(uint32_t* px, size_t count);
void LowQGreySse2(uint32_t* px, size_t count);
// Every byte (alpha included) minus `amount`, saturating at 0.
void LowQSubtractScalar(uint32_t* px, size_t count, uint8_t amount);
void LowQSubtractSse2(uint32_t* px, size_t count, uint8_t amount);
// (pixel AND mask) OR NOT mask over whole pairs of pixels: an odd last pixel
// is left as it is.
void LowQMaskScalar(uint32_t* px, size_t count, uint32_t mask);
void LowQMaskSse2(uint32_t* px, size_t count, uint32_t mask);

// The mask word of colour reduction for a level n (clamped to 0..24).
uint32_t LowQReduceMask(int32_t n);

// ---- block operations (scalar; every one stays inside the n pixels) ----
// Adds rows x cols pixels read `offset` pixels further on (wrapping around
// the frame) onto the run of rows starting at `start`, row stride `width`.
void LowQAddBlock(uint32_t* px, int64_t n, int32_t width, int64_t start, int32_t rows, int32_t cols, int64_t offset);
// Forward copy of `length` pixels from start + distance to start.
void LowQMoveRun(uint32_t* px, int64_t start, int64_t length, int64_t distance);

// ---- the random driver ----
// One frame of damage on `px` (width x height), drawing from platform::Rand.
void LowQDamage(uint32_t* px, int32_t width, int32_t height, const LowQControls& controls);

// Float control to int, truncating toward zero, clamped to lo..hi (NaN: lo),
// so any value a host writes stays a safe size or count.
int64_t LowQTrunc(float value, int64_t lo, int64_t hi);

}  // namespace nimbo
