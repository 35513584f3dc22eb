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

// The SIMD versions keep each running sum in a 16-bit word and divide by a
// multiply-high and a shift: floor(w / d) = (w * multiplier >> 16) >> shift,
// the multiplier being 1/d rounded up to 16 bits. That holds for every
// 0 <= w < 2^15, and at the radii up to kBoxBlurPlainMaxRadius for every w up
// to 255 d + r (a test checks both ranges at each radius).
//
// Up to kBoxBlurPlainMaxRadius the word is the window sum plus r. Beyond it
// that sum needs 17 bits, so the word holds it less base x d, and the
// quotient is base + floor(word / d). Every kBoxBlurRebaseSpan pixels the
// whole multiples of d move from the word into the base, leaving the word in
// [offset d, (offset + 1) d); offset d is at least the 32 x 255 the word can
// fall before the next rebase, so the word stays in 0 .. 2^15.
inline constexpr int32_t kBoxBlurPlainMaxRadius = 100;
inline constexpr int32_t kBoxBlurRebaseSpan = 32;
// The kernels rebase after the step that ends a span, found with a mask.
static_assert(kBoxBlurRebaseSpan % 4 == 0 && (kBoxBlurRebaseSpan & (kBoxBlurRebaseSpan - 1)) == 0);

struct BoxBlurParams {
  int32_t radius;         // 0 .. kBoxBlurMaxRadius
  uint16_t multiplier;    // 0 for radius 0, which the SIMD versions leave to the scalar one
  int32_t shift;
  int32_t rebase_offset;  // 0: the word is the plain sum
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
BoxBlurSpanFn BoxBlurSpanKernel();

// Pixels of scratch each row needs in BoxBlurRows.
size_t BoxBlurScratchSize(size_t count, int32_t radius);

// Blurs `row_count` (1 or 2) rows of `count` pixels from src[i] into dst[i];
// a dst row must not overlap its src row. scratch[i] holds
// BoxBlurScratchSize(count, radius) pixels.
void BoxBlurRows(const uint32_t* const* src, uint32_t* const* dst, uint32_t* const* scratch, int32_t row_count,
                 size_t count, const BoxBlurParams& params, BoxBlurSpanFn span);

}  // namespace nimbo
