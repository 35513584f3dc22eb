// Fast h-Blur's row kernel: a horizontal box blur of radius r by a running
// sum, so its cost per pixel does not depend on r.
//
// A row is blurred from a padded copy of itself: r copies of the first pixel,
// the row, then r + 1 copies of the last pixel (count + 2r + 1 pixels). Each
// output byte is the window's sum over d = 2r + 1 pixels divided by d with
// rounding to the nearest integer, (sum + r) / d; all four bytes are blurred.
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

// Fills `padded` (count + 2 radius + 1 pixels) from a row of `count` pixels.
void BoxBlurPadRow(const uint32_t* row, uint32_t* padded, size_t count, int32_t radius);

// One row.
void BoxBlurRowScalar(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params);
void BoxBlurRowSse2(const uint32_t* padded, uint32_t* dst, size_t count, const BoxBlurParams& params);

// Two rows at once (the running sum is serial along a row, so a wider
// register takes a second row rather than more pixels of the same one).
using BoxBlurRowPairFn = void (*)(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0, uint32_t* dst1,
                                  size_t count, const BoxBlurParams& params);
void BoxBlurRowPairSse2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0, uint32_t* dst1,
                        size_t count, const BoxBlurParams& params);
void BoxBlurRowPairAvx2(const uint32_t* padded0, const uint32_t* padded1, uint32_t* dst0, uint32_t* dst1,
                        size_t count, const BoxBlurParams& params);
// The best pair version this CPU runs, chosen once.
BoxBlurRowPairFn BoxBlurRowPair();

}  // namespace nimbo
