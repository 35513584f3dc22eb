// Fast h-Blur's row kernel: a horizontal box blur of radius r by a running
// sum, so its cost per pixel does not depend on r.
//
// Output pixel x is the mean of the row's pixels x - r .. x + r, positions
// outside the row taking the nearest edge pixel; each byte is the window's
// sum over d = 2r + 1 pixels divided by d with rounding to the nearest
// integer, (sum + r) / d, and all four bytes are blurred.
//
// Think of the row as padded: r copies of its first pixel, the row, r + 1
// copies of its last pixel. Moving from x to x + 1, padded[x + d] enters the
// window and padded[x] leaves it. The span kernels take the entering and
// leaving pixels from two separate pointers, so the row driver can feed them
// straight from the row in the middle and from short edge buffers at the
// ends, without copying the row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

inline constexpr int32_t kBoxBlurMaxRadius = 255;

// Up to this radius the window sum plus r stays below 2^16 (255 d + r), and
// (sum + r) / d equals ((sum + r) * word_multiplier >> 16) >> word_shift for
// every sum (tests check each radius over its whole range); the SIMD
// versions then work on 16-bit words, twice as many per register.
inline constexpr int32_t kBoxBlurWordMaxRadius = 100;

struct BoxBlurParams {
  int32_t radius;            // 0 .. kBoxBlurMaxRadius
  float inv_divisor;         // 1 / (2 radius + 1), for the SIMD versions
  uint16_t word_multiplier;  // 0 when the radius is outside 1 .. kBoxBlurWordMaxRadius
  int32_t word_shift;
};

BoxBlurParams MakeBoxBlurParams(int32_t radius);

// One row being blurred: where the next entering and leaving pixels are read,
// where the next output goes, and the window's byte sums for that output.
// A step of 0 reads the same pixel again and again (the edge pixel repeated
// past a row's end), 1 moves along. A span kernel advances the pointers by
// the pixels it writes times their steps.
struct BoxBlurLane {
  const uint32_t* leave;
  const uint32_t* enter;
  uint32_t* dst;
  int32_t sum[4];
  uint32_t leave_step = 1;
  uint32_t enter_step = 1;
};

// Writes `n` outputs on each of `lanes` (1 or 2) lanes with the same steps:
// dst = round(sum / d), then sum += enter - leave.
using BoxBlurSpanFn = void (*)(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params);
// The reference: plain integers and a true division.
void BoxBlurSpanScalar(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params);
// Four pixels a step, one lane after the other.
void BoxBlurSpanSse2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params);
// Two lanes at once, one in each 128-bit half (the running sum is serial
// along a row, so a wider register takes a second row rather than more
// pixels of the same one).
void BoxBlurSpanAvx2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params);
// The best version this CPU runs, chosen once.
BoxBlurSpanFn BoxBlurSpan();

// Pixels of scratch each row needs in BoxBlurRows.
size_t BoxBlurScratchSize(size_t count, int32_t radius);

// Blurs `row_count` (1 or 2) rows of `count` pixels from src[i] into dst[i];
// a dst row must not overlap its src row. scratch[i] holds
// BoxBlurScratchSize(count, radius) pixels.
void BoxBlurRows(const uint32_t* const* src, uint32_t* const* dst, uint32_t* const* scratch, int32_t row_count,
                 size_t count, const BoxBlurParams& params, BoxBlurSpanFn span);

}  // namespace nimbo
