// TimeBlur2's per-pixel work: a running sum of the last n frames, kept as four
// unsigned 16-bit words per pixel (B, G, R, A), updated with one saturating
// add and one saturating subtract per byte, and shifted down for the output.
//
// Kernels work on spans of `count` pixels. The scalar versions are the
// reference; the SIMD versions must give identical bytes (tests check it).
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

inline constexpr int32_t kTimeBlurMaxFrames = 32;

struct TimeBlurParams {
  int32_t shift;  // output = min(255, sum >> shift)
};

// The smallest s with 2^s >= n (n is clamped to 1 .. kTimeBlurMaxFrames).
int32_t TimeBlurShift(int32_t n);

// One normal frame: sum = sat(sat(sum + src) - ring); dst = min(255,
// sum >> shift); ring = src. `sum` holds 4 words per pixel.
using TimeBlurStepFn = void (*)(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                                const TimeBlurParams& params);
void TimeBlurStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                        const TimeBlurParams& params);
void TimeBlurStepSse2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params);
void TimeBlurStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params);
// The best version this CPU runs, chosen once.
TimeBlurStepFn TimeBlurStep();

// The sum of a reset frame: n copies of src added with saturation (n <= 32,
// so that is exactly n * byte).
void TimeBlurFillSum(const uint32_t* src, uint16_t* sum, size_t count, int32_t n);

}  // namespace nimbo
